#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "programs/kqft/Progress.h"

class COutput;
class CSession;

/// One file to be moved.
struct STransferItem {
  std::string m_strLocal;     ///< file of this machine; of a download the finished one
  std::string m_strServer;    ///< its name at the server
  std::string m_strShown;     ///< its name in messages, "/" separating
  std::int64_t m_llSize = 0;  ///< bytes when it is whole

  bool m_bDone = false;   ///< whole on both sides, as far as can be known
  bool m_bFinal = false;  ///< failed such that trying again is of no use
  int m_nCode = 0;        ///< 1 when done; else of the last failure, 0 for none of the library's
  std::string m_strWhy;   ///< what failed last; "" when nothing has yet
  bool m_bWhole = false;  ///< of an upload: the server's copy was emptied in this run
};

/// Moves a list of files and does not give up at the first that fails.
///
/// The library stops a request at its first failure, and takes what a cut
/// link leaves behind for a success. So files go in requests of a few, each
/// is looked at when it has ended, the others go on, and what fell short is
/// tried again.
class CTransfer {
 public:
  /// @param retries rounds in a row that may bring no progress
  CTransfer(CSession& session, COutput& output, CProgress& progress, int retries);
  CTransfer(const CTransfer&) = delete;
  CTransfer& operator=(const CTransfer&) = delete;
  virtual ~CTransfer() = default;

  /// Moves every item that is neither done nor final. Ends early when the
  /// user interrupts.
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

  virtual int Start(const Batch& batch) = 0;

  /// What a code means that Start returned.
  virtual std::string WhyNotStarted(const Batch& batch, int code);

  /// The file that the library has open while it moves an item.
  virtual std::string OpenedFile(const STransferItem& item) const = 0;

  /// Looks at files whose transfer has ended: m_bDone for those that are
  /// whole, a reason for the others.
  /// @return 1, or why that could not be found out.
  virtual int Verify(const Batch& ended) = 0;

  /// True when a broken transfer of the item goes on where it ended.
  virtual bool IsResumable(const STransferItem& item) const = 0;

  /// Writes down why an item was not moved, and whether the link can be used
  /// after that.
  void Fail(STransferItem& item, int code);

  CSession& m_session;
  COutput& m_output;

 private:
  bool EnsureLink();
  void Round(std::vector<STransferItem>& items);
  Batch Queue(std::vector<STransferItem>& items, bool last);
  void MoveAll(const Batch& queue);
  std::size_t MoveBatch(const Batch& batch);
  std::size_t Watch(const Batch& batch);
  void VerifyEnded();
  bool MayTryAgain(std::int64_t before);
  std::int64_t Advance() const;

  CProgress& m_progress;
  const int m_nRetries;
  SProgress m_shown;             // what is behind the batch that runs
  Batch m_vecEnded;              // not yet looked at
  bool m_bRenewLink = false;     // late answers may be on the one that stands
  std::int64_t m_llResumed = 0;  // bytes moved that need not be moved again
  int m_nFailures = 0;           // rounds in a row without progress
};
