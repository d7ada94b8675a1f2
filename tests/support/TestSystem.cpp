// A system that follows a fault plan, and the files of a test.

#include "support/TestSystem.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <regex>
#include <sstream>
#include <thread>

#include "platform/ForwardingFile.h"
#include "platform/PathBytes.h"

namespace {

std::filesystem::path ToHostPath(std::string path) {
  std::replace(path.begin(), path.end(), '\\', '/');
  return PathOf(path);
}

}  // namespace

// A real file behind the plan. Its note lies in memory: not every file system
// keeps one.
class CScopedSystem::CPlannedFile final : public CForwardingFile {
 public:
  CPlannedFile(CScopedSystem& scope, CForwardingSystem& system, const std::string& path,
               std::unique_ptr<ISystemFile> file)
      : CForwardingFile(system, path, std::move(file)), m_scope(scope) {}

  ESystemError ReadAt(const SReadPart* parts, int count, std::int64_t position,
                      std::int64_t& bytes) override {
    const SReadPart first = {parts->m_pData, m_scope.LimitTransfer(parts->m_nBytes, false)};
    const bool cut = first.m_nBytes < parts->m_nBytes;
    return CForwardingFile::ReadAt(cut ? &first : parts, cut ? 1 : count, position, bytes);
  }
  ESystemError WriteAt(const char* data, std::size_t size, std::int64_t position,
                       std::int64_t& bytes) override {
    bytes = 0;
    return Call(EOperation::kWrite, [&] {
      const std::size_t granted = m_scope.LimitTransfer(size, true);
      if (granted == 0 && size > 0) return ESystemError::kNoSpace;
      return m_pTarget->WriteAt(data, granted, position, bytes);
    });
  }
  ESystemError WriteParts(const SWritePart* parts, int count, std::int64_t position,
                          std::int64_t& bytes) override {
    bytes = 0;
    return Call(EOperation::kWrite, [&] {
      std::vector<SWritePart> granted;
      for (bool whole = true; whole && granted.size() < static_cast<std::size_t>(count);) {
        const SWritePart& part = parts[granted.size()];
        granted.push_back({part.m_pData, m_scope.LimitTransfer(part.m_nBytes, true)});
        whole = granted.back().m_nBytes == part.m_nBytes;
      }
      if (granted.front().m_nBytes < std::min<std::size_t>(parts->m_nBytes, 1)) {
        return ESystemError::kNoSpace;
      }
      return m_pTarget->WriteParts(granted.data(), static_cast<int>(granted.size()), position,
                                   bytes);
    });
  }
  ESystemError Note(std::string& text) override {
    text.clear();
    return Call(EOperation::kReadNote, [&] {
      text = m_scope.ExchangeNote(m_strPath, nullptr);
      return ESystemError::kNone;
    });
  }
  ESystemError SetNote(const std::string& text) override {
    return Call(EOperation::kWriteNote, [&] {
      m_scope.ExchangeNote(m_strPath, &text);
      return ESystemError::kNone;
    });
  }

 private:
  CScopedSystem& m_scope;
};

// The real system behind the plan.
class CScopedSystem::CPlanned final : public CForwardingSystem {
 public:
  explicit CPlanned(CScopedSystem& scope) : CForwardingSystem(NativeSystem()), m_scope(scope) {}

  ESystemError QueryFreeSpace(const std::string& path, std::uint64_t& bytes) override {
    const ESystemError error = CForwardingSystem::QueryFreeSpace(path, bytes);
    const std::lock_guard lock(m_scope.m_mutex);
    const bool planned = error == ESystemError::kNone && m_scope.IsMeant(path);
    if (planned) bytes = m_scope.m_plan.m_freeSpace.value_or(bytes);
    return error;
  }
  ESystemError QueryBootName(std::string& name) override {
    name.clear();
    return Call(EOperation::kBootName, "", [&] {
      name = Machine().empty() ? "" : std::to_string(m_scope.m_nBoots);
      return ESystemError::kNone;
    });
  }
  ESystemError QueryMachineName(std::string& name) override {
    name.clear();
    return Call(EOperation::kMachineName, "", [&] {
      name = Machine();
      return ESystemError::kNone;
    });
  }
  std::int64_t SteadyMilliseconds() override {
    ++m_scope.m_nClockReads;
    return m_scope.Milliseconds();
  }
  std::int64_t WallSeconds() override {
    return m_scope.Milliseconds() / 1000 + m_scope.m_llStepped;
  }
  void Sleep(int milliseconds) override {
    m_scope.m_llSlept += std::max(0, milliseconds);
    m_target.Sleep(Shortened(milliseconds));
  }
  bool Wait(std::condition_variable& condition, std::unique_lock<std::mutex>& lock,
            int milliseconds, const std::function<bool()>& done) override {
    return m_target.Wait(condition, lock, Shortened(milliseconds), done);
  }

