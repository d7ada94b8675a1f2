#pragma once

#include <set>
#include <string>
#include <vector>

#include "platform/FileLook.h"
#include "transfer/Digest.h"
#include "transfer/Session.h"
#include "transfer/TargetDirectories.h"
#include "transfer/Transfer.h"

/// Fetches files into one directory. A file on its way lies beside its final
/// place under a name of its own, and takes its final name when it is whole.
class CDownload : public CTransfer {
 public:
  /// @param into  absolute; every item's m_strLocal lies below it
  /// @param items all that are to be fetched
  /// @param overwrite false: a file that a fetched one replaces is kept
  CDownload(const STransferTools& tools, std::string into, const std::vector<STransferItem>& items,
            bool overwrite);

  /// Looks at what is here already: files that are whole are done, and get the
  /// time and mode that an inventory tells; what is left of other versions is
  /// removed. Sets m_llMissing and m_bDone; what a directory stands in the place
  /// of is final.
  /// @param checksum compare the bytes also where size and time agree
  /// @param change   false: nothing here is touched
  void Compare(std::vector<STransferItem>& items, bool checksum, bool change);

 protected:
  std::string Prepare(const STransferItem& item) override;
  void Ready(Batch& batch) override;
  int Start(const Batch& batch) override;
  std::string WhyNotStarted(const Batch& batch, int code) override;
  int Verify(const Batch& ended) override;
  bool IsResumable(const STransferItem&) const override { return true; }
  int AskKept(const STransferItem& item, std::int64_t& bytes) override;

 private:
  /// What lies in an item's place while it is not whole.
  struct SPart {
    STargetPlace m_place;
    CTargetDirectories::Directory m_pDirectory;  // null: it cannot be reached
    SFileLook m_look;
    bool m_bWhole = false;  // as long as it is to be
  };

  void ChangeSize(STransferItem& item, std::int64_t size);
  bool IsWhole(STransferItem& item, bool checksum, bool change) const;
  bool HasDigest(const STransferItem& item, const std::string& path, CFileDigest digest) const;
  std::int64_t PartSize(const STransferItem& item) const;
  SPart LookAtPart(const STransferItem& item);
  void RemovePart(const STransferItem& item);
  CFileDigest CountPart(const STransferItem& item);
  int CheckPart(const STransferItem& item);
  CSession::STargetFile OpenPart(const STransferItem& item);
  int Finish(STransferItem& item, const SPart& part);
  int JudgeBytes(STransferItem& item, const SPart& part, bool& same);
  int FetchBlocks(const STransferItem& item, const SPart& part,
                  const std::vector<std::int64_t>& blocks);
  void GiveName(STransferItem& item, const SPart& part) const;
  static bool PutAside(STransferItem& item, const SPart& part);

  const std::string m_strInto;
  const std::vector<STransferItem>& m_items;
  const bool m_bOverwrite;
  Batch m_started;                             // as the session counts records
  std::set<const STransferItem*> m_differing;  // arrived once with other bytes
  std::set<const STransferItem*> m_begun;      // of these a part may be here
  CTargetDirectories m_directories;            // the using thread's
  CTargetDirectories m_targets;                // the worker's while one runs
};

/// Takes over the size of an item that the server tells, if it can be.
/// @param total of all items; grows by it
void TakeSize(STransferItem& item, std::int64_t size, std::int64_t& total);
