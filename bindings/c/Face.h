#pragma once

#include <cstdint>
#include <cstring>
#include <new>
#include <string>
#include <vector>

#include "KQFTransferExport.h"
#include "platform/SharedWord.h"
#define KQFT_C_API KQFT_TRANSFER_API
#include "bindings/c/kqft.h"

/// What every function of the C face is made of.

/// Runs what a function does; nothing that is thrown gets past it.
template <typename Function>
std::int32_t Guarded(const Function& function) noexcept {
  try {
    return function();
  } catch (const std::bad_alloc&) {
    return KQFT_E_MEMORY;
  } catch (...) {
    return KQFT_E_UNEXPECTED;
  }
}

/// How long a struct was in its first version, which callers may still bring.
/// One that grows gets a specialisation: the offset of its first later member.
template <typename Struct>
constexpr std::size_t kFirstSize = sizeof(Struct);

template <typename Struct>
bool IsSize(std::uint32_t size) {
  return size >= kFirstSize<Struct> && size <= sizeof(Struct);
}

/// Takes over what a caller's struct holds; what it is too short for is 0.
/// @param from null leaves the defaults
template <typename Struct>
std::int32_t Take(const Struct* from, Struct& to) {
  to = {};
  if (from == nullptr) return KQFT_OK;
  if (!IsSize<Struct>(from->size)) return KQFT_E_SIZE;
  std::memcpy(&to, from, from->size);
  return KQFT_OK;
}

/// Fills a caller's struct as far as it goes, but for its size.
template <typename Struct>
std::int32_t Give(Struct value, Struct* to) {
  if (to == nullptr) return KQFT_E_NULL;
  const std::uint32_t size = to->size;
  if (!IsSize<Struct>(size)) return KQFT_E_SIZE;
  value.size = size;
  std::memcpy(to, &value, size);
  return KQFT_OK;
}

/// A struct that a callback is passed.
template <typename Struct>
Struct Sized() {
  Struct made = {};
  made.size = sizeof(Struct);
  return made;
}

constexpr std::int32_t kLastPort = 65535;

/// In front of the names of logs: no system makes a file of such a name.
inline const std::string kNoLogs(1, '\0');

inline std::string TextOf(const char* text) {
  return text == nullptr ? "" : text;
}

/// @return KQFT_OK, or what is wrong with the array
inline std::int32_t TakeTexts(const char* const* texts, std::int32_t count,
                              std::vector<std::string>& to) {
  if (count < 0) return KQFT_E_ARGUMENT;
  if (count > 0 && texts == nullptr) return KQFT_E_NULL;
  for (std::int32_t i = 0; i < count; ++i) {
    if (texts[i] == nullptr) return KQFT_E_NULL;
    to.emplace_back(texts[i]);
  }
  return KQFT_OK;
}

/// Whether somebody uses a handle. Any thread.
class CInUse {
 public:
  /// Uses it for a scope, unless somebody does already.
  class CScope {
   public:
    explicit CScope(CInUse& use) : m_use(use), m_bMine(use.m_bTaken.Claim(false, true)) {}
    CScope(const CScope&) = delete;
    CScope& operator=(const CScope&) = delete;
    ~CScope() {
      if (m_bMine) m_use.m_bTaken = false;
    }
    bool IsMine() const { return m_bMine; }

   private:
    CInUse& m_use;
    const bool m_bMine;
  };

  /// For good: the handle is about to go.
  bool TakeForGood() { return m_bTaken.Claim(false, true); }

  bool IsTaken() const { return m_bTaken; }

 private:
  CSharedWord<bool> m_bTaken = false;
};
