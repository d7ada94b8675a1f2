#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "KQFileTransServiceExport.h"
#include "client/TransferState.h"
#include "net/DealNetData.h"
#include "platform/ChannelKeyValue.h"
#include "platform/FileDataPos.h"
#include "platform/SharedWord.h"

class CDataBlock;
class CFileHandle;
class CKQEvent;
class CKQFile;
class CNetWorkManageEx;
class CThreadLock;
class CTransferRun;
class ILinkInfo;
class IRateLimit;

// <windows.h> turns SendMessage into a macro; here it is a name of ours.
#pragma push_macro("SendMessage")
#undef SendMessage

/// One connection to a data server, with at most one transfer at a time.
///
///     CKQFileTransServiceClient client;
///     client.Init("logs/");
///     if (!client.Connect("10.0.0.5", 9999)) ...
///     if (client.UpdateFileToDataService(requestXml) != RESULT_OK) ...
///     while (!client.IsTransFinished()) ...   // GetTrans() tells how far
///
/// A file has arrived when its m_nStatus is 1, the link still stands and the
/// server tells its whole size; GetTrans counts what was sent, or lost on a
/// full disk, as well. CKQFileTransServiceVisitor judges so, waits for a
/// server that still finishes an earlier link, and ends an upload such that
/// the next link need not wait.
///
/// Results are those of protocol/ResultCodes.h: 1 is success.
///
/// Threads: a caller's thread, the network layer's threads and the worker of
/// a running transfer meet in one object. Callers issue one request at a time:
/// queries, transfers and StopTrans share the events that answers set.
/// GetTrans, IsTransFinished, IsConnect and GetAllTransFileStatus may be
/// called at any time, from any thread.
///
/// After a request that timed out, its late answer may satisfy the next one.
/// Whoever goes on after a time-out waits for IsTransFinished, if the start of
/// the transfer returned 1, then calls Stop, Init and Connect.
///
/// Deriving: protected operations and members are open to hosts. A derived
/// class calls Stop() in its own destructor, since callbacks come until then.
class KQFT_API CKQFileTransServiceClient : public IDealNetData {
 public:
  /// No network activity, no log file.
  CKQFileTransServiceClient();

  /// Stops the network, then waits for a running worker to end.
  /// Blocks: as long as one file operation or a specified wait of at most
  ///         about 5 s, if one runs.
  ~CKQFileTransServiceClient() override;

  // Callbacks of the network layer; always on its threads.

  bool ReleaseIOCPBuffer(CIOCPBuffer* p) override;

  /// Stores an answer in members, then sets its event. Bodies shorter than
  /// their fields and codes that are not for a client are ignored.
  /// @return true
  bool DealNetMsg(unsigned int ip, int port, int nMsgType, int nLength, const char* pData,
                  int extra) override;

  /// The one parser of this client, cleared for the new link.
  CNetBuffer* CreateNetBuffer(unsigned int ip, int port, int, int) override;

  /// Begins a log file and starts the network layer, once.
  /// @param strLogDir put in front of the log's name as it is: end it with a
  ///                  separator
  /// @return false when the network layer cannot start.
  bool Init(std::string strLogDir);

  /// Connects, unless a connection to the same address and port stands. The
  /// address is kept, also after a failure: transfers reconnect with it.
  /// A server that was sent data from this address answers on the new link
  /// only after up to about 10 s, longer than GetPrjDir waits; a question that
  /// timed out is repeated on the same link, as a new one begins that wait
  /// again. CKQFileTransServiceVisitor::ConnectAndWait does so.
  /// @param strIP dotted address or host name
  /// Blocks: up to 10 s.
  bool Connect(std::string strIP, int nPort);

  /// Stops the network layer; Init starts it again. Does not wait for a
  /// worker: an upload ends by -20, or, when it was waiting for an answer, by
  /// -19 within 10 s or -21 within 30 s; a download by -26 after about 12 s.
  /// The state that a -37 leaves behind stays.
  void Stop();

  /// False as soon as the link is lost.
  bool IsConnect() const;

  // Queries. They use the link that stands and never connect.
  // Results: 1; -4 not sent; -2 no answer in time.

  /// @param strPrjDir the server's project directory; "" on a failure
  /// Blocks: up to 5 s.
  int GetPrjDir(std::string& strPrjDir);

  /// @param strList XML records, one for each project; kept on a failure
  /// Blocks: up to 30 s.
  int GetServerPrjList(std::string& strList);

  /// @param strList XML records, one for each file of the project; kept on a
  ///                failure
  /// Blocks: up to 30 s.
  int GetServerPrjFileList(const std::string& strPrj, std::string& strList);

