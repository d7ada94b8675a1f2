// The files of this machine that a put names. Names are bytes and stay so.

#include "transfer/LocalFiles.h"

#include <algorithm>
#include <filesystem>

#include "platform/PathBytes.h"
#include "transfer/ProjectPath.h"

namespace fs = std::filesystem;

namespace {

const char* const kOwnName = "a file of this name is kept for the project by kqft itself";
const char* const kNoFile = "neither a file nor a directory of its own";

// The protocol separates by "\" and the library lists requests by lines.
std::string WhyUnsendable(const std::string& path) {
  if (fs::path::preferred_separator != '\\' && path.find('\\') != std::string::npos) {
    return "the server would take the \"\\\" in the name for a separator";
  }
  if (path.find('\n') != std::string::npos) return "the name holds a line end";
  return "";
}

void AddFile(const fs::path& path, const std::vector<std::string>& components, SLocalFiles& found) {
  if (components.size() == 1 && IsOwnFile(components.front())) {
    found.m_vecLeftOut.push_back({BytesOf(path), kOwnName, false});
    return;
  }
  SLocalFile file;
  file.m_strPath = BytesOf(path);
  file.m_vecComponents = components;
  file.m_strWhyNot = WhyUnsendable(file.m_strPath);
  std::error_code error;
  const std::uintmax_t size = fs::file_size(path, error);
  if (error) file.m_strWhyNot = error.message();
  if (!error) file.m_llSize = static_cast<std::int64_t>(size);
  found.m_vecFiles.push_back(std::move(file));
}

std::vector<fs::path> SortedEntries(const fs::path& directory, std::error_code& error) {
  std::vector<fs::path> entries;
  for (fs::directory_iterator entry(directory, error), end; !error && entry != end;
       entry.increment(error)) {
    entries.push_back(entry->path());
  }
  std::sort(entries.begin(), entries.end());
  return entries;
}

void Walk(const fs::path& directory, std::vector<std::string>& components, SLocalFiles& found) {
  std::error_code error;
  for (const fs::path& path : SortedEntries(directory, error)) {
    components.push_back(BytesOf(path.filename()));
    std::error_code ignored;
    const fs::file_type own = fs::symlink_status(path, ignored).type();
    if (own == fs::file_type::directory) {
      Walk(path, components, found);
    } else if (fs::is_regular_file(fs::status(path, ignored))) {
      AddFile(path, components, found);
    } else {
      found.m_vecLeftOut.push_back({BytesOf(path), kNoFile, false});
    }
    components.pop_back();
  }
  if (error) found.m_vecLeftOut.push_back({BytesOf(directory), error.message(), true});
}

}  // namespace

void CollectFiles(const std::string& path, SLocalFiles& found) {
  std::error_code error;
  const fs::path top = fs::absolute(PathOf(path), error).lexically_normal();
  std::vector<std::string> components;
  if (fs::is_directory(top, error)) {
    Walk(top, components, found);
  } else if (fs::is_regular_file(top, error)) {
    AddFile(top, {BytesOf(top.filename())}, found);
  } else {
    found.m_vecLeftOut.push_back({path, error ? error.message() : kNoFile, true});
  }
}
