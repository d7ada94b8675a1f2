// Detached worker threads.

#include "platform/KQThread.h"

#include "platform/System.h"

bool CKQThread::CreateKQThread(void* (*fn)(void*), void* arg) {
  if (fn == nullptr) return false;
  return System().StartThread([fn, arg] { fn(arg); }) == ESystemError::kNone;
}