 private:
  ESystemError Before(EOperation operation, const std::string& path) override {
    return m_scope.Begin(operation, path);
  }
  std::unique_ptr<ISystemFile> Wrap(const std::string& path,
                                    std::unique_ptr<ISystemFile> file) override {
    return std::make_unique<CPlannedFile>(m_scope, *this, path, std::move(file));
  }

  std::string Machine() const {
    const std::lock_guard lock(m_scope.m_mutex);
    return m_scope.m_strMachine;
  }

  // Rounded up: a wait of test time must not become a busy loop.
  int Shortened(int milliseconds) const {
    return milliseconds <= 0 ? milliseconds : (milliseconds - 1) / m_scope.m_nClockFactor + 1;
  }

  CScopedSystem& m_scope;
};

CScopedSystem::CScopedSystem(const CFaultPlan& plan)
    : m_pSystem(std::make_unique<CPlanned>(*this)), m_pBefore(ReplaceSystem(m_pSystem.get())) {
  Follow(plan);
}

void CScopedSystem::Follow(const CFaultPlan& plan) {
  const std::int64_t now = Milliseconds();
  const std::lock_guard lock(m_mutex);
  m_plan = plan;
  m_mapCalls.clear();
  m_llWritten = 0;
  if (plan.m_nClockFactor == 0) return;
  m_llTimeThen = now - 1000 * m_llAdvanced;
  m_llPaceSince = NativeSystem().SteadyMilliseconds();
  m_nClockFactor = plan.m_nClockFactor;
}

std::int64_t CScopedSystem::Milliseconds() {
  const std::lock_guard lock(m_mutex);
  const std::int64_t passed = NativeSystem().SteadyMilliseconds() - m_llPaceSince;
  return m_llTimeThen + passed * m_nClockFactor + 1000 * m_llAdvanced;
}

int CScopedSystem::Calls(EOperation operation) {
  const std::lock_guard lock(m_mutex);
  return m_mapCalls[operation];
}

std::string CScopedSystem::ExchangeNote(const std::string& path, const std::string* text) {
  const std::lock_guard lock(m_mutex);
  std::string former = m_mapNotes[path];
  if (text != nullptr) m_mapNotes[path] = *text;
  return former;
}

// Called with m_mutex held.
bool CScopedSystem::IsMeant(const std::string& path) const {
  return path.empty() || BytesOf(ToHostPath(path)).rfind(m_plan.m_strBelow, 0) == 0;
}

// Counts a call and tells what it must fail with.
ESystemError CScopedSystem::Begin(EOperation operation, const std::string& path) {
  const std::lock_guard lock(m_mutex);
  if (!IsMeant(path)) return ESystemError::kNone;
  const ESystemError error = m_plan.Find(operation, ++m_mapCalls[operation]);
  if (error == ESystemError::kNone) return error;
  ++m_nStruck;
  if (m_plan.m_bNoMemory) throw std::bad_alloc();
  return error;
}

ESystemError CFaultPlan::Find(EOperation operation, int call) const {
  const auto once = m_mapFaults.find({operation, call});
  if (once != m_mapFaults.end()) return once->second;
  const auto forGood = m_mapForGood.find(operation);
  const bool strikes = forGood != m_mapForGood.end() && call >= forGood->second.first;
  return strikes ? forGood->second.second : ESystemError::kNone;
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
  const std::string base = (std::filesystem::temp_directory_path() / "kqft-").generic_string();
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
  const std::uintmax_t size = std::filesystem::file_size(PathOf(path), error);
  return error ? -1 : static_cast<std::int64_t>(size);
}

void MakeSparseFile(const std::string& path, std::int64_t bytes) {
  WriteWholeFile(path, "");
  std::filesystem::resize_file(PathOf(path), static_cast<std::uintmax_t>(bytes));
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

// KQFT_SLOWER divides it: limits of real seconds, such as those of an answer,
// would else be too short where every call takes long.
CFaultPlan& CFaultPlan::ClockFaster(int factor) {
  const char* const slower = std::getenv("KQFT_SLOWER");
  return Set(m_nClockFactor, slower == nullptr ? factor : std::max(1, factor / std::stoi(slower)));
}

namespace {

bool IsSweep(const char* kind) {
  const char* sweep = std::getenv("KQFT_SWEEP");
  return sweep != nullptr && std::string(sweep) == kind;
}

}  // namespace

bool IsWholeSweep() {
  return IsSweep("all");
}

int SweepStep(int usual) {
  constexpr int kCoarse = 10;
  if (IsWholeSweep()) return 1;
  return IsSweep("coarse") ? usual * kCoarse : usual;
}
