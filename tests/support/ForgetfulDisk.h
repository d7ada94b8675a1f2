#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "support/TestSystem.h"

/// A disk below one directory that keeps what was flushed and nothing else: the
/// bytes and the note of a file by its flush, a name by the flush of the
/// directory that it stands in. Stands before the system in force for a scope.
/// Flushes take no time.
class CForgetfulDisk : public CForwardingSystem {
 public:
  /// @param root an empty directory, which ends with "/"
  explicit CForgetfulDisk(const std::string& root);
  ~CForgetfulDisk() override;

  /// The k-th change from now on, and all that follow it, fail. 0: none.
  void FailFrom(int k) { Plan(k, 0); }
  /// Of the flushes of directories from now on the k-th fails.
  void FailDirectory(int k) { Plan(0, k); }
  /// True once one has failed.
  bool HasFailed() const;

  /// What the power leaves behind that fails now. Nothing may use the disk.
  /// @param keepsNames names, sizes and notes are there before they are flushed,
  ///                   as by luck: of bytes that were not written out, zeros
  void LosePower(bool keepsNames);

  /// Removes everything.
  void Clear() { Become({}); }

  ESystemError OpenFile(const std::string& path, EOpenMode mode,
                        std::unique_ptr<ISystemFile>& file) override;
  ESystemError RemoveFile(const std::string& path) override;
  ESystemError RenameFile(const std::string& from, const std::string& to) override;
  ESystemError MakeDirectory(const std::string& path) override;
  ESystemError FlushDirectory(const std::string& path) override;

 protected:
  ESystemError Before(EOperation operation, const std::string& path) override;
  std::unique_ptr<ISystemFile> Wrap(const std::string& path,
                                    std::unique_ptr<ISystemFile> file) override;

 private:
  class CFile;
  struct SNode;
  using Nodes = std::map<std::string, std::shared_ptr<SNode>>;
  void Plan(int from, int directory);
  std::unique_ptr<ISystemFile> Open(const std::string& path) const;
  void Become(const Nodes& kept);
  void Keep(const Nodes& names, const std::string& directory, Nodes& kept) const;

  const std::string m_strRoot;  // without a separator at its end, as all names here
  ISystem* m_pBefore;
  mutable std::mutex m_mutex;
  Nodes m_now;             // guarded by m_mutex; what everybody sees, by path
  int m_nChanges = 0;      // guarded by m_mutex
  int m_nFailFrom = 0;     // guarded by m_mutex
  int m_nDirectory = 0;    // guarded by m_mutex; flushes until one fails
  bool m_bFailed = false;  // guarded by m_mutex
};
