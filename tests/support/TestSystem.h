#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "platform/System.h"

constexpr std::int64_t kMiB = 1 << 20;

inline bool Holds(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

/// Every operation that a plan can make fail, and what it is called.
struct SNamedOperation {
  EOperation m_operation;
  const char* m_pName;
};
constexpr SNamedOperation kOperations[] = {
#define KQFT_NAMED_OPERATION(name, text) {EOperation::name, text},
    KQFT_SYSTEM_OPERATIONS(KQFT_NAMED_OPERATION)
#undef KQFT_NAMED_OPERATION
};

/// Faults that a test decides on beforehand, read as sentences. Each stands on
/// its own.
class CFaultPlan {
 public:
  /// The `k`-th call (from 1) of an operation fails and does nothing.
  CFaultPlan& Fail(EOperation operation, int k, ESystemError error) {
    return Set(m_mapFaults[{operation, k}], error);
  }

  /// It fails, and so do all of the same operation that follow it.
  CFaultPlan& FailFrom(EOperation operation, int k, ESystemError error) {
    return Set(m_mapForGood[operation], std::pair(k, error));
  }

  /// Failures strike as std::bad_alloc.
  CFaultPlan& OutOfMemory() { return Set(m_bNoMemory, true); }

  /// Failures count and strike only calls whose path begins so, or that name
  /// none.
  CFaultPlan& Below(const std::string& path) { return Set(m_strBelow, path); }

  /// Writes succeed until `bytes` bytes in all were written, then fail with
  /// kNoSpace; the one that crosses the limit is cut short.
  CFaultPlan& DiskFullAfter(std::int64_t bytes) { return Set(m_llDiskBytes, bytes); }

  /// A single read or write moves at most `bytes` bytes.
  CFaultPlan& ShortTransfers(std::int64_t bytes) { return Set(m_llTransferBytes, bytes); }

  /// @param bytes -1: the system cannot tell
  CFaultPlan& FreeSpace(std::int64_t bytes) {
    if (bytes < 0) return FailFrom(EOperation::kFreeSpace, 1, ESystemError::kOther);
    return Set(m_freeSpace, std::optional(static_cast<std::uint64_t>(bytes)));
  }
  CFaultPlan& NoThreads() { return FailFrom(EOperation::kStartThread, 1, ESystemError::kTooMany); }

  /// Sleeps and waits take 1/factor of their time, and the clock runs factor
  /// times as fast.
  CFaultPlan& ClockFaster(int factor);

 private:
  friend class CScopedSystem;

  template <typename T>
  CFaultPlan& Set(T& word, const T& value) {
    word = value;
    return *this;
  }

  ESystemError Find(EOperation operation, int call) const;

  std::map<std::pair<EOperation, int>, ESystemError> m_mapFaults;
  std::map<EOperation, std::pair<int, ESystemError>> m_mapForGood;
  bool m_bNoMemory = false;
  std::string m_strBelow;
  std::int64_t m_llDiskBytes = INT64_MAX;
  std::int64_t m_llTransferBytes = INT64_MAX;
  std::optional<std::uint64_t> m_freeSpace;
  int m_nClockFactor = 0;  // 0: as before
};

/// Puts a planned system in the place of the real one for a scope. Declare it
/// before every object of the library that the test makes.
class CScopedSystem {
 public:
  explicit CScopedSystem(const CFaultPlan& plan = CFaultPlan());
  ~CScopedSystem() { ReplaceSystem(m_pBefore); }

  /// Another plan from now on, which counts from here; the clock keeps its
  /// pace unless that plans it.
  void Follow(const CFaultPlan& plan);

  /// Lifts every planned fault.
  void Heal() { Follow(CFaultPlan()); }

  /// Failures that the plans have caused so far.
  int Struck() const { return m_nStruck; }

  /// Calls of an operation that the plan in force has counted.
  int Calls(EOperation operation);

  /// Moves the clock on without waiting.
  void AdvanceClock(std::int64_t seconds) { m_llAdvanced += seconds; }

  /// Somebody sets the wall clock, this much forward or back.
  void StepWallClock(std::int64_t seconds) { m_llStepped += seconds; }

  /// The operating system starts again.
  void Reboot() { ++m_nBoots; }

  /// The files are now used by another machine; "": one that cannot tell who
  /// it is, nor which run of its system this is.
  void Move(const std::string& machine) {
    Reboot();
    const std::lock_guard lock(m_mutex);
    m_strMachine = machine;
  }

  /// Milliseconds that Sleep was asked for so far, all threads together.
  std::int64_t SleptMilliseconds() const { return m_llSlept; }

  /// How often the clock was read so far.
  int ClockReads() const { return m_nClockReads; }

 private:
  class CPlanned;
  class CPlannedFile;
  ESystemError Begin(EOperation operation, const std::string& path);
  bool IsMeant(const std::string& path) const;
  /// @param text null leaves the note as it is
  std::string ExchangeNote(const std::string& path, const std::string* text);
  std::size_t LimitTransfer(std::size_t size, bool write);

  std::int64_t Milliseconds();

  std::atomic<int> m_nClockFactor{1};
  std::mutex m_mutex;
  std::int64_t m_llPaceSince = NativeSystem().SteadyMilliseconds();  // guarded by m_mutex
  std::int64_t m_llTimeThen = m_llPaceSince;                         // guarded by m_mutex
  CFaultPlan m_plan;                                                 // guarded by m_mutex
  std::map<EOperation, int> m_mapCalls;                              // guarded by m_mutex
  std::int64_t m_llWritten = 0;                                      // guarded by m_mutex
  std::atomic<int> m_nStruck{0};
  std::map<std::string, std::string> m_mapNotes;  // guarded by m_mutex
  std::string m_strMachine = "here";              // guarded by m_mutex
  std::atomic<int> m_nBoots{0};
  std::atomic<std::int64_t> m_llSlept{0};
  std::atomic<int> m_nClockReads{0};
  std::atomic<std::int64_t> m_llAdvanced{0};
  std::atomic<std::int64_t> m_llStepped{0};
  const std::unique_ptr<ISystem> m_pSystem;
  ISystem* const m_pBefore;
};

/// A directory of its own for one test, deleted with everything in it at the
/// end. Paths end with "/".
class CTempDirectory {
 public:
  CTempDirectory();
  CTempDirectory(const CTempDirectory&) = delete;
  CTempDirectory& operator=(const CTempDirectory&) = delete;
  ~CTempDirectory();

  const std::string& Path() const { return m_strPath; }
  std::string operator/(const std::string& name) const { return m_strPath + name; }

 private:
  std::string m_strPath;
};

/// Whole content of a file ("" when it cannot be read), and the reverse, with
/// the directories that are missing.
std::string ReadWholeFile(const std::string& path);
void WriteWholeFile(const std::string& path, const std::string& content);

/// Bytes of a file; -1 when there is none. A file of zeros that takes no room.
std::int64_t FileSize(const std::string& path);
void MakeSparseFile(const std::string& path, std::int64_t bytes);

/// A log without the times of its entries.
std::string WithoutTimes(const std::string& log);

/// `bytes` bytes that look random and are the same on every run.
std::string PatternBytes(std::size_t bytes, unsigned seed = 1);

/// Waits, at most 60 s, until the condition holds. @return whether it does
bool WaitUntil(const std::function<bool()>& condition);

/// How far apart the places of a sweep over all faults are; all of them with
/// KQFT_SWEEP=all, which is what "tests/soak.sh sweep" does, a tenth of the usual
/// ones with KQFT_SWEEP=coarse.
bool IsWholeSweep();
int SweepStep(int usual);