  /// @return also 1 when there was no such project.
  /// Blocks: up to 60 s.
  int DeleteServerPrj(const std::string& strPrj);

  /// Whether the server answered the last DeleteServerPrj that it deletes no
  /// such project. One that does not say so may still have kept it.
  bool WasDeleteRefused() const;

  /// Sets the local directory of downloads; a "\" is appended when missing.
  /// Throws std::out_of_range for "".
  void SetPrjDir(const std::string& strDir);

  /// The records of the last request as XML, each with its m_nStatus: 1 or
  /// the code of its failure. A stop or a lost link leaves 1 behind too.
  void GetAllTransFileStatus(std::string& strXml);

  /// Bytes done / bytes in all: 0 to 1, above 1 when more came than was
  /// announced; 0 when nothing is to be done.
  float GetTrans() const;

  /// False from the start of a transfer until its worker has ended, and
  /// before the first one. Wait for it only after a start that returned 1: a
  /// refused one leaves it as it was, and that may be false for good.
  bool IsTransFinished() const;

  /// Where the transfer stands that runs, or ran last: file, bytes, total.
  STransferState GetTransferState() const;

  // Transfers.

  /// Starts to send every file of a request: m_strPath here, m_strName there.
  /// The first file that fails ends the upload.
  /// @return 1 started; -14 no connection; -15, -16 an upload, a download
  ///         runs (and this refusal clears that state: the next call is not
  ///         refused and takes over from the running worker); -18 no thread.
  /// Blocks: up to 10 s, while it connects.
  int UpdateFileToDataService(const std::string& xml);

  /// Starts to fetch every file of a request: m_strName there, the project
  /// directory + m_strPath here. Files continue behind what is there already.
  /// @return as above; also -22 the server did not tell the sizes, -37 too
  ///         little free space (the state then stays "downloading").
  /// Blocks: up to 15 s, while it connects and asks.
  int DownFileFromDataService(const std::string& xml);

  /// Asks the running transfer to stop and waits until that is confirmed. The
  /// worker may still need a moment: wait for IsTransFinished before the next
  /// transfer. Files keep what has already arrived.
  ///
  /// Not for an upload that is filling the gaps of a measurement file whose
  /// side file names a header length: the rest of the range in hand would be
  /// reported too far behind, by that length, and the server would forget
  /// that those bytes are missing. Cut the link by Stop() instead, which
  /// reports nothing, then wait for IsTransFinished; Init, Connect and the
  /// same upload go on.
  /// @return 1 when the transfer stopped or none was running; 0 when nothing
  ///         confirmed the stop within 10 000 ms.
  /// Blocks: up to 10 s.
  int StopTrans();

 protected:
  // Log (ClientLog.cpp). Any thread.

  /// Begins a new log file, named after server and time.
  void CreateLogFile();

  /// Appends the time and the message; the message brings its own line end.
  void WriteLog(std::string strLog);

  // Sending (ClientSession.cpp, SendBufferPool.cpp). None of these waits,
  // unless it says so.

  /// Sends one message. @return false without a link, for a body that no
  /// packet can carry, or when the layer refuses.
  bool SendMessage(int nMsgType, const char* pData, int nLength);

  /// What a call of SendMessage becomes behind <windows.h>.
  bool SendMessageA(int nMsgType, const char* pData, int nLength) {
    return SendMessage(nMsgType, pData, nLength);
  }
  bool SendMessageW(int nMsgType, const char* pData, int nLength) {
    return SendMessage(nMsgType, pData, nLength);
  }

  /// Sends a block of file data in packets of at most 65508 bytes.
  /// Blocks: while the link's queue is full and nobody has set m_bStop.
  bool SendData(std::int64_t llFilePos, const char* pData, int nLength);

  /// Sends and waits for the answer.
  /// @return the answer's result; -18 not sent; -19 no answer within 10 s.
  int SendAndWaitPre(int nMsgType, const char* pData, int nLength);

  /// A free buffer of the pool, a new one when all are out; null without
  /// memory. It comes back through ReleaseBuffer.
  CIOCPBuffer* GetIOCPBuffer();
  void ReleaseBuffer(CIOCPBuffer* p);

  // Upload (Upload.cpp, Resume.cpp). Worker's thread; hosts that call them
  // themselves do so while no transfer runs, and Prepare before
  // SendFileToServer or ReceiveFileFromServer: without it these do nothing.

  /// Connects, refuses while a transfer runs, takes over the request.
  /// @param mode PROCESS_TYPE_CLIENT_UPDATA or PROCESS_TYPE_CLIENT_DOWNDATA
  int Prepare(int mode, const std::string& xml);

