// Turns at files that are replaced: a lock on a file beside each, which holds
// the name of the new file while that is made.

#include "platform/FileTurn.h"

#include <algorithm>
#include <array>
#include <cstdint>

#include "platform/ExpertUtils.h"
#include "platform/Identity.h"
#include "platform/System.h"
#include "platform/TextHash.h"

namespace {

constexpr int kLooks = 500;
constexpr int kPauseMs = 10;
constexpr std::size_t kLongestName = 200;

std::mutex& ProcessTurn(std::uint64_t hash) {
  static std::array<std::mutex, 16> turns;
  return turns[hash % turns.size()];
}

std::string ReadName(ISystemFile& file) {
  std::string name(kLongestName, '\0');
  const SReadPart part = {name.data(), name.size()};
  std::int64_t bytes = 0;
  file.ReadAt(&part, 1, 0, bytes);
  name.resize(static_cast<std::size_t>(bytes));
  return name;
}

bool WriteName(ISystemFile& file, const std::string& name) {
  std::int64_t written = 0;
  return file.Resize(0) == ESystemError::kNone &&
         file.WriteAt(name.data(), name.size(), 0, written) == ESystemError::kNone &&
         written == static_cast<std::int64_t>(name.size());
}

}  // namespace

// The file goes while it is held: whoever waits for it finds that it is gone.
CFileTurn::~CFileTurn() {
  if (m_pFile != nullptr) System().RemoveFile(m_strLock);
}

void CFileTurn::Begin(const std::string& path) {
  const std::uint64_t hash = TextHash(EU::CExpertUtils::PickFileName(path));
  std::string machine;
  System().QueryMachineName(machine);
  m_strDirectory = EU::CExpertUtils::PickDirectory(path);
  m_strStem = ".kqft-" + std::to_string(hash);
  m_strLock = m_strDirectory + m_strStem + ".lock";
  m_strTemporary = m_strDirectory + m_strStem + "-" + std::to_string(TextHash(machine)) + "-" +
                   std::to_string(ProcessId()) + ".tmp";
  m_process = std::unique_lock(ProcessTurn(hash));
}

void CFileTurn::ClearLeft(const std::string& path) {
  CFileTurn turn;
  turn.Begin(path);
  SFileStatus status;
  if (System().QueryFile(turn.m_strLock, status) == ESystemError::kNone) turn.TryOnce();
}

bool CFileTurn::Take(const std::string& path) {
  Begin(path);
  for (int look = 0; look < kLooks; ++look) {
    const ETry result = TryOnce();
    if (result != ETry::kOthers) return result == ETry::kTaken;
    System().Sleep(kPauseMs);
  }
  return false;
}

CFileTurn::ETry CFileTurn::TryOnce() {
  std::unique_ptr<ISystemFile> file;
  if (System().OpenFile(m_strLock, EOpenMode::kKeep, file) != ESystemError::kNone) {
    return ETry::kFailed;
  }
  const ESystemError error = file->Lock();
  if (error == ESystemError::kBusy) return ETry::kOthers;
  if (error == ESystemError::kUnsupported) {
    System().RemoveFile(m_strLock);
    return ETry::kTaken;
  }
  bool isNamed = false;
  if (error != ESystemError::kNone || file->IsNamed(m_strLock, isNamed) != ESystemError::kNone) {
    return ETry::kFailed;
  }
  if (!isNamed) return ETry::kOthers;  // whoever had it took it away
  m_pFile = std::move(file);
  // Of a turn that a crash cut off.
  const std::string left = ReadName(*m_pFile);
  if (left.starts_with(m_strStem + "-") && left.find_first_of("/\\") == std::string::npos) {
    System().RemoveFile(m_strDirectory + left);
  }
  return WriteName(*m_pFile, m_strTemporary.substr(m_strDirectory.size())) ? ETry::kTaken
                                                                           : ETry::kFailed;
}
