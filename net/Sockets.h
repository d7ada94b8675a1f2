#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "net/LinkFailure.h"

/// The one contract for every socket call of the library. The build chooses
/// the implementation (`net/posix`, `net/windows`); tests put one of their
/// own in its place to play short transfers and resets.
///
/// Nothing here counts on breaking a blocked call from another thread: calls
/// that move data never block, and waits end by a handle of their own.

enum class EIoResult {
  kDone,
  kWouldBlock,
  kClosed,  ///< the other side closed, or the connection broke
};

/// One piece of a gather send.
struct SSlice {
  const char* m_pData;
  std::size_t m_nBytes;
};

/// One connected TCP stream.
///
/// Threads: one receiver, one sender; Shutdown from any thread. The
/// descriptor is closed by the destructor, after the last user has left.
class IStreamSocket {
 public:
  virtual ~IStreamSocket() = default;

  /// Waits until something arrives, then takes what is there, at most `size`
  /// bytes. kClosed at the end of the connection and after Shutdown.
  virtual EIoResult Receive(char* data, std::size_t size, std::size_t& received) = 0;

  /// Sends as much as fits now, in order. Never blocks. kDone with fewer
  /// bytes than given means that the rest would block.
  virtual EIoResult Send(const SSlice* slices, int count, std::size_t& sent) = 0;

  /// Waits until Send may do something, or until Shutdown, at most `ms`
  /// milliseconds, -1 without end.
  virtual void WaitSend(int ms) = 0;

  /// Ends the connection in both directions and every wait on it, for good.
  virtual void Shutdown() = 0;

  /// Probes a silent peer after `idleMs`, every `intervalMs`, `probes` times.
  virtual void SetKeepAlive(int idleMs, int intervalMs, int probes) = 0;

  /// How much may arrive before it is taken, for those who take it slowly. Does
  /// nothing where that cannot be set.
  virtual void SetReceiveBuffer(int /*bytes*/) {}

  /// Remote IPv4 address in host byte order, and port.
  virtual unsigned int RemoteIP() const = 0;
  virtual int RemotePort() const = 0;
};

enum class EAcceptResult {
  kAccepted,
  kOutOfResources,  ///< no descriptor left: the caller pauses and tries again
  kStopped,         ///< Stop was called
};

/// A listening socket. Threads: one accepter; Stop from any thread.
class IListenSocket {
 public:
  virtual ~IListenSocket() = default;
  virtual int Port() const = 0;

  /// Waits for the next connection.
  virtual EAcceptResult Accept(std::unique_ptr<IStreamSocket>& socket) = 0;
  virtual void Stop() = 0;
};

/// Ends a Connect that is under way, and every later one that uses it.
class IWakeHandle {
 public:
  virtual ~IWakeHandle() = default;
  virtual void Wake() = 0;
};

class ISocketSystem {
 public:
  virtual ~ISocketSystem() = default;

  /// @param address local dotted address; "" for all
  /// @param port    0 picks a free one
  /// @return null when it cannot listen there
  virtual std::unique_ptr<IListenSocket> Listen(const std::string& address, int port) = 0;

  /// @param host         dotted address or name (IPv4)
  /// @param localAddress dotted address to connect from; "" for any
  /// @param why          set when it fails
  /// @return null when it fails, takes longer than `timeoutMs`, or is woken
  virtual std::unique_ptr<IStreamSocket> Connect(const std::string& host, int port,
                                                 const std::string& localAddress, int timeoutMs,
                                                 const IWakeHandle& wake, ELinkFailure& why) = 0;

  virtual std::unique_ptr<IWakeHandle> MakeWake() = 0;

  /// @param host dotted address or name
  /// @return the dotted IPv4 addresses that it stands for; none when it stands
  ///         for none, or cannot be looked up
  virtual std::vector<std::string> AddressesOf(const std::string& host) = 0;
};

/// The implementation in force, never null.
ISocketSystem& Sockets();

/// Puts `sockets` in the place of the operating system's (null: back to
/// them) and returns what was in force. For tests.
ISocketSystem* ReplaceSockets(ISocketSystem* sockets);

ISocketSystem& NativeSockets();
