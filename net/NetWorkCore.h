#pragma once

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "net/AddressRange.h"
#include "net/LinkFailure.h"
#include "net/LinkLimits.h"
#include "net/LinkOwner.h"
#include "net/LinkRate.h"
#include "net/TransferFacts.h"
#include "platform/SharedWord.h"

class CAddressLane;
class CIOCPBuffer;
class CLinkShell;
class CLinkShells;
class IListenSocket;
class IRateLimit;
class ILinkInfo;
class IStreamSocket;
class IWakeHandle;

/// How a manager was set up before Init.
struct SNetWorkSettings {
  std::string m_strLocalAddress;
  std::vector<CAddressRange> m_vecAllowed;  // empty: everyone
  SLinkLimits m_limits;
  std::function<void(unsigned int, int, ERefusal)> m_refused;  // empty: nobody is told
  int m_nCapacity = 0;
  int m_nConnectTimeoutMs = 10000;
  bool m_bJudgeFirstBytes = false;
  IRateLimit* m_pRateLimit = nullptr;
  bool m_bKeepAlive = false;
  int m_nKeepAliveIdleMs = 0;
  int m_nKeepAliveIntervalMs = 0;
};

/// One run of the layer, from Init to Stop. Its threads share it, so that it
/// outlives a manager that is stopped from inside a callback.
///
/// Threads of a core: one accepts (when it listens), one gives back buffers
/// that no link took, and two for each link, one delivering, one sending.
class CNetWorkCore : public ILinkOwner, public std::enable_shared_from_this<CNetWorkCore> {
 public:
  CNetWorkCore(IDealNetData& sink, const SNetWorkSettings& settings,
               std::shared_ptr<CLinkShells> shells);
  CNetWorkCore(const CNetWorkCore&) = delete;
  CNetWorkCore& operator=(const CNetWorkCore&) = delete;
  ~CNetWorkCore() override;

  /// Starts the threads. @param listen whether to listen on `port`
  bool Start(bool listen, int port);
  int ListenPort() const;

  bool Connect(const std::string& host, int port);

  /// Why the last Connect failed, or else the link that ended last has ended.
  ELinkFailure Why() const { return m_eWhy; }
  std::int64_t Received() const { return m_llReceived; }
  std::vector<ILinkInfo*> LiveLinks();

  /// The link that SendText would send to; null if there is none.
  ILinkInfo* LinkInfo(unsigned int ip, int port);
  bool SendText(unsigned int ip, int port, const char* data, std::size_t bytes);

  /// Gives `buffer` back on a thread of the layer.
  /// @return false when no such thread runs any more.
  bool GiveBack(CIOCPBuffer* buffer);

  /// Closes every link and waits until each one's code 0 was delivered.
  void CloseAll();

  /// Ends everything and waits for the threads, except those that wait in
  /// Stop or CloseAll themselves.
  void Stop();

  /// True when no thread is left.
  bool HasEnded() const;

  // ILinkOwner.
  IDealNetData& Sink() override { return m_sink; }
  bool IsStopping() const override { return m_bStopping; }
  bool Listens() const override { return m_bListens; }
  bool JudgesFirstBytes() const override { return m_settings.m_bJudgeFirstBytes; }
  void NoteSetUp(const CLink& link) override;
  IRateLimit* RateLimit() const override { return m_settings.m_pRateLimit; }
  void NoteReceived(std::size_t bytes) override;
  void NoteEnd(ELinkFailure why) override { m_eWhy = why; }
  void NoteDown() override { m_nLive += -1; }

 private:
  struct SThread;
  struct SEntry {
    std::shared_ptr<CLink> m_pLink;
    CLinkShell* m_pShell;  // null until someone asks for it
    bool m_bSetUp;
  };
  using Lock = std::unique_lock<std::mutex>;

  bool StartThread(std::shared_ptr<CLink> link, bool delivers, std::function<void()> body);
  std::shared_ptr<CLink> AddLink(std::unique_ptr<IStreamSocket> socket);
  std::shared_ptr<CLink> RegisterLink(std::unique_ptr<IStreamSocket> socket,
                                      std::shared_ptr<CLink>& older);
  std::shared_ptr<CLink> Target(unsigned int ip, int port) const;
  ILinkInfo* Shell(SEntry& entry);
  void RunLink(CLink& link, std::shared_ptr<CLink> older, std::uint64_t turn);
  bool HasLink(const CLink& link) const;
  void RemoveLink(const CLink& link);
  void AcceptLoop();
  std::optional<ERefusal> WhyRefused(unsigned int ip);
  bool HasPlace();
  bool IsAllowed(unsigned int ip) const;
  int LinksOf(unsigned int ip) const;
  void GiveBackLoop();
  void WaitThreads(const std::function<bool(const SThread&)>& concerns);

  IDealNetData& m_sink;
  const SNetWorkSettings m_settings;
  CLinkRate m_newLinks;  // accept thread
  const std::shared_ptr<CLinkShells> m_pShells;
  std::unique_ptr<IWakeHandle> m_pConnectWake;  // constant from Start
  bool m_bListens = false;                      // constant from Start
  CSharedWord<bool> m_bStopping = false;
  CSharedWord<int> m_nLive = 0;  // links up: the capacity in use
  CSharedWord<ELinkFailure> m_eWhy = ELinkFailure::kNone;
  CSharedWord<std::int64_t> m_llReceived = 0;  // bytes, by all links

  mutable std::mutex m_mutex;
  std::unique_ptr<IListenSocket> m_pListener;  // set and freed under m_mutex; used by the accepter
  std::condition_variable m_changed;           // a thread ended or waits, a link was set up or went
  std::condition_variable m_giveBack;          // for the thread that gives back
  std::list<SThread> m_threads;                // guarded by m_mutex
  std::vector<SEntry> m_links;                 // guarded by m_mutex; by age
  std::map<unsigned int, std::shared_ptr<CAddressLane>> m_lanes;  // guarded by m_mutex
  std::vector<CIOCPBuffer*> m_vecGiveBack;                        // guarded by m_mutex
  bool m_bGiveBackEnded = false;                                  // guarded by m_mutex
};
