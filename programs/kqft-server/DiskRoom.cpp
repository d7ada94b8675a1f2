// How much of a disk is free for projects.

#include "programs/kqft-server/DiskRoom.h"

#include <algorithm>
#include <filesystem>

#include "platform/PathBytes.h"
#include "platform/System.h"

SDiskRoom RoomIn(const std::string& directory) {
  SDiskRoom room;
  std::uint64_t free = 0;
  if (System().QueryFreeSpace(directory, free) != ESystemError::kNone) return room;
  std::error_code error;
  const std::filesystem::space_info space = std::filesystem::space(PathOf(directory), error);
  const std::uint64_t kept = error ? 0 : space.free - space.available;
  room.m_llFree = static_cast<std::int64_t>(free - std::min(free, kept));
  if (!error) room.m_llTotal = static_cast<std::int64_t>(space.capacity - kept);
  return room;
}
