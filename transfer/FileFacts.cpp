// Facts of local files: size, time, permission bits.

#include "transfer/FileFacts.h"

#include <filesystem>

#include "platform/FileTimes.h"
#include "platform/PathBytes.h"

namespace fs = std::filesystem;

std::string ReadFileFacts(const std::string& path, SFileFacts& facts) {
  std::error_code error;
  const fs::file_status status = fs::status(PathOf(path), error);
  if (status.type() == fs::file_type::not_found) return "no such file";
  if (!error && !fs::is_regular_file(status)) return "not a file";
  std::uintmax_t size = 0;
  std::int64_t time = 0;
  if (!error) size = fs::file_size(PathOf(path), error);
  if (!error) time = ReadFileTime(PathOf(path), error);
  unsigned mode = 0;
  if (!error) mode = ReadFileMode(PathOf(path), error);
  if (error) return error.message();
  facts.m_llSize = static_cast<std::int64_t>(size);
  facts.m_llTime = time;
  facts.m_nMode = mode;
  return "";
}

std::string SetFileFacts(const std::string& path, const SFileFacts& facts) {
  std::error_code error;
  SetFileTime(PathOf(path), facts.m_llTime, error);
  if (!error) SetFileMode(PathOf(path), facts.m_nMode, error);
  return error ? error.message() : "";
}
