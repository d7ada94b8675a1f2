#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "KQFileTransServiceExport.h"
#include "net/TransferFacts.h"
#include "platform/ChannelKeyValue.h"
#include "platform/FileDataPos.h"
#include "platform/SharedWord.h"

class CKQFile;
class CNetBuffer;
class CThreadLock;
class CDataBlock;
class ILinkInfo;
class ITransNet;
struct SHeldFile;
struct SUploadReport;

/// One client's session on the server: carries out every request of its link,
/// one upload or download at a time.
///
/// The server creates it, gives every message of the link to DealNetMsg, and
/// keeps it for the client's next connection. Nothing it does throws.
///
/// Threads: DealNetMsg on the link's delivery thread, one call at a time; a
/// download streams on a sender thread of its own; StopService on any thread.
/// "Delivery thread" below means: used by DealNetMsg only.
class KQFT_API CTransClient {
 public:
  /// @param pTransNet the server; not owned, outlives the session. Without
  ///                  one (null) nothing is sent.
  CTransClient(ITransNet* pTransNet, unsigned int ip, int port);
  CTransClient(const CTransClient&) = delete;
  CTransClient& operator=(const CTransClient&) = delete;

  /// Stops the session and waits for its senders.
  /// Blocks: as StopService, then until each sender has noticed.
  ~CTransClient();

  /// Handles one message; a code that is no request is ignored.
  /// @return true
  /// Blocks: for the file work of the request, a whole directory walk at most.
  virtual bool DealNetMsg(unsigned int ip, int port, int msgType, int nLength, const char* data,
                          int extra);

  /// Switches the session's log on; each entry goes to a file named after the
  /// client's address and the time, put behind `dir` as it stands.
  void SetLog(const std::string& dir);

  /// Makes the session refuse further work and waits for a write to end. The
  /// file stays open. Serves again only after ResetForLink.
  /// @return false when a write was still marked as running at the end; always
  ///         the case once a chunk was stored and no later one failed.
  /// Blocks: 20 ms to 5070 ms.
  bool StopService();

  /// Tells the server's hooks of an upload that has not come to its end and
  /// will not. Call while no message is handled.
  void TellCutOff();

  /// Closes the files of a stopped session: a client that never returns must
  /// not cost descriptors. The log opens again by itself.
  void Rest();

  /// Waits until no sender of a stopped session runs any more.
  /// Blocks: until each has noticed the stop, at most a block's reading.
  void WaitSenders();

  /// Makes the stopped session ready for a new link. A sender that still runs
  /// for the old one changes and sends nothing from now on.
  void ResetForLink();

 protected:
  const unsigned int m_nLinkIP;  // constant after construction

 public:
  /// Remote port of the link. Shared word: set by the registry when the
  /// client comes back, read by every send.
  CSharedWord<std::int32_t> m_nLinkPort;

  /// Nothing sets it; the registry takes over only sessions with it unset.
  CSharedWord<bool> m_bInUse = false;

  /// The session refuses work. Shared word: set by StopService, cleared by
  /// ResetForLink; read by the handlers and the senders.
  CSharedWord<bool> m_bStopService = false;

  /// An upload chunk is being written. Shared word: set and cleared by the
  /// delivery thread, read by StopService. A good write leaves it set.
  CSharedWord<bool> m_bWriting = false;

 protected:
  std::int32_t m_nLastDataError;  // delivery thread; last failure told by 2508

 public:
  /// PROCESS_TYPE_*. Shared word: set by the delivery thread, by StopService
  /// and by an ending sender.
  CSharedWord<std::int32_t> m_nTransType;

  /// The client wants the download to stop. Shared word: set and cleared by
  /// the delivery thread, read by the senders.
  CSharedWord<bool> m_bStopTrans = false;

  /// Upload target or download source. Owned; the file guards itself.
  CKQFile* m_pTransFile = nullptr;

 protected:
  /// Position of the next download chunk. Shared word: the newest position
  /// any sender has reached; each sender counts in a position of its own.
  CSharedWord<KQLonglong> m_llSendPos = 0;

  ITransNet* const m_pTransNet;  // constant after construction; not owned

 public:
  /// Parser of the link's packets. Owned; handed to the network layer.
  CNetBuffer* m_pNetBuffer = nullptr;

 protected:
  CThreadLock* m_pLock = nullptr;  // owned; never taken, kept on purpose

  CSharedWord<bool> m_bLog = false;   // shared word; set once by SetLog
  std::string m_strLogDir;            // guarded by m_pLogLock
  std::string m_strLogFile;           // guarded by m_pLogLock
  CKQFile* m_pLogFile = nullptr;      // owned; used under m_pLogLock
  CThreadLock* m_pLogLock = nullptr;  // owned; constant after construction

  std::int64_t m_llWriteErrTime;   // delivery thread
  std::int64_t m_llLogReopenTime;  // guarded by m_pLogLock
  std::int64_t m_llCreateTime;     // constant after construction; never read

  std::string m_strLostInfoPath;  // delivery thread; side file of the last 2509

  // State of the project walks. Delivery thread. Never reset between
  // requests: what an earlier walk left counts for the next one's first record.
  std::string m_strCurPrjName;
  std::int64_t m_llCurPrjTime = 0;
  std::int64_t m_llCurPrjSize = 0;
  bool m_bCurPrjFound = false;

