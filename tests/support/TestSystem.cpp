// A system that follows a fault plan, and the files of a test.

#include "support/TestSystem.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <random>
#include <regex>
#include <sstream>
#include <thread>

namespace {

std::filesystem::path ToHostPath(std::string path) {
  std::replace(path.begin(), path.end(), '\\', '/');
  return path;
}

}  // namespace

// A real file behind the plan.
class CScopedSystem::CPlannedFile final : public ISystemFile {
 public:
  CPlannedFile(CScopedSystem& scope, std::string path, std::unique_ptr<ISystemFile> file)
      : m_scope(scope), m_strPath(std::move(path)), m_pFile(std::move(file)) {}

  std::int64_t ReadAt(const SReadPart* parts, int count, std::int64_t position) override {
    if (m_scope.Begin(EOperation::kRead, m_strPath) != ESystemError::kNone) return -1;
    const SReadPart first = {parts->m_pData, m_scope.LimitTransfer(parts->m_nBytes, false)};
    if (first.m_nBytes < parts->m_nBytes) return m_pFile->ReadAt(&first, 1, position);
    return m_pFile->ReadAt(parts, count, position);
  }
  std::int64_t WriteAt(const char* data, std::size_t size, std::int64_t position,
                       ESystemError& error) override {
    error = m_scope.Begin(EOperation::kWrite, m_strPath);
    if (error != ESystemError::kNone) return -1;
    const std::size_t granted = m_scope.LimitTransfer(size, true);
    if (granted == 0 && size > 0) error = ESystemError::kNoSpace;
    if (error != ESystemError::kNone) return -1;
    return m_pFile->WriteAt(data, granted, position, error);
  }
  bool Flush() override {
    return m_scope.Begin(EOperation::kFlush, m_strPath) == ESystemError::kNone && m_pFile->Flush();
  }
  bool StartFlush() override {
    return m_scope.Begin(EOperation::kFlush, m_strPath) == ESystemError::kNone &&
           m_pFile->StartFlush();
  }
  bool Resize(std::int64_t bytes) override { return m_pFile->Resize(bytes); }
  std::string Note() override { return m_scope.NoteOf(m_strPath); }
  bool SetNote(const std::string& text) override {
    m_scope.NoteOf(m_strPath) = text;
    return true;
  }

 private:
  CScopedSystem& m_scope;
  const std::string m_strPath;
  const std::unique_ptr<ISystemFile> m_pFile;
};

// The real system behind the plan.
class CScopedSystem::CPlanned final : public ISystem {
 public:
  explicit CPlanned(CScopedSystem& scope) : m_scope(scope) {}

  std::unique_ptr<ISystemFile> OpenFile(const std::string& path, EOpenMode mode,
                                        ESystemError& error) override {
    error = m_scope.Begin(EOperation::kOpen, path);
    if (error != ESystemError::kNone) return nullptr;
    auto file = m_real.OpenFile(path, mode, error);
    if (file == nullptr) return nullptr;
    return std::make_unique<CPlannedFile>(m_scope, path, std::move(file));
  }
  bool QueryFile(const std::string& path, SFileStatus& status) override {
    const ESystemError planned = m_scope.Begin(EOperation::kQuery, path);
    if (planned != ESystemError::kNone) status = SFileStatus();
    return planned == ESystemError::kNone && m_real.QueryFile(path, status);
  }
  ESystemError RemoveFile(const std::string& path) override { return m_real.RemoveFile(path); }
  ESystemError RenameFile(const std::string& from, const std::string& to) override {
    const ESystemError planned = m_scope.Begin(EOperation::kRename, to);
    return planned != ESystemError::kNone ? planned : m_real.RenameFile(from, to);
  }
  ESystemError CopyPermissions(const std::string& from, const std::string& to) override {
    return m_real.CopyPermissions(from, to);
  }
  ESystemError MakeDirectory(const std::string& path) override {
    const ESystemError planned = m_scope.Begin(EOperation::kMakeDirectory, path);
    return planned != ESystemError::kNone ? planned : m_real.MakeDirectory(path);
  }
  ESystemError RemoveEmptyDirectory(const std::string& path) override {
    return m_real.RemoveEmptyDirectory(path);
  }
  bool FlushDirectory(const std::string& path) override {
    return m_scope.Begin(EOperation::kFlush, path) == ESystemError::kNone &&
           m_real.FlushDirectory(path);
  }
  ESystemError ListDirectory(const std::string& path,
                             std::vector<SDirectoryEntry>& entries) override {
    return m_real.ListDirectory(path, entries);
  }
  ESystemError ClearDirectory(const std::string& path) override {
    return m_real.ClearDirectory(path);
  }
  bool QueryFreeSpace(const std::string& path, std::uint64_t& bytes) override {
    const std::lock_guard lock(m_scope.m_mutex);
    if (!m_scope.m_plan.m_freeSpace || !m_scope.IsMeant(path)) {
      return m_real.QueryFreeSpace(path, bytes);
    }
    bytes = static_cast<std::uint64_t>(*m_scope.m_plan.m_freeSpace);
    return *m_scope.m_plan.m_freeSpace >= 0;
  }
  std::string BootName() override { return std::to_string(m_scope.m_nBoots); }
  std::int64_t Now() override {
    const auto passed =
        (std::chrono::steady_clock::now() - m_scope.m_start) * m_scope.m_nClockFactor.load();
    return m_llStart + m_scope.m_llAdvanced +
           std::chrono::duration_cast<std::chrono::seconds>(passed).count();
  }
  std::int64_t WallClock() override { return Now() + m_scope.m_llStepped; }
  SCalendarTime LocalTime(std::int64_t seconds) override { return m_real.LocalTime(seconds); }
  void Sleep(int milliseconds) override {
    m_scope.m_llSlept += std::max(0, milliseconds);
    m_real.Sleep(Shortened(milliseconds));
  }
  bool Wait(std::condition_variable& condition, std::unique_lock<std::mutex>& lock,
            int milliseconds, const std::function<bool()>& done) override {
    return m_real.Wait(condition, lock, Shortened(milliseconds), done);
  }
  bool StartThread(std::function<void()> body) override {
    const std::lock_guard lock(m_scope.m_mutex);
    return !m_scope.m_plan.m_bNoThreads && m_real.StartThread(std::move(body));
  }
  void WriteStandard(bool errorStream, const std::string& text) override {
    m_real.WriteStandard(errorStream, text);
  }

