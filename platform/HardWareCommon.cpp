// File sizes and the clearing of directories.

#include "platform/HardWareCommon.h"

#include "platform/System.h"

std::uint64_t CHardWareCommon::GetFileSize(const std::string& path) {
  SFileStatus status;
  System().QueryFile(path, status);
  return static_cast<std::uint64_t>(status.m_llSize);
}

void CHardWareCommon::KQClearDir(const std::string& dir) {
  System().ClearDirectory(dir);
}
