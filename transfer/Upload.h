#pragma once

#include <deque>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "platform/KQFile.h"
#include "transfer/PutWay.h"
#include "transfer/Recording.h"
#include "transfer/Transfer.h"

/// Sends files. A recording goes on with what the server lacks of it, any
/// other file goes whole; what side files tell goes behind all recordings.
class CUpload : public CTransfer {
 public:
  /// @param items all that Run will be given
  /// @param ways  how each that is not done gets there; those that are to be
  ///              emptied have been
  /// @param between called between two requests; told whether what the ways
  ///                say has to be written down now
  /// @param digests of every file that is sent; it then counts as done only
  ///                when it did not change meanwhile
  /// @param whyLater as in SPutRequest; what it leaves is not sent
  CUpload(const STransferTools& tools, const std::vector<STransferItem>& items, PutWays& ways,
          bool digests, std::function<void(bool now)> between,
          std::function<std::string(const std::string& path)> whyLater);

  /// The file that was sent last; "" when none was.
  const std::string& LastSent() const { return m_strLastSent; }

 protected:
  bool GoesLast(const STransferItem& item) override;
  bool Waits(const STransferItem& item) override;
  std::string Prepare(const STransferItem& item) override;
  void Between() override { m_between(false); }
  void Ready(Batch& batch) override;
  int Start(const Batch& batch) override;
  void LookAhead(const Batch& batch) override;
  bool IsResumable(const STransferItem& item) const override;
  int Verify(const Batch& ended) override;
  int AskKept(const STransferItem& item, std::int64_t& bytes) override;

 private:
  /// What a file here is once it has been sent.
  struct SNow {
    SFileFacts m_facts;
    std::string m_strWhyNot;  // it cannot be told
  };

  bool HoldOpen(const STransferItem& item);
  void OpenFiles(Batch& batch);
  static void LeaveForLater(STransferItem& item, const std::string& why);
  void TakeFacts(const STransferItem& item);
  void MakeStale(const STransferItem& item);
  int EmptyStale(const Batch& batch);
  void SendBlocks(Batch& batch);
  void AskForRanges(Batch& batch);
  bool CanGoOn(STransferItem& item, bool isNext, SRecording& recording);
  int VerifyItems(const Batch& ended);
  int VerifySizes(const Batch& items, bool areSame);
  void TakeEntry(STransferItem& item, std::size_t record);
  const SNow& Now(const STransferItem& item);
  int VerifyAlone(STransferItem& item);
  int ReportFilled(const STransferItem& item, const SRecording& recording);

  const std::vector<STransferItem>& m_items;
  PutWays& m_ways;
  const std::function<void(bool)> m_between;
  const std::function<std::string(const std::string&)> m_whyLater;  // may be empty
  std::vector<std::unique_ptr<CKQFile>> m_vecOpen;                  // those of the batch
  std::deque<SLostAnswer> m_answers;                                // of its recordings
  const bool m_bDigests;
  Batch m_started;                             // as the session counts records
  std::size_t m_nLookedAt = 0;                 // so many of them, from the first one on
  std::map<const STransferItem*, SNow> m_now;  // of those that are looked at
  std::set<std::string> m_emptied;             // server names; sent whole in this run
  std::set<std::string> m_stale;               // server names; hold what is not to be gone on with
  std::string m_strLastSent;
};
