// Facts of local files: size, time, permission bits.

#include "transfer/FileFacts.h"

#include "platform/FileLook.h"
#include "platform/FileTimes.h"
#include "platform/PathBytes.h"

std::string ReadFileFacts(const std::string& path, SFileFacts& facts) {
  std::error_code error;
  const SFileLook look = LookAtFile(path, error);
  if (error == std::errc::no_such_file_or_directory || error == std::errc::not_a_directory) {
    return "no such file";
  }
  if (error) return error.message();
  if (!look.m_bRegular) return "not a file";
  facts.m_llSize = look.m_llSize;
  facts.m_llTime = look.m_llTime;
  facts.m_nMode = look.m_nMode;
  return "";
}

std::string SetFileFacts(const std::string& path, const SFileFacts& facts) {
  std::error_code error;
  SetFileTime(PathOf(path), facts.m_llTime, error);
  if (!error) SetFileMode(PathOf(path), facts.m_nMode, error);
  return error ? error.message() : "";
}
