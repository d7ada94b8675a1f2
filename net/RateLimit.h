#pragma once

#include <cstddef>

#include "KQFileTransServiceExport.h"

/// Decides how fast file data is sent and links are read. What it holds back
/// the other side feels: a link that is read more slowly fills up.
///
/// Threads: every operation from any thread.
class KQFT_API IRateLimit {
 public:
  virtual ~IRateLimit() = default;

  /// Bytes a second at this moment; 0: as fast as it goes.
  virtual int Rate() const = 0;

  /// Waits until more may move, for about `ms` milliseconds at most.
  /// @return how many bytes may move now; 0: none yet, ask again
  virtual int Wait(int ms) = 0;

  /// So many have moved, never more than Wait has returned last.
  virtual void Moved(std::size_t bytes) = 0;
};