  /// The two operations that start a transfer, with records in the place of
  /// their text, and sizes where known; nothing is written to the error stream.
  int UploadRecords(std::vector<Channel_Key_Value> records);
  int DownloadRecords(std::vector<Channel_Key_Value> records);

  /// Thread entries of the two workers.
  static void* SendFile(void* client);
  static void* ReceiveFile(void* client);

  virtual void SendFileToServer();

  /// Announces a file; m_llServerFilePos is then what the server holds of it.
  /// @param name  at most 1023 bytes, else -18
  /// @param whole the server empties the file
  int PrepareTransFile(const std::string& name, bool whole);

  /// Sends `len` bytes of the record's file from `start`, as if they began at
  /// `base`, and ends the file.
  /// @param done bytes sent, also after a failure
  int SendSingleFileRange(Channel_Key_Value& rec, std::int64_t start, std::int64_t len,
                          std::int64_t base, std::int64_t& done);

  /// The same of the file that is open, without ending it.
  int ReadDataAndSend(std::int64_t start, std::int64_t len, std::int64_t base, std::int64_t& done);

  /// Asks what is missing of a file. Without an answer text both stay as
  /// they were.
  /// @param bounds where the file's segments after the first begin
  int GetServerLostInfo(const std::string& name, std::vector<FILEDATAPOS>& lost,
                        std::vector<std::int64_t>& bounds);

  /// Sends all that is missing of a measurement file.
  /// @param name becomes the segment that the upload continues
  /// @param skip becomes the position in the local file where that begins
  int RebackAllLostInfo(Channel_Key_Value& rec, std::string& name, std::int64_t& skip);

  // Download (Download.cpp). Worker's thread.

  virtual void ReceiveFileFromServer();

  /// @return false with the code in rec.m_nStatus.
  bool ReceiveSingleFile(Channel_Key_Value& rec);

  /// Drops further data, waits for a write that runs, closes the file.
  /// Blocks: 20 ms, up to 5070 ms while a write hangs.
  void CloseFile();

  /// The same without closing. @return false when the write did not end.
  bool StopReceiveData();

  /// Has every piece of a file that an upload has read shown, before it is sent:
  /// which record of the request, from 0, the position in the local file, and the
  /// bytes. What the function uses has to outlive the worker. Call while none runs.
  /// Threads: the worker's, which waits.
  using ReadHook =
      std::function<void(std::size_t record, std::int64_t position, const char* data, int bytes)>;
  void SetReadHook(ReadHook hook);

  /// Sends file data, and reads the link, as fast as that allows. Not owned; call before Init.
  void SetRateLimit(IRateLimit* limit);

  /// Waits for m_evReply; under a limit beyond `ms`, as long as anything comes.
  bool AwaitReply(int ms);

  // Members. "Constant" after construction; "word": shared by threads without
  // a lock; "guarded" by the lock named.

  CNetWorkManageEx* m_pNetWork;             ///< constant; owned
  std::vector<Channel_Key_Value> m_vecKey;  ///< guarded by m_pState; the current request
  /// Constant, owned; each flag is a word, true while the buffer is free.
  std::map<CIOCPBuffer*, CSharedWord<bool>> m_mapBuffer;
  CSharedWord<bool> m_bInit = false;                 ///< word
  CSharedWord<bool> m_bConnect = false;              ///< word
  std::string m_strServerIP;                         ///< guarded by m_pLock
  CSharedWord<std::int32_t> m_nServerPort = 0;       ///< word
  CSharedWord<std::int32_t> m_nTransState = 0;       ///< word; PROCESS_TYPE_...
  CSharedWord<bool> m_bStop = false;                 ///< word; caller and network ask, workers obey
  CSharedWord<std::int64_t> m_TotalTransBytes = 0;   ///< word
  CSharedWord<std::int64_t> m_llTransBytes = 0;      ///< word; counted up by worker and network
  CSharedWord<std::int64_t> m_llServerFilePos = 0;   ///< word; from the answer to 2500
  CSharedWord<std::int32_t> m_nErrorCode = 1;        ///< word; last answer's, or a failed write
  CSharedWord<std::int32_t> m_nServerErrorCode = 1;  ///< word; from 2507 and 2508
  CSharedWord<bool> m_bStopReceive = true;           ///< word; received data is dropped
  CSharedWord<bool> m_bWriting = false;              ///< word; the network thread is writing
  CSharedWord<bool> m_bFinished = false;             ///< word; the last transfer has ended
  CSharedWord<ILinkInfo*> m_pLinkInfo = nullptr;     ///< word; the manager's; load it once
  CNetBuffer* m_pNetBuffer;                          ///< constant; owned
  CKQFile* m_pFile;                                  ///< constant; owned; the file on its way
  CKQEvent* m_evTransEnd;                            ///< constant; owned
  CKQEvent* m_evFileEnd;                             ///< constant; owned
  CKQEvent* m_evReply;                               ///< constant; owned
  CSharedWord<std::int64_t> m_nBufTaken = 0;         ///< word
  CSharedWord<std::int64_t> m_nBufReleased = 0;      ///< word
  std::string m_strLostInfo;                         ///< guarded by m_pLock
  std::string m_strLogDir;                           ///< guarded by m_pLock
  std::string m_strLogPath;                          ///< guarded by m_pLock
  std::string m_strServerPrjDir;                     ///< guarded by m_pLock
  std::string m_strPrjList;                          ///< guarded by m_pLock
  std::string m_strPrjDir;                           ///< guarded by m_pLock
  CSharedWord<bool> m_bPrjDirKnown = false;          ///< word; never becomes true
  CSharedWord<std::int32_t> m_nDeleteResult = 0;     ///< word
  CKQFile* m_pLogFile;                               ///< constant; owned; used under m_pLock
  CThreadLock* m_pLock;                              ///< constant; owned
  std::int64_t m_llLogTime;                          ///< guarded by m_pLock

