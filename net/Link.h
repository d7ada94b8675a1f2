#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>

#include "net/LinkFailure.h"
#include "net/LinkInfo.h"
#include "net/SendQueue.h"
#include "platform/SharedWord.h"

class CAddressLane;
class ILinkOwner;
class IStreamSocket;

/// One live connection: its socket, its queue and the loops of its two
/// threads. Shared by those threads and by everyone who is sending on it.
class CLink : public std::enable_shared_from_this<CLink> {
 public:
  CLink(ILinkOwner& owner, std::unique_ptr<IStreamSocket> socket, std::uint64_t serial,
        std::shared_ptr<CAddressLane> lane);
  CLink(const CLink&) = delete;
  CLink& operator=(const CLink&) = delete;
  ~CLink();

  unsigned int IP() const { return m_nIP; }
  int Port() const { return m_nPort; }
  bool IsUp() const { return m_bUp; }

  /// True once the link has a parser: its set-up is over for what others send.
  bool IsServed() const { return m_bServed; }
  CSendQueue& Queue() { return m_queue; }
  const std::shared_ptr<CAddressLane>& Lane() const { return m_pLane; }

  /// Body of the delivery thread: sets the link up, delivers packets, then
  /// the disconnect.
  /// @param turn the set-up's turn in the lane
  void Deliver(std::uint64_t turn);

  /// The link is of no use any more: ends both threads' waits.
  void MarkDown();

 private:
  bool SetUp(std::uint64_t turn);
  ELinkFailure Receive();
  bool DeliverPackets(const char* data, std::size_t end, std::size_t& begin);
  static void Pace(int answered);
  bool DeliverChunk(const char* data, std::size_t bytes);
  std::size_t DeliverableBytes(const char* data, std::size_t bytes);
  std::size_t MayReceive(std::size_t room) const;
  void Announce(int code);

  ILinkOwner& m_owner;  // alive as long as the link's threads, which hold it
  const std::unique_ptr<IStreamSocket> m_pSocket;
  const std::uint64_t m_ullSerial;
  const unsigned int m_nIP;
  const int m_nPort;
  const std::shared_ptr<CAddressLane> m_pLane;
  CSendQueue m_queue;
  class CNetBuffer* m_pParser = nullptr;  // delivery thread only; owned by the sink
  std::size_t m_nPassOn = 0;              // delivery thread only; rest of a large packet
  CSharedWord<bool> m_bUp = true;
  CSharedWord<bool> m_bServed = false;
};

/// What users of a connection hold: small, and alive until the manager dies.
class CLinkShell : public ILinkInfo {
 public:
  explicit CLinkShell(const std::shared_ptr<CLink>& link);

  bool IsLink() const override;
  unsigned int GetIP() const override { return m_nIP; }
  int GetPort() const override { return m_nPort; }
  bool WaitSendRoom(int ms) override;

  /// The connection itself; null once it is gone.
  std::shared_ptr<CLink> Link() const;
  void Release();

 private:
  // Shells share a few locks, so that a dead one costs no more than its words.
  std::mutex& Lock() const;

  const unsigned int m_nIP;
  const int m_nPort;
  std::shared_ptr<CLink> m_pLink;  // guarded by Lock()
};

/// Every shell that a manager ever handed out.
class CLinkShells {
 public:
  CLinkShell* Add(const std::shared_ptr<CLink>& link);

 private:
  std::mutex m_mutex;
  std::deque<CLinkShell> m_shells;  // guarded by m_mutex; elements never move
};
