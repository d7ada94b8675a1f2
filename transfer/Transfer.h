#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "transfer/Digest.h"
#include "transfer/RateMeter.h"
#include "transfer/TransferItem.h"
#include "transfer/TransferObserver.h"

class CCancelToken;
class CSession;

/// What every transfer works with. None of it is owned.
struct STransferTools {
  CSession& m_session;
  ITransferObserver& m_observer;
  CCancelToken& m_cancel;
  int m_nRetries;           ///< rounds in a row that may bring no progress
  int m_nRetrySeconds = 0;  ///< so long they may, however many they are

  /// Asked between two requests; false ends the transfer. May be empty.
  std::function<bool()> m_mayGoOn = {};
};

/// Reads a file of this machine; fails once the operation is cancelled.
DigestReader ReadsUnlessCancelled(const CCancelToken& cancel, const std::string& path);

/// Moves a list of files and does not give up at the first that fails.
///
/// What the server confirmed need not be whole. So files go in requests of a
/// few, each is looked at when it has ended, the others go on, and what fell
/// short is tried again.
class CTransfer {
 public:
  explicit CTransfer(const STransferTools& tools);
  CTransfer(const CTransfer&) = delete;
  CTransfer& operator=(const CTransfer&) = delete;
  virtual ~CTransfer() = default;

  /// Moves every item that is neither done nor final. Ends early when it is
  /// cancelled, or must not go on.
  void Run(std::vector<STransferItem>& items);

  /// False when a question has no answer yet: another one on the same link
  /// would wait in vain too.
  bool IsLinkClean() const { return !m_bRenewLink; }

 protected:
  using Batch = std::vector<STransferItem*>;

  /// Makes ready for an item. @return why it cannot be moved, "" when it can.
  virtual std::string Prepare(const STransferItem&) { return ""; }

  /// True for an item that goes behind all others, in a request of its own.
  virtual bool GoesLast(const STransferItem&) { return false; }

  /// True while an item's turn has not come.
  virtual bool Waits(const STransferItem&) { return false; }

  /// Makes ready for a request. May leave out the end of the batch, which then
  /// follows in a request of its own; leaves none when the first one of it
  /// cannot be moved, and says so by Fail.
  virtual void Ready(Batch&) {}

  /// Told between two requests, when no answer is awaited.
  virtual void Between() {}

  /// Has an item looked at that needs no request any more.
  void EndAlone(STransferItem& item);

  virtual int Start(const Batch& batch) = 0;

  /// What a code means that Start returned.
  virtual std::string WhyNotStarted(const Batch& batch, int code);

  /// Called again and again while a batch is on its way: what can be looked at
  /// here already of the files that have ended. Asks the server nothing.
  virtual void LookAhead(const Batch&) {}

  /// Looks at files whose transfer has ended: m_bDone for those that are
  /// whole, a reason for the others.
  /// @return 1, or why that could not be found out.
  virtual int Verify(const Batch& ended) = 0;

  /// True when a broken transfer of the item goes on where it ended.
  virtual bool IsResumable(const STransferItem& item) const = 0;

  /// How much of an item that fell short is kept at the side that receives.
  /// @param bytes -1 when that cannot be told
  /// @return 1, or why that could not be found out
  virtual int AskKept(const STransferItem& item, std::int64_t& bytes);

  /// Writes down why an item was not moved, and whether the link can be used
  /// after that.
  void Fail(STransferItem& item, int code);

  CSession& m_session;
  CCancelToken& m_cancel;

 private:
  bool EnsureLink();
  bool IsOver() const;
  void Round(std::vector<STransferItem>& items);
  Batch Queue(std::vector<STransferItem>& items, bool last);
  void MoveAll(const Batch& queue);
  void MoveBatch(const Batch& batch);
  void Watch(const Batch& batch);
  void VerifyEnded();
  void ShowProgress(const Batch& batch);
  void TellEnd(STransferItem& item);
  bool LookWhatIsKept();
  bool HasGained(STransferItem& item, std::int64_t bytes);
  std::string WhyAgain(const std::vector<STransferItem>& items) const;

  ITransferObserver& m_observer;
  const int m_nRetries;
  const int m_nRetrySeconds;
  const std::function<bool()> m_mayGoOn;
  STransferProgress m_behind;  // what is behind the batch that runs
  STransferProgress m_shown;   // what was told last
  CRateMeter m_rate;
  CSilenceMeter m_silence;
  Batch m_vecEnded;                 // not yet looked at
  bool m_bRenewLink = false;        // late answers may be on the one that stands
  std::string m_strNoLink;          // why there is none
  bool m_bStopped = false;          // must not go on
  Batch m_begun;                    // fell short, and what is kept was not asked yet
  std::int64_t m_llRoundMoved = 0;  // bytes of the round that need not be moved again
  std::map<const STransferItem*, std::int64_t> m_kept;  // bytes, as it was told last
  std::set<const STransferItem*> m_full;  // the server could not write more of it than that
  std::set<const STransferItem*> m_told;  // whose end the observer knows
};
