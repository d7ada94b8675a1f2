#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "client/KQFileTransServiceVisitor.h"

class CFileHandle;
class CReadAhead;

/// The visitor that moves many files over its link without a pause between
/// two: the same operations, the same messages, other workers.
///
///     CKQFileBulkTransfer client;                  // as the visitor
///     client.UpdateFileToDataService(requestXml);  // or DownFileFrom...
///     if (client.WaitForEnd() != RESULT_OK) ...    // GetAllTransFileStatus: which
///
/// What differs from the base class:
/// - Up, ordinary files follow one another without waiting for answers, up to
///   128 of them at a time. Measurement files go one by one, as there.
/// - Down, the next file is asked for as soon as the end of one has come, while
///   what came with it is still being stored.
///   Targets are opened a few files ahead; those that were made for files
///   whose turn never came are removed again.
/// - A file that fails fails alone: the others go on. The transfer ends early
///   when it is stopped, the link is lost, or an answer is overdue (-19, -21,
///   -25, -26) or comes out of its turn: then nobody knows what the next ones
///   are about, and the link is cut.
/// - m_nStatus is 1 only of a file that is over: the server confirmed its end
///   and refused none of its data, or told its end after all its bytes had
///   been stored here. What was not over when the transfer ended has -28, or
///   -20 when the link was lost.
/// - A refusal that passes, since the session was not ready yet (-9, -11,
///   -12), is tried again for some seconds.
/// - A stop takes effect within 100 ms, whether the server answers or not. What
///   a stopped download still receives is dropped; the next transfer waits for
///   its end. A question about a measurement file that has no answer by then
///   cuts the link.
/// - A transfer that takes over from a running one waits until that has left.
/// - StopTrans is confirmed by the worker, also of a download.
///
/// Why nothing of the protocol does: a server handles the packets of a link in
/// their order and answers in it, so that each answer belongs to the oldest
/// file that lacks it; and it is never asked for a second file while it sends
/// one. The bytes of each file are those that the base class sends.
///
/// Threads: as the base class.
class KQFT_API CKQFileBulkTransfer : public CKQFileTransServiceVisitor {
 public:
  CKQFileBulkTransfer();

  /// Blocks: as the base class's.
  ~CKQFileBulkTransfer() override;

  /// Takes what belongs to the files on their way; the rest goes to the base.
  bool DealNetMsg(unsigned int ip, int port, int nMsgType, int nLength, const char* pData,
                  int extra) override;
  CNetBuffer* CreateNetBuffer(unsigned int ip, int port, int, int) override;

  /// m_nStatus of each record of the last transfer, also while it runs: what
  /// GetAllTransFileStatus tells, for less.
  std::vector<int> GetStatuses() const;

  /// What a fetched file is stored in.
  struct STargetFile {
    std::shared_ptr<CFileHandle> m_pFile;  ///< null: it cannot be opened
    std::int64_t m_llHave = 0;             ///< bytes of it that are here already
    std::function<void()> m_remove;        ///< removes what was made for it; empty: nothing was
  };

 protected:
  /// Opens what a record of a download is stored in; made where it is missing.
  /// @param path here, as the request names it
  /// Threads: the worker, some files ahead.
  virtual STargetFile OpenTarget(std::size_t record, const std::string& path);

  void SendFileToServer() override;
  void ReceiveFileFromServer() override;

  /// Uploads whose end was not answered yet, also those that nobody waits for
  /// any more: the next answers of that kind are theirs.
  std::size_t CountOnWay();

 private:
  struct SBulk;

  // BulkTransfer.cpp
  bool BeginBulk(const CTransferRun& run);
  void EndBulk(const CTransferRun& run);
  void Distrust();
  bool IsBroken();
  void Forget();
  std::uint64_t CountEvents() const;

  // BulkUpload.cpp
  bool TakeUploadAnswer(int code, int length, const char* body);
  void EndOldest(int result);
  int WaitOnWay(std::size_t most);
  void SendAll(CTransferRun& run);
  int SendOne(CTransferRun& run, CReadAhead& ahead, std::size_t record, bool pauses);
  int SendRecording(CTransferRun& run, std::size_t record);
  void LeaveUnanswered(std::size_t record, int result);
  int SendOrdinary(CTransferRun& run, CReadAhead& ahead, std::size_t record, bool pauses);
  int SendFileData(CTransferRun& run, std::size_t record, std::int64_t size, bool pauses);
  bool SendInTurn(int code, const std::string& body);

  // BulkDownload.cpp
  struct STarget;
  bool TakeDownload(int code, int length, const char* body);
  bool TakePiece(int length, const char* body);
  bool TakeRequestAnswer(int length, const char* body);
  bool TakeFileEnd(int length, const char* body);
  void EndCurrent(std::unique_lock<std::mutex>& lock, int result);
  void AskNext(std::unique_lock<std::mutex>& lock);
  bool IsNextAsked() const;
  static std::string Request(const STarget& target);
  bool WaitUntilDrained(const CTransferRun& run);
  void ReceiveAll(const CTransferRun& run);
  void OpenAhead(const CTransferRun& run, std::size_t& next);
  void OpenNext(const CTransferRun& run, std::size_t record);
  int WatchCurrent(bool more);
  void EndReceiving();

  std::shared_ptr<SBulk> m_pBulk;  // constant; every further member goes there (docs/abi.md)
};
