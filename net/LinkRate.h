#pragma once

#include <algorithm>
#include <cstdint>

/// How fast new links may come: so many in a time, as many of them at once.
/// Used by one thread.
class CLinkRate {
 public:
  /// @param links 0: any number
  CLinkRate(int links, int milliseconds)
      : m_llCost(milliseconds),
        m_llMost(std::int64_t{links} * milliseconds),
        m_llLeft(m_llMost),
        m_nLinks(links) {}

  /// @param now milliseconds
  /// @return false when this one comes too soon; it does not count then
  bool Take(std::int64_t now) {
    if (m_nLinks == 0) return true;
    const std::int64_t passed = std::clamp<std::int64_t>(now - m_llLast, 0, m_llCost);
    m_llLast = now;
    m_llLeft = std::min(m_llMost, m_llLeft + passed * m_nLinks);
    if (m_llLeft < m_llCost) return false;
    m_llLeft -= m_llCost;
    return true;
  }

 private:
  // In units of which a millisecond brings as many as there may be links.
  const std::int64_t m_llCost;  // of a link
  const std::int64_t m_llMost;
  std::int64_t m_llLeft;
  std::int64_t m_llLast = 0;
  const int m_nLinks;
};
