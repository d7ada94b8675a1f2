#pragma once

#include <mutex>

#include "KQFileTransServiceExport.h"

/// A lock that its owner may take again.
class KQFT_API CThreadLock {
 public:
  /// @param enabled always true in this library; false makes a lock that
  ///                locks nothing.
  explicit CThreadLock(bool enabled) : m_bEnabled(enabled) {}
  CThreadLock(const CThreadLock&) = delete;
  CThreadLock& operator=(const CThreadLock&) = delete;

  void Enter() {
    if (m_bEnabled) m_mutex.lock();
  }
  void Leave() {
    if (m_bEnabled) m_mutex.unlock();
  }

 private:
  const bool m_bEnabled;
  std::recursive_mutex m_mutex;
};

/// Holds a CThreadLock for a scope.
class CScopedLock {
 public:
  explicit CScopedLock(CThreadLock* lock) : m_pLock(lock) { m_pLock->Enter(); }
  CScopedLock(const CScopedLock&) = delete;
  CScopedLock& operator=(const CScopedLock&) = delete;
  ~CScopedLock() { m_pLock->Leave(); }

 private:
  CThreadLock* const m_pLock;
};
