#pragma once

#include <atomic>

/// One flag, counter or pointer that two threads share without a lock.
///
/// Behaves as the plain word it stands for, but every access is atomic, and
/// the class that holds it stays copyable: a copy takes the value of that
/// moment. Strings and containers are no words and need a lock.
template <typename T>
class CSharedWord {
 public:
  CSharedWord(T value = T()) noexcept : m_value(value) {}
  CSharedWord(const CSharedWord& other) noexcept : m_value(other.Load()) {}
  CSharedWord& operator=(const CSharedWord& other) noexcept {
    Store(other.Load());
    return *this;
  }
  ~CSharedWord() = default;

  T Load() const noexcept { return m_value.load(); }
  void Store(T value) noexcept { m_value.store(value); }

  /// Sets the word and returns what it was: claims a flag in one step.
  T Exchange(T value) noexcept { return m_value.exchange(value); }

  /// Sets the word to `value` if it still is `expected`; true when it did.
  bool Claim(T expected, T value) noexcept {
    return m_value.compare_exchange_strong(expected, value);
  }

  operator T() const noexcept { return Load(); }
  CSharedWord& operator=(T value) noexcept {
    Store(value);
    return *this;
  }
  CSharedWord& operator+=(T value) noexcept {
    m_value.fetch_add(value);
    return *this;
  }

 private:
  std::atomic<T> m_value;
};
