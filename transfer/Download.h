#pragma once

#include <set>
#include <string>
#include <vector>

#include "transfer/Digest.h"
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
  /// removed. Sets m_llMissing and m_bDone.
  /// @param checksum compare the bytes also where size and time agree
  /// @param change   false: nothing here is touched
  void Compare(std::vector<STransferItem>& items, bool checksum, bool change) const;

 protected:
  std::string Prepare(const STransferItem& item) override;
  void Ready(Batch& batch) override;
  int Start(const Batch& batch) override;
  std::string WhyNotStarted(const Batch& batch, int code) override;
  int Verify(const Batch& ended) override;
  bool IsResumable(const STransferItem&) const override { return true; }
  int AskKept(const STransferItem& item, std::int64_t& bytes) override;

 private:
  std::string BelowInto(const STransferItem& item) const;
  void ChangeSize(STransferItem& item, std::int64_t size) const;
  bool IsWhole(const STransferItem& item, bool checksum) const;
  bool HasDigest(const STransferItem& item, const std::string& path, CFileDigest digest) const;
  CFileDigest CountPart(const STransferItem& item) const;
  int CheckPart(const STransferItem& item);
  int Finish(STransferItem& item);
  int JudgeBytes(STransferItem& item, const std::string& part, bool& same);
  int FetchBlocks(const STransferItem& item, const std::string& part,
                  const std::vector<std::int64_t>& blocks);
  bool PutAside(STransferItem& item) const;

  const std::string m_strInto;
  const std::vector<STransferItem>& m_items;
  const bool m_bOverwrite;
  Batch m_started;                             // as the session counts records
  std::set<const STransferItem*> m_differing;  // arrived once with other bytes
  std::set<std::string> m_made;                // directories that are there, and no links
};

/// Takes over the size of an item that the server tells, if it can be.
/// @param total of all items; grows by it
void TakeSize(STransferItem& item, std::int64_t size, std::int64_t& total);

/// Where an item lies until it is whole.
std::string PartPath(const STransferItem& item);
