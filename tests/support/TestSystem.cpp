// A system that follows a fault plan, and the files of a test.

#include "support/TestSystem.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <mutex>
#include <random>
#include <utility>
#include <vector>

namespace {

constexpr std::int64_t kUnlimited = -1;
constexpr std::size_t kOperations = static_cast<std::size_t>(EOperation::kList) + 1;

std::filesystem::path ToHostPath(std::string path) {
  std::replace(path.begin(), path.end(), '\\', '/');
  return path;
}

}  // namespace

struct CFaultPlan::SPlan {
  struct SFault {
    EOperation m_operation;
    int m_nCall;
    ESystemError m_error;
    bool m_bForGood;
  };
  std::vector<SFault> m_vecFaults;
  std::int64_t m_llDiskBytes = kUnlimited;
  std::int64_t m_llTransferBytes = kUnlimited;
  std::int64_t m_llFreeSpace = kUnlimited;
  bool m_bFreeSpaceUnknown = false;
  bool m_bNoThreads = false;
  int m_nClockFactor = 1;
};

CFaultPlan::CFaultPlan() : m_pPlan(std::make_shared<SPlan>()) {}

CFaultPlan& CFaultPlan::Fail(EOperation operation, int k, ESystemError error, bool forGood) {
  m_pPlan->m_vecFaults.push_back({operation, k, error, forGood});
  return *this;
}

CFaultPlan& CFaultPlan::DiskFullAfter(std::int64_t bytes) {
  m_pPlan->m_llDiskBytes = bytes;
  return *this;
}

CFaultPlan& CFaultPlan::ShortTransfers(int bytes) {
  m_pPlan->m_llTransferBytes = bytes;
  return *this;
}

CFaultPlan& CFaultPlan::FreeSpace(std::uint64_t bytes) {
  m_pPlan->m_llFreeSpace = static_cast<std::int64_t>(bytes);
  return *this;
}

CFaultPlan& CFaultPlan::FreeSpaceUnknown() {
  m_pPlan->m_bFreeSpaceUnknown = true;
  return *this;
}

CFaultPlan& CFaultPlan::NoThreads() {
  m_pPlan->m_bNoThreads = true;
  return *this;
}

CFaultPlan& CFaultPlan::ClockFaster(int factor) {
  m_pPlan->m_nClockFactor = factor;
  return *this;
}

// The real system behind a plan. Files may outlive it: they share the state.
class CScopedSystem::CPlanned final : public ISystem {
 public:
  struct SState {
    std::mutex m_mutex;
    CFaultPlan::SPlan m_plan;                   // guarded by m_mutex
    std::array<int, kOperations> m_arrCalls{};  // guarded by m_mutex
    std::int64_t m_llWritten = 0;               // guarded by m_mutex
    std::int64_t m_llSlept = 0;                 // guarded by m_mutex
    std::int64_t m_llAdvanced = 0;              // guarded by m_mutex

    // Counts a call and tells what it must fail with.
    ESystemError Begin(EOperation operation) {
      const std::lock_guard<std::mutex> lock(m_mutex);
      const int call = ++m_arrCalls[static_cast<std::size_t>(operation)];
      for (const auto& fault : m_plan.m_vecFaults) {
        if (fault.m_operation != operation) continue;
        if (call == fault.m_nCall || (fault.m_bForGood && call > fault.m_nCall)) {
          return fault.m_error;
        }
      }
      return ESystemError::kNone;
    }

    std::size_t LimitTransfer(std::size_t size) {
      const std::lock_guard<std::mutex> lock(m_mutex);
      if (m_plan.m_llTransferBytes == kUnlimited) return size;
      return std::min(size, static_cast<std::size_t>(m_plan.m_llTransferBytes));
    }

    // Takes room on the disk for at most `size` bytes. @return bytes granted.
    std::size_t TakeDisk(std::size_t size) {
      const std::lock_guard<std::mutex> lock(m_mutex);
      if (m_plan.m_llDiskBytes != kUnlimited) {
        const std::int64_t room = std::max<std::int64_t>(0, m_plan.m_llDiskBytes - m_llWritten);
        size = std::min(size, static_cast<std::size_t>(room));
      }
      m_llWritten += static_cast<std::int64_t>(size);
      return size;
    }
  };

