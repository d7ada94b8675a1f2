#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "platform/System.h"

/// The calls that a plan can make fail.
enum class EOperation { kOpen, kRead, kWrite, kFlush, kRename, kRemove, kMakeDirectory, kList };

/// Faults that a test decides on beforehand, read as sentences.
class CFaultPlan {
 public:
  /// The `k`-th call (from 1) of an operation fails; every later one too when
  /// `forGood`. Read and write failures leave the file as it was.
  CFaultPlan& Fail(EOperation operation, int k, ESystemError error, bool forGood = false);

  /// Writes succeed until `bytes` bytes in all were written, then fail with
  /// kNoSpace; the one that crosses the limit is cut short.
  CFaultPlan& DiskFullAfter(std::int64_t bytes);

  /// A single read or write moves at most `bytes` bytes.
  CFaultPlan& ShortTransfers(int bytes);

  CFaultPlan& FreeSpace(std::uint64_t bytes);
  CFaultPlan& FreeSpaceUnknown();
  CFaultPlan& NoThreads();

  /// Sleeps and waits take 1/factor of their time, and the clock runs factor
  /// times as fast.
  CFaultPlan& ClockFaster(int factor);

 private:
  friend class CScopedSystem;
  struct SPlan;
  std::shared_ptr<SPlan> m_pPlan;

 public:
  CFaultPlan();
};

/// Puts a planned system in the place of the real one for a scope. Declare it
/// before every object of the library that the test makes.
class CScopedSystem {
 public:
  explicit CScopedSystem(const CFaultPlan& plan = CFaultPlan());
  CScopedSystem(const CScopedSystem&) = delete;
  CScopedSystem& operator=(const CScopedSystem&) = delete;
  ~CScopedSystem();

  /// Moves the clock on without waiting.
  void AdvanceClock(std::int64_t seconds);

  /// Milliseconds that Sleep was asked for so far, all threads together.
  std::int64_t SleptMilliseconds() const;

  /// Calls of an operation so far.
  int Count(EOperation operation) const;

  /// Lifts every planned fault.
  void Heal();

 private:
  class CPlanned;
  std::unique_ptr<CPlanned> m_pSystem;
  ISystem* m_pBefore;
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

/// `bytes` bytes that look random and are the same on every run.
std::string PatternBytes(std::size_t bytes, unsigned seed = 1);
