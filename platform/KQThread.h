#pragma once

/// Starts detached worker threads. The object is only a means to start one:
/// destroying it neither stops nor joins the thread.
class CKQThread {
 public:
  /// Runs `fn(arg)` on a new detached thread, all signals blocked.
  /// @return false when no thread can be had; `fn` is then not called.
  bool CreateKQThread(void* (*fn)(void*), void* arg);
};