  explicit CPlanned(const CFaultPlan::SPlan& plan)
      : m_pState(std::make_shared<SState>()),
        m_nClockFactor(std::max(1, plan.m_nClockFactor)),
        m_start(std::chrono::steady_clock::now()),
        m_llStart(NativeSystem().Now()) {
    m_pState->m_plan = plan;
  }

  std::unique_ptr<ISystemFile> OpenFile(const std::string& path, EOpenMode mode,
                                        ESystemError& error) override;
  bool QueryFile(const std::string& path, SFileStatus& status) override {
    return NativeSystem().QueryFile(path, status);
  }
  ESystemError RemoveFile(const std::string& path) override {
    const ESystemError planned = m_pState->Begin(EOperation::kRemove);
    return planned != ESystemError::kNone ? planned : NativeSystem().RemoveFile(path);
  }
  ESystemError RenameFile(const std::string& from, const std::string& to) override {
    const ESystemError planned = m_pState->Begin(EOperation::kRename);
    return planned != ESystemError::kNone ? planned : NativeSystem().RenameFile(from, to);
  }
  ESystemError CopyPermissions(const std::string& from, const std::string& to) override {
    return NativeSystem().CopyPermissions(from, to);
  }
  ESystemError MakeDirectory(const std::string& path) override {
    const ESystemError planned = m_pState->Begin(EOperation::kMakeDirectory);
    return planned != ESystemError::kNone ? planned : NativeSystem().MakeDirectory(path);
  }
  ESystemError RemoveEmptyDirectory(const std::string& path) override {
    const ESystemError planned = m_pState->Begin(EOperation::kRemove);
    return planned != ESystemError::kNone ? planned : NativeSystem().RemoveEmptyDirectory(path);
  }
  bool FlushDirectory(const std::string& path) override {
    return m_pState->Begin(EOperation::kFlush) == ESystemError::kNone &&
           NativeSystem().FlushDirectory(path);
  }
  ESystemError ListDirectory(const std::string& path,
                             std::vector<SDirectoryEntry>& entries) override {
    const ESystemError planned = m_pState->Begin(EOperation::kList);
    return planned != ESystemError::kNone ? planned : NativeSystem().ListDirectory(path, entries);
  }
  ESystemError ClearDirectory(const std::string& path) override {
    const ESystemError planned = m_pState->Begin(EOperation::kRemove);
    return planned != ESystemError::kNone ? planned : NativeSystem().ClearDirectory(path);
  }
  bool QueryFreeSpace(const std::string& path, std::uint64_t& bytes) override;
  std::int64_t Now() override;
  SCalendarTime LocalTime(std::int64_t seconds) override {
    return NativeSystem().LocalTime(seconds);
  }
  void Sleep(int milliseconds) override;
  bool Wait(std::condition_variable& condition, std::unique_lock<std::mutex>& lock,
            int milliseconds, const std::function<bool()>& done) override {
    return NativeSystem().Wait(condition, lock, Shortened(milliseconds), done);
  }
  bool StartThread(std::function<void()> body) override;
  void WriteStandard(bool errorStream, const std::string& text) override {
    NativeSystem().WriteStandard(errorStream, text);
  }

  SState& State() const { return *m_pState; }

 private:
  // Rounded up: a wait of test time must not become a busy loop.
  int Shortened(int milliseconds) const {
    return milliseconds <= 0 ? milliseconds : (milliseconds - 1) / m_nClockFactor + 1;
  }

  // Constant after construction.
  const std::shared_ptr<SState> m_pState;
  const int m_nClockFactor;
  const std::chrono::steady_clock::time_point m_start;
  const std::int64_t m_llStart;
};

namespace {

// A real file behind the plan's state.
template <typename TState>
class CPlannedFile final : public ISystemFile {
 public:
  CPlannedFile(std::unique_ptr<ISystemFile> file, std::shared_ptr<TState> state)
      : m_pFile(std::move(file)), m_pState(std::move(state)) {}

  std::int64_t ReadAt(char* data, std::size_t size, std::int64_t position) override {
    if (m_pState->Begin(EOperation::kRead) != ESystemError::kNone) return -1;
    return m_pFile->ReadAt(data, m_pState->LimitTransfer(size), position);
  }

  std::int64_t WriteAt(const char* data, std::size_t size, std::int64_t position,
                       ESystemError& error) override {
    error = m_pState->Begin(EOperation::kWrite);
    if (error != ESystemError::kNone) return -1;
    const std::size_t granted = m_pState->TakeDisk(m_pState->LimitTransfer(size));
    if (granted == 0 && size > 0) {
      error = ESystemError::kNoSpace;
      return -1;
    }
    return m_pFile->WriteAt(data, granted, position, error);
  }

