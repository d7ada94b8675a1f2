#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

#include "transfer/LocalFiles.h"
#include "transfer/ProjectClient.h"
#include "transfer/ProjectTree.h"
#include "transfer/RateMeter.h"
#include "transfer/Transfer.h"

/// Compares what the server holds of a project with its inventory, and with a
/// directory of this machine. All of it is read, and nothing is changed.
class CVerification {
 public:
  CVerification(const STransferTools& tools, const SVerifyRequest& request, SVerifyResult& result);

  /// @param directory of all projects, as the server spells it
  /// @return 1, or why the server could not be asked
  int Run(const std::string& directory);

 private:
  struct SSide;
  struct SFile {
    std::string m_strPath;
    std::string m_strServer;                    // full name there
    const SInventoryEntry* m_pEntry = nullptr;  // null: the inventory does not tell of it
    const SLocalFile* m_pLocal = nullptr;       // null: not here
    bool m_bSideFile = false;                   // beside it at the server lies one
    std::int64_t m_llHeld = -1;  // bytes as the server tells; negative: it did not, or cannot be
  };

  void CollectLocal();
  void AddFiles(const SProjectTree& tree, const std::string& projectPath);
  int AskHeld();
  int Compare(const SFile& file);
  int CompareRecording(const SFile& file, bool& done);
  int CompareSegments(const SFile& file, const std::vector<std::int64_t>& bounds);
  int CompareOrdinary(const SFile& file);
  SSide LookHere(const SFile& file) const;
  int LookThere(const SFile& file, std::int64_t size, const SFileDigest& told, SSide& side);
  void Combine(const SFile& file, const SSide& there, const SSide& here);
  bool IsChainHere(const SFile& file) const;
  bool IsPieceOfMore(const SFile& file) const;
  int Read(const std::string& name, std::int64_t most, CFileDigest& digest);
  int ReadOnce(const std::string& name, std::int64_t most, CFileDigest& digest);
  void Tell(SFileVerdict verdict);
  void Show();

  const STransferTools m_tools;
  const SVerifyRequest& m_request;
  SVerifyResult& m_result;
  SLocalFiles m_local;
  std::map<std::string, SFile> m_mapFiles;  // by path
  std::set<std::string> m_stems;            // of recordings with side files there only
  CInventory m_inventory;
  bool m_bInventory = false;
  STransferProgress m_progress;
  CRateMeter m_rate;
};