 private:
  // Rounded up: a wait of test time must not become a busy loop.
  int Shortened(int milliseconds) const {
    return milliseconds <= 0 ? milliseconds : (milliseconds - 1) / m_scope.m_nClockFactor + 1;
  }

  CScopedSystem& m_scope;
  ISystem& m_real = NativeSystem();
  const std::int64_t m_llStart = m_real.Now();
};

CScopedSystem::CScopedSystem(const CFaultPlan& plan)
    : m_pSystem(std::make_unique<CPlanned>(*this)), m_pBefore(ReplaceSystem(m_pSystem.get())) {
  Follow(plan);
}

void CScopedSystem::Follow(const CFaultPlan& plan) {
  const std::lock_guard lock(m_mutex);
  m_plan = plan;
  m_mapCalls.clear();
  m_llWritten = 0;
  if (plan.m_nClockFactor != 0) m_nClockFactor = plan.m_nClockFactor;
}

std::string& CScopedSystem::NoteOf(const std::string& path) {
  const std::lock_guard lock(m_mutex);
  return m_mapNotes[path];
}

// Called with m_mutex held.
bool CScopedSystem::IsMeant(const std::string& path) const {
  return ToHostPath(path).string().rfind(m_plan.m_strBelow, 0) == 0;
}

// Counts a call and tells what it must fail with.
ESystemError CScopedSystem::Begin(EOperation operation, const std::string& path) {
  const std::lock_guard lock(m_mutex);
  if (!IsMeant(path)) return ESystemError::kNone;
  int call = ++m_mapCalls[operation];
  if (m_plan.m_bForGood && !m_plan.m_mapFaults.empty()) {
    call = std::min(call, m_plan.m_mapFaults.begin()->first.second);
  }
  const auto fault = m_plan.m_mapFaults.find({operation, call});
  if (fault == m_plan.m_mapFaults.end()) return ESystemError::kNone;
  ++m_nStruck;
  return fault->second;
}

// Bytes of `size` that may be moved; written ones take room on the disk.
std::size_t CScopedSystem::LimitTransfer(std::size_t size, bool write) {
  const std::lock_guard lock(m_mutex);
  std::int64_t granted = std::min(static_cast<std::int64_t>(size), m_plan.m_llTransferBytes);
  if (write) {
    granted = std::clamp<std::int64_t>(m_plan.m_llDiskBytes - m_llWritten, 0, granted);
    m_llWritten += granted;
  }
  return static_cast<std::size_t>(granted);
}

CTempDirectory::CTempDirectory() {
  std::random_device random;
  const std::string base = std::filesystem::temp_directory_path().string() + "/kqft-";
  do {
    m_strPath = base + std::to_string(random()) + std::to_string(random()) + "/";
  } while (NativeSystem().MakeDirectory(m_strPath) == ESystemError::kExists);
}

CTempDirectory::~CTempDirectory() {
  NativeSystem().ClearDirectory(m_strPath);
  NativeSystem().RemoveEmptyDirectory(m_strPath);
}

std::string ReadWholeFile(const std::string& path) {
  std::ifstream file(ToHostPath(path), std::ios::binary);
  std::ostringstream text;
  text << file.rdbuf();
  return std::move(text).str();
}

void WriteWholeFile(const std::string& path, const std::string& content) {
  const std::filesystem::path host = ToHostPath(path);
  if (host.has_parent_path()) std::filesystem::create_directories(host.parent_path());
  std::ofstream(host, std::ios::binary) << content;
}

std::int64_t FileSize(const std::string& path) {
  std::error_code error;
  const std::uintmax_t size = std::filesystem::file_size(path, error);
  return error ? -1 : static_cast<std::int64_t>(size);
}

void MakeSparseFile(const std::string& path, std::int64_t bytes) {
  WriteWholeFile(path, "");
  std::filesystem::resize_file(path, static_cast<std::uintmax_t>(bytes));
}

std::string WithoutTimes(const std::string& log) {
  static const std::regex time("\\d{4}-\\d\\d-\\d\\d_\\d\\d-\\d\\d-\\d\\d: ");
  return std::regex_replace(log, time, "");
}

std::string PatternBytes(std::size_t bytes, unsigned seed) {
  std::mt19937_64 random(seed);
  std::string pattern(bytes, '\0');
  std::generate(pattern.begin(), pattern.end(), [&random] { return static_cast<char>(random()); });
  return pattern;
}

bool WaitUntil(const std::function<bool()>& condition) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  while (!condition()) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}
