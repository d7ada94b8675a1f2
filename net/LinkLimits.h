#pragma once

/// How many links there may be besides the capacity; 0: any number.
struct SLinkLimits {
  int m_nPerAddress = 0;  ///< up at a time from one address
  int m_nNew = 0;         ///< new ones in `m_nNewMs`, as many of them at once
  int m_nNewMs = 1000;    ///< milliseconds
};
