#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "KQFileTransServiceExport.h"
#include "net/AddressRange.h"
#include "net/LinkFailure.h"
#include "net/LinkLimits.h"
#include "net/TransferFacts.h"

class CIOCPBuffer;
class CNetWorkCore;
class IDealNetData;
class ILinkInfo;
class IRateLimit;

/// The network layer: TCP over IPv4, packets with a 20-byte head, one
/// delivery thread per link, so that a slow handler delays only links of its
/// own remote address.
///
/// Threads: every operation from any thread, callbacks included. Operations
/// that wait for callbacks do not wait for one that runs on the calling
/// thread. The set-up operations come before Init.
class KQFT_API CNetWorkManageEx {
 public:
  CNetWorkManageEx();
  CNetWorkManageEx(const CNetWorkManageEx&) = delete;
  CNetWorkManageEx& operator=(const CNetWorkManageEx&) = delete;

  /// Stops the layer. Every ILinkInfo of this manager dies here.
  ~CNetWorkManageEx();

  /// Probes a silent link after `idleMs`, then every `intervalMs`; it is gone
  /// after 5 probes without an answer (tcp(7), rounded up to seconds).
  void SetKeepAlive(int idleMs, int intervalMs);

  /// Accepted and ignored: this layer has one way to transfer.
  bool SetTransferType(int, bool, int);

  /// Connections go out from this local address, and the listening socket is
  /// bound to it. "" (the default): the system chooses; listen on all.
  void SetLocalAddress(const std::string& address);

  /// Only these addresses may connect; others are closed right after accept,
  /// before any callback. None (the default): everyone may.
  void SetAllowedPeers(std::vector<CAddressRange> ranges);

  /// Bounds who else may connect. Further connections are closed right after
  /// accept; addresses that are not allowed do not count.
  void SetLinkLimits(const SLinkLimits& limits);

  /// Told of every connection that is closed so.
  /// Threads: the layer's accept thread, which accepts nothing meanwhile.
  void SetRefusalListener(std::function<void(unsigned int ip, int port, ERefusal)> listener);
  /// How long ConnectToHost waits for the other side; 10 s unless it was set.
  void SetConnectTimeout(int ms);

  /// A link ends with the first bytes on it that cannot begin a packet. Unless
  /// this was called it ends with the first whole head that is none.
  void JudgeFirstBytes();

  /// Links are read as fast as that allows. Not owned; outlives the layer's
  /// run. Null (the default): as fast as it goes.
  void SetRateLimit(IRateLimit* limit);

  /// Starts the layer.
  /// @param sink     receives every callback; must outlive Stop
  /// @param port     to listen on; 0 picks a free one (GetListenPort tells).
  ///                 Not used when m_bConnectOnly is set.
  /// @param capacity links at the same time; a further one is closed at once
  /// @return false when it cannot listen, or runs already.
  bool Init(IDealNetData* sink, int port, int capacity);

  /// The port listened on; 0 when not listening.
  int GetListenPort() const;

  /// Connects to a dotted address or host name. Returns once CreateNetBuffer
  /// and code 1 of the new link have been delivered, and after code 0 of
  /// every link that died before.
  /// Blocks: up to 10 s, or as long as SetConnectTimeout says, and as long as
  ///         it takes to look up a name; Stop ends the wait.
  bool ConnectToHost(const std::string& host, int port);

  /// Why the last ConnectToHost failed or, when it did not, why a link has
  /// ended since. kNone again after Stop.
  ELinkFailure WhyNoLink() const;

  /// Bytes that arrived on all links since Init; 0 after Stop.
  std::int64_t BytesReceived() const;

  /// Links that are up, oldest first.
  std::vector<ILinkInfo*> GetAllLinkInfo() const;

  /// The link with this remote address and port, chosen as by SendText. Inside
  /// a callback or under a CLinkBinding it may be down already.
  /// @return null if there is none
  ILinkInfo* GetLinkInfo(unsigned int ip, int port) const;

  /// Queues the first m_nDataLen bytes of `buf`. Takes the buffer whatever
  /// the result; ReleaseIOCPBuffer gives it back once. Never blocks. What is
  /// queued by DirectSendData and SendText leaves in the order of the calls.
  /// @return false for a null or malformed buffer or when the link is down.
  bool DirectSendData(ILinkInfo* link, CIOCPBuffer* buf);

  /// Sends `len` bytes, a complete packet, to the link (ip, port). The bytes
  /// are sent or copied before it returns. Never blocks. Reaches no link that
  /// CreateNetBuffer was not called for yet. Inside a callback of a link with
  /// this address and port it reaches that very link or none, never a newer
  /// one; a CLinkBinding promises more.
  /// @return false when there is no such link, or when more than 64 MiB of
  ///         such bytes wait on it already.
  bool SendText(unsigned int ip, int port, const char* data, int len);

  /// Closes every connection; code 0 of each has been delivered on return.
  bool CloseAllConnect();

  /// Stops listening, closes all connections (their code 0 is not delivered)
  /// and returns all queued buffers. No callback runs or comes after it.
  /// Init may be called again. Harmless when not started.
  void Stop();

  /// An address as dotted text, host byte order.
  static std::string TransIP(unsigned int ip);

  /// @param host dotted address or name
  /// @return the dotted IPv4 addresses that it stands for, each once; none when
  ///         it stands for none, or cannot be looked up
  /// Blocks: as name services do, some seconds at worst.
  static std::vector<std::string> AddressesOf(const std::string& host);

  /// A manager that only connects out: Init opens no listening socket.
  /// Constant once Init was called.
  bool m_bConnectOnly = false;

 private:
  struct SState;
  std::shared_ptr<CNetWorkCore> Core() const;

  std::unique_ptr<SState> m_pState;
};
