#pragma once

#include <cstdint>
#include <future>
#include <map>
#include <string>
#include <vector>

#include "platform/SharedWord.h"
#include "transfer/LocalFiles.h"

/// Looks for the files of a put while its connection is made.
///
/// Threads: one; the look runs on a thread of its own, which is waited for.
class CEarlyLook {
 public:
  CEarlyLook() = default;
  CEarlyLook(const CEarlyLook&) = delete;
  CEarlyLook& operator=(const CEarlyLook&) = delete;

  /// Ends the look early.
  ~CEarlyLook() { Forget(); }

  /// Begins to look for all files of these paths. Does nothing without a thread.
  void Begin(const std::vector<std::string>& paths);

  /// The files of a path, as CollectFiles adds them to none: those that Begin
  /// found, once; found now where that was not asked for, or is long ago.
  /// Blocks: until they are found.
  SLocalFiles Take(const std::string& path, const CFilter& filter);

 private:
  using Found = std::map<std::string, SLocalFiles>;
  void Forget();

  std::int64_t m_llBegunMs = 0;
  CSharedWord<bool> m_bStop = false;  // word; nobody wants it any more
  std::future<Found> m_look;          // runs; or not valid
  Found m_found;                      // by path
};
