#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>

#include "KQFileTransServiceExport.h"
#include "net/DealNetData.h"
#include "net/TransNet.h"
#include "platform/SharedWord.h"

class CKQFile;
class CNetWorkManageEx;
class CThreadLock;
class CTransClient;

/// The data server: listens on a port and gives every client link a session
/// that carries out its requests against a directory of projects.
///
/// Set the project directory, the suffix and the log, then call Init. Paths
/// in requests are used as they come and may lead anywhere: confine the process
/// (platform/Confinement.h), or run it as a user that may reach nothing but
/// the data.
///
/// A host may derive, to use the network manager itself, and to decide what
/// clients may do and hear what they did: the hooks of ITransNet and those
/// below. Such a class calls Stop in its own destructor, since calls from the
/// network and the sessions arrive until then.
///
/// Threads: the exported operations on one host thread at a time; the others
/// on threads of the network layer.
class KQFT_API CKQFileTransServiceServer : public IDealNetData, public ITransNet {
 public:
  CKQFileTransServiceServer();

  /// Stops, then ends every session.
  /// Blocks: three times as long as Stop. A session that has stored data costs
  ///         15.2 s, or 20.3 s together with a Stop before. A program that has
  ///         to end sooner uses EndServer (server/EndServer.h).
  ~CKQFileTransServiceServer() override;

  /// Starts to listen; harmless when it listens on this port already, moves
  /// when it listens on another: then it stops first.
  /// @param port 0 picks a free one: m_pPrimaryNetWork->GetListenPort().
  /// @return false when it cannot listen; may be called again
  /// Blocks: as Stop when it moves.
  bool Init(int port);

  /// Stops listening, closes every link and stops every session's work. The
  /// sessions stay for the next Init; no thread of theirs or of the network
  /// runs on return.
  /// Blocks: 20 ms for each session, 5070 ms for one that has stored data and
  ///         saw no failed write after that.
  void Stop();

  /// The directory of the projects, used as it stands: it ends with a
  /// separator, because a project's name is appended to it. Call before Init.
  void SetPrjDir(const std::string& dir);

  /// How the name of a project file ends; ".kqsln" when not called. Call
  /// before Init.
  void SetPrjSuffix(const std::string& suffix);

  /// Switches the server's log on or off. The directory, used as it stands in
  /// front of the file names, also serves the logs of all sessions, which are
  /// always on: without it they lie in the working directory. Call before Init.
  void SetLog(std::string dir, bool enable);

  /// Makes a received file, and every directory made for it, lie on the disk
  /// before its end is confirmed, and before its list of missing ranges gets
  /// shorter. A disk that cannot keep it is told as a failed write. Off when
  /// not called. Call before Init.
  void SetDurable(bool durable);

  // IDealNetData: the network layer's calls.
  bool DealNetMsg(unsigned int ip, int port, int code, int bodyLen, const char* body,
                  int extra) override;
  CNetBuffer* CreateNetBuffer(unsigned int ip, int port, int, int) override;

  // ITransNet: the sessions' calls.
  ILinkInfo* GetLinkInfo(unsigned int ip, int port) override;
  bool SendText(ILinkInfo* link, CIOCPBuffer* buf) override;
  bool SendText(unsigned int ip, int port, const char* data, int len) override;
  std::string GetFileDir() override;
  std::string GetPrjSuffix() override;
  bool IsDurable() override;

 protected:
  /// Hooks, as those of ITransNet: a link is up; it is gone, or the server
  /// stops. The same thread as for the link's requests, or the one that stops.
  virtual void OnConnected(const STransferFacts& link);
  virtual void OnDisconnected(const STransferFacts& link);

  /// The registry: one session per link, found by its address and port, taken
  /// over by the next link from the same address. A session lives until the
  /// server's end, so it is used without the lock.
  ///
  /// Each operation holds m_pClientLock throughout, its waits included.

  /// The link's session; an idle one of the same address is taken over before
  /// a new one is made.
  /// @return null only when there is no memory for it
  CTransClient* AddClientManage(unsigned int ip, int port);

  /// @return null when the link has no session
  CTransClient* GetClientManage(unsigned int ip, int port);

  /// Stops the link's session and closes its file; the session stays. A link
  /// that is up stays too: its messages are still answered, by refusals where
  /// there is work to do.
  void RemoveClientManage(unsigned int ip, int port);

  /// Does so with every session; with `bDelete` also ends them all. Call that
  /// only while the network is stopped.
  void RemoveAllClient(bool bDelete);

  /// Starts a new log file, named after the time.
  void CreateLogFile();

  /// Appends an entry to the log, if it is on. The message ends its own line.
  void WriteLog(const std::string& message);

  CSharedWord<bool> m_bInit = false;                   // shared word; host threads
  CSharedWord<std::int32_t> m_nPort = 9999;            // shared word; host threads
  CThreadLock* m_pClientLock;                          // owned; constant after construction
  CNetWorkManageEx* m_pPrimaryNetWork;                 // owned; constant after construction
  std::map<std::uint64_t, CTransClient*> m_mapClient;  // owned; guarded by m_pClientLock
  CSharedWord<bool> m_bLog = false;                    // shared word; set by SetLog, read by all
  std::string m_strLogDir;                             // guarded by m_pLogLock
  std::string m_strLogFile;                            // guarded by m_pLogLock
  std::string m_strPrjDir;                             // constant while the network runs
  std::string m_strPrjSuffix;                          // constant while the network runs
  CKQFile* m_pLogFile;                                 // owned; used under m_pLogLock
  CThreadLock* m_pLogLock;                             // owned; constant after construction

 private:
  void AnnounceLink(const char* event, unsigned int ip, int port);
  CTransClient* TakeOver(unsigned int ip, int port);
  CTransClient* MakeSession(unsigned int ip, int port);
  void EndLink(unsigned int ip, int port);
  void NoteLink(unsigned int ip, int port);
  void TellEnd(unsigned int ip, int port);
  void ForgetLink(unsigned int ip, int port);
  void EndTransfers();
  void Quiesce(std::uint64_t key, CTransClient& session);
  std::string LogFilePath() const;
  std::string LogDirectory() const;

  struct SState;
  std::shared_ptr<SState> m_pState;  // constant; every further member goes there (docs/abi.md)
};
