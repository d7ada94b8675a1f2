#ifndef KQFT_H
#define KQFT_H

/// The C face of libkqft: moves measurement projects between this machine and
/// a data server, and serves them. C99 and C++11; the C calling convention.
///
/// Results    Functions return 1 (KQFT_OK), 0 or a negative code; kqft_describe
///            says it in words. What a function gives is set only where it says
///            so; handles are NULL after a failure.
/// Strings    UTF-8, ended by 0. Those that come in are copied. Those that go out
///            belong to the handle or struct that they came from. NULL counts
///            as "" where an option may be left out.
/// Structs    begin with `size`, which the caller sets to sizeof of the struct, in
///            those that are filled as well; of a callback the library does. They
///            grow at their end. What is 0 or NULL is the default.
/// Handles    NULL gives KQFT_E_NULL, to destroy it does nothing. One thread at a
///            time uses a handle, which KQFT_E_IN_USE guards; different handles
///            know nothing of each other. What any thread may call says so.
/// Callbacks  come one at a time, on the thread that called the operation or on
///            one of the library's while that thread waits. They return soon,
///            call nothing of their handle but kqft_client_cancel and
///            kqft_client_progress, throw nothing and do not jump out.

#include "kqft/client.h"
#include "kqft/codes.h"
#include "kqft/contract.h"
#include "kqft/result.h"
#include "kqft/server.h"

#endif