 private:
  // Answers (ReceiveHandler.cpp); network thread.
  void Dispatch(int code, int length, const char* body);
  void OnDisconnect();
  void OnConnect();
  void OnPrepareAnswer(int length, const char* body);
  void OnUploadEnd();
  void OnTransStopped();
  void OnTotalSize(int length, const char* body);
  void OnDownloadAnswer(int length, const char* body);
  void OnFileData(int length, const char* body);
  void OnDownloadEnd(int length, const char* body);
  void OnServerWriteError(int length, const char* body);
  void OnLostInfo(int length, const char* body);
  void OnLostInfoChanged();
  void OnText(std::string& member, int length, const char* body);
  void OnDeleted(int length, const char* body);
  bool StoreChunk(std::int64_t position, const char* data, int bytes);
  void ReportWriteFailure(const char* message);

  bool SendText(int code, const std::string& body);
  int Ask(int code, const std::string& body, int waitMs);
  void ClearPrjList();
  bool SendBlock(ILinkInfo* link, std::int64_t position, CDataBlock& block);
  void TellRead(std::int64_t position, const CDataBlock& block);
  int MayMove(const ILinkInfo* link, int bytes) const;
  bool SendPiece(ILinkInfo* link, CIOCPBuffer* buffer, int bytes);
  std::string GuardedCopy(const std::string& member) const;

  friend class CKQFileBulkTransfer;  // another worker for the same transfers
  // Runs (TransferRun.cpp): which worker's transfer is the current one.
  void BeginRun(int mode, std::vector<Channel_Key_Value> records);
  bool TakeRun(int mode, CTransferRun& run);
  void BeginRecord(std::uint64_t number, std::size_t index, std::int64_t size);
  int CheckIdle();
  int PrepareRecords(int mode, std::vector<Channel_Key_Value> records);
  int StartUpload(int result, std::int64_t total);
  int StartDownload(int result);
  bool StartWorker(void* (*entry)(void*));
  void EndWorker();
  void FinishRun(std::uint64_t number, bool signalEnd);
  bool FinishUnlessStopped(std::uint64_t number);
  void StoreStatus(std::uint64_t number, std::size_t index, std::int32_t status);
  std::vector<Channel_Key_Value> CopyRecords() const;
  bool UseFile(std::shared_ptr<CFileHandle> file, const std::string& path);
  void LeaveFile();
  bool IsSuperseded() const;
  bool IsTransStopped() const;

  int SendRecord(Channel_Key_Value& rec);
  int SendLostRange(Channel_Key_Value& rec, int index, const FILEDATAPOS& range,
                    const std::vector<std::int64_t>& bounds);
  int ReportRange(int index, const FILEDATAPOS& range, std::int64_t done);

  bool HasFreeSpace() const;
  bool OpenTarget(const std::string& local);
  bool RequestFile(Channel_Key_Value& rec, std::int64_t have);
  bool RefuseFile(Channel_Key_Value& rec, int result, const std::string& message);
  bool WatchFile(Channel_Key_Value& rec);
  bool RaiseStopReceive();
  bool RaiseStop();

  struct SState;
  std::shared_ptr<SState> m_pState;  // constant; every further member goes there (docs/abi.md)
};

#pragma pop_macro("SendMessage")
