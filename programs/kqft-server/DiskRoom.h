#pragma once

#include <cstdint>
#include <string>

/// The file system that holds a directory, in bytes; -1 where it does not tell.
struct SDiskRoom {
  std::int64_t m_llFree = -1;   ///< without what it keeps for its administrator
  std::int64_t m_llTotal = -1;  ///< that could be free
};

SDiskRoom RoomIn(const std::string& directory);
