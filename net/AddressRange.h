#pragma once

#include <string>

#include "KQFileTransServiceExport.h"

/// The IPv4 addresses that begin alike.
class KQFT_API CAddressRange {
 public:
  /// Reads "10.1.0.0/16", or a single address. Nothing else: no blanks, no
  /// names, and no bits set behind the prefix, which would hide a slip.
  /// @return "" when `range` was set, else what is wrong with the text
  static std::string Parse(const std::string& text, CAddressRange& range);

  /// @param ip host byte order
  bool Contains(unsigned int ip) const { return (ip & m_nMask) == m_nFirst; }

 private:
  unsigned int m_nFirst = 0;  // host byte order, as the mask
  unsigned int m_nMask = 0;
};
