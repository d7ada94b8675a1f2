#pragma once

#include <string>

#include "transfer/Session.h"

/// What the server has of a measurement file, and how the rest gets there.
struct SRecording {
  SLostInfo m_lost;              ///< what the server's side files say
  SLostAnswer m_answer;          ///< what the library's worker is to hear of them
  bool m_bWhole = false;         ///< goes on from nothing there: empty it, send it all
  std::int64_t m_llMissing = 0;  ///< bytes that a put would send; 0 when all is there
  std::string m_strWhy;          ///< why the file cannot be judged; "" when it can
};

/// Asks the server. Side files may lie there that tell of another state of the
/// file than the server holds: of a recording that is not there yet, or of
/// segments whose first one is all that this file is. What they tell is gone
/// on with only where every missing range begins in what is held.
/// @param mine   the server's copy was emptied in this run: what it holds has
///               been sent since, in order
/// @return 1, or why the server could not be asked
int LookAtRecording(CSession& session, const std::string& serverName, std::int64_t localSize,
                    bool mine, SRecording& recording);

/// True for a range that holds something and lies in the file.
bool IsInFile(const FILEDATAPOS& range, std::int64_t fileSize);
