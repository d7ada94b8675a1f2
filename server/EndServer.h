#pragma once

#include <memory>

#include "KQFileTransServiceExport.h"
#include "server/KQFileTransServiceServer.h"

/// Stops and destroys a server, for a program that is about to end and cannot
/// wait as long as Stop and the destructor do.
///
/// The work is done by a thread of its own. What was received lies in its files
/// by the time that a second has passed, unless a disk holds it up, so that a
/// program loses nothing when it ends before that thread has.
///
/// @param milliseconds how long to wait for that thread
/// @return true when the server is gone. Otherwise it goes on ending, or, where
///         no thread was to be had, goes on as it was: nothing may be taken away
///         under it, so the program ends by std::_Exit.
/// Threads: the host thread. The server's destructor runs on the other one.
/// Blocks: for as long as it was told.
KQFT_API bool EndServer(std::unique_ptr<CKQFileTransServiceServer> server, int milliseconds);