  bool Flush() override {
    return m_pState->Begin(EOperation::kFlush) == ESystemError::kNone && m_pFile->Flush();
  }

 private:
  // Constant after construction.
  const std::unique_ptr<ISystemFile> m_pFile;
  const std::shared_ptr<TState> m_pState;
};

}  // namespace

std::unique_ptr<ISystemFile> CScopedSystem::CPlanned::OpenFile(const std::string& path,
                                                               EOpenMode mode,
                                                               ESystemError& error) {
  error = m_pState->Begin(EOperation::kOpen);
  if (error != ESystemError::kNone) return nullptr;
  std::unique_ptr<ISystemFile> file = NativeSystem().OpenFile(path, mode, error);
  if (file == nullptr) return nullptr;
  return std::make_unique<CPlannedFile<SState>>(std::move(file), m_pState);
}

bool CScopedSystem::CPlanned::QueryFreeSpace(const std::string& path, std::uint64_t& bytes) {
  {
    const std::lock_guard<std::mutex> lock(m_pState->m_mutex);
    if (m_pState->m_plan.m_bFreeSpaceUnknown) return false;
    if (m_pState->m_plan.m_llFreeSpace != kUnlimited) {
      bytes = static_cast<std::uint64_t>(m_pState->m_plan.m_llFreeSpace);
      return true;
    }
  }
  return NativeSystem().QueryFreeSpace(path, bytes);
}

std::int64_t CScopedSystem::CPlanned::Now() {
  const auto passed = (std::chrono::steady_clock::now() - m_start) * m_nClockFactor;
  const std::lock_guard<std::mutex> lock(m_pState->m_mutex);
  return m_llStart + m_pState->m_llAdvanced +
         std::chrono::duration_cast<std::chrono::seconds>(passed).count();
}

void CScopedSystem::CPlanned::Sleep(int milliseconds) {
  {
    const std::lock_guard<std::mutex> lock(m_pState->m_mutex);
    m_pState->m_llSlept += std::max(0, milliseconds);
  }
  NativeSystem().Sleep(Shortened(milliseconds));
}

bool CScopedSystem::CPlanned::StartThread(std::function<void()> body) {
  {
    const std::lock_guard<std::mutex> lock(m_pState->m_mutex);
    if (m_pState->m_plan.m_bNoThreads) return false;
  }
  return NativeSystem().StartThread(std::move(body));
}

CScopedSystem::CScopedSystem(const CFaultPlan& plan)
    : m_pSystem(std::make_unique<CPlanned>(*plan.m_pPlan)),
      m_pBefore(ReplaceSystem(m_pSystem.get())) {}

CScopedSystem::~CScopedSystem() {
  ReplaceSystem(m_pBefore);
}

void CScopedSystem::AdvanceClock(std::int64_t seconds) {
  const std::lock_guard<std::mutex> lock(m_pSystem->State().m_mutex);
  m_pSystem->State().m_llAdvanced += seconds;
}

std::int64_t CScopedSystem::SleptMilliseconds() const {
  const std::lock_guard<std::mutex> lock(m_pSystem->State().m_mutex);
  return m_pSystem->State().m_llSlept;
}

int CScopedSystem::Count(EOperation operation) const {
  const std::lock_guard<std::mutex> lock(m_pSystem->State().m_mutex);
  return m_pSystem->State().m_arrCalls[static_cast<std::size_t>(operation)];
}

void CScopedSystem::Heal() {
  const std::lock_guard<std::mutex> lock(m_pSystem->State().m_mutex);
  m_pSystem->State().m_plan = CFaultPlan::SPlan();
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
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

void WriteWholeFile(const std::string& path, const std::string& content) {
  const std::filesystem::path host = ToHostPath(path);
  if (host.has_parent_path()) std::filesystem::create_directories(host.parent_path());
  std::ofstream(host, std::ios::binary) << content;
}

std::string PatternBytes(std::size_t bytes, unsigned seed) {
  std::mt19937_64 random(seed);
  std::string pattern(bytes, '\0');
  std::generate(pattern.begin(), pattern.end(), [&random] { return static_cast<char>(random()); });
  return pattern;
}