 private:
  /// Appends an entry to the session's log; the message ends its own line.
  void WriteLog(const std::string& msg);
  void CreateLogFile();

  /// Sends one message to the client; the body stays the caller's.
  /// @return 1 when it was sent or queued, 0 otherwise
  int SendMsg(int msgType, const void* body, int nLength);
  int SendMsg(int msgType, const std::string& body);

  // One handler per request, named for its answer's content. All of them run
  // on the delivery thread.
  void AnswerPrepareReceive(int nLength, const char* data);
  void StoreFileData(int nLength, const char* data);
  void AnswerEndOfFile();
  void StopDownload();
  void AnswerFilesSize(int nLength, const char* data);
  void AnswerPrepareDown(int nLength, const char* data);
  void AnswerLostInfo(int nLength, const char* data);
  void AnswerUpdateLostInfo(int nLength, const char* data);
  void AnswerProjectDir();
  void AnswerProjectList();
  void AnswerDeleteProject(int nLength, const char* data);
  void AnswerProjectFileList(int nLength, const char* data);

  /// Opens the target that a 2500 body names.
  /// @param llFileLen receives the size the target had before.
  /// @return a result code
  int PrepareReceiveData(unsigned int nLength, const char* data, KQLonglong* llFileLen);

  /// Writes the chunk of a 2501 body at the position it carries, unless bytes
  /// before it are missing that could not be stored.
  /// @return a result code
  int ReceiveData(unsigned int nLength, const char* data);

  /// @return bytes of all files of a 2504 body together
  KQLonglong GetFilesSize(int nLength, const char* data);

  /// Opens the file that a 2505 body names and starts a sender.
  /// @return a result code
  int PrepareDownFileData(unsigned int nLength, const char* data);

  /// What one download works on, fixed when it is prepared.
  struct SSendRun;

  /// Entry of the sender thread. @param run a std::shared_ptr<SSendRun>*, taken
  ///             over
  static void* SendFileThread(void* run);
  void SendFileToClient(SSendRun& run);

  /// Sends one block as data packets, each when the link has room for it.
  /// @return false when the link is gone or a packet was refused
  /// Blocks: until the packets are queued, or the run has to stop.
  bool SendBuffer(ILinkInfo* pLinkInfo, CDataBlock& block, SSendRun& run);

  /// Result and text of the missing ranges of a 2509 body's file.
  int DealGetLostInfo(int nLength, const char* data, std::string& text);

  /// Stores the changed range of a 2510 body.
  int DealUpdateLostInfo(unsigned int nLength, const char* data);

  /// Reads the side files of a data file. @return 1, -31 or -32
  int ReadLostInfo(const std::string& path, std::string& text);

  /// Rewrites one range of the side file of the last 2509.
  /// @return 1, -30, -31 or -32
  int UpdateLostInfo(int index, KQLonglong a, KQLonglong b);

  /// Append a record per project below `dir` / per file of a project.
  /// @param depth directory levels above this call
  void ListProjects(const std::string& dir, const std::string& suffix,
                    std::vector<Channel_Key_Value>* out, int depth);
  void ListProjectFiles(const std::string& path, std::vector<Channel_Key_Value>* out, int depth);

  // The server's hooks. What it throws is caught where they are only told.
  using MayHook = bool (ITransNet::*)(const STransferFacts&);
  using OnHook = void (ITransNet::*)(const STransferFacts&);
  STransferFacts Facts(std::string_view path) const;
  bool Allows(MayHook may, const STransferFacts& facts, ERefusal refusal);
  void Tell(OnHook on, const STransferFacts& facts);
  void TellFailed(OnHook on, std::string_view path, int result);
  void BeginUpload(std::string_view path);
  bool MayStoreNext();
  void EndUpload(int result);
  void TellGrouped(const SUploadReport& report, int result);

  int SendFrame(int port, int msgType, const void* body, int nLength);
  std::string LogFilePath() const;
  void Dispatch(int msgType, int nLength, const char* data);
  SHeldFile OpenTarget(const std::string& path, int* newEntries);
  int RefuseTarget(const SHeldFile& target);
  int CheckReceiving();
  bool StoreChunk(KQLonglong position, const char* data, int nLength);
  bool WriteDurably(KQLonglong position, const char* data, int nLength);
  void LogWriteFailure(const std::string& path);
  KQLonglong RefuseUpload(const std::string& path);
  int FailWrite();
  void AnnounceFailure(int result);
  void FlushReceived();
  void HandOverReceived();
  void ConfirmGroup();
  void WriteLogLines();
  bool JoinsGroup(int msgType, int nLength, const char* data) const;
  std::string ProjectDir() const;
  void AppendProject(std::vector<Channel_Key_Value>* out);
  bool StartSender(KQLonglong position, const std::string& path);
  bool IsStale(const SSendRun& run) const;
  bool WaitForRoom(ILinkInfo& link, const SSendRun& run) const;
  int StreamFile(SSendRun& run);
  void FinishRun(SSendRun& run, int end);
  void SendToRun(const SSendRun& run, int msgType, const void* body, int nLength);

  struct SState;
  static std::shared_ptr<SSendRun> NextRun(SState& state);
  void StayForNextRun(SSendRun& run);
  void DismissSender();

  const std::shared_ptr<SState> m_pState;  // every further member goes there (docs/abi.md)
};
