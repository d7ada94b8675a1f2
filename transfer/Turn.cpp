// Turn: one link at a time to a server that tells its clients apart by their
// address.

#include "transfer/Turn.h"

#include <algorithm>
#include <filesystem>
#include <utility>

#include "platform/Identity.h"
#include "platform/PathBytes.h"
#include "platform/UserDirectories.h"
#include "transfer/Digest.h"
#include "transfer/ProjectClient.h"

namespace {

constexpr std::size_t kNameDigits = 16;
constexpr std::size_t kLongestHolder = 1000;

std::string ReadHolder(ISystemFile& file) {
  std::string text(kLongestHolder, '\0');
  const SReadPart part{text.data(), text.size()};
  std::int64_t bytes = 0;
  file.ReadAt(&part, 1, 0, bytes);
  text.resize(static_cast<std::size_t>(bytes));
  text.resize(std::min(text.find('\n'), text.size()));
  return text.empty() ? "another program" : text;
}

}  // namespace

CTurn::CTurn(const SServerPlace& place)
    : m_strMine(place.m_strPurpose + " (pid " + std::to_string(ProcessId()) + ")") {
  const std::string state = UserStateDirectory();
  std::string machine;
  System().QueryMachineName(machine);
  if (place.m_eTurn == ETurn::kNone || state.empty() || machine.empty()) return;
  // Machines may share a home.
  m_strName = DigestText(DigestOf(machine + "\n" + UserAtHost() + "\n" + place.Text() + "\n" +
                                  place.m_strBindAddress))
                  .substr(0, kNameDigits);
  m_strPath = BytesOf(PathOf(state) / "kqft" / ("turn-" + m_strName));
}

bool CTurn::Take() {
  if (m_pFile != nullptr || m_strPath.empty()) return true;
  std::error_code ignored;
  std::filesystem::create_directories(PathOf(m_strPath).parent_path(), ignored);
  std::unique_ptr<ISystemFile> file;
  if (System().OpenFile(m_strPath, EOpenMode::kAppend, file) != ESystemError::kNone) return true;
  const ESystemError error = file->Lock();
  if (error == ESystemError::kBusy) {
    m_strHolder = ReadHolder(*file);
    return false;
  }
  if (error != ESystemError::kNone) return true;
  const std::string text = m_strMine + "\n";
  std::int64_t written = 0;
  if (file->Resize(0) == ESystemError::kNone) file->WriteAt(text.data(), text.size(), 0, written);
  m_pFile = std::move(file);
  return true;
}
