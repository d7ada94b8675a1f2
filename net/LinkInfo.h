#pragma once

#include "KQFileTransServiceExport.h"

/// One connection, as its users see it. Owned by the manager and valid until
/// the manager is destroyed, also long after the connection has gone: it then
/// answers IsLink with false.
///
/// Threads: every operation from any thread.
class KQFT_API ILinkInfo {
 public:
  virtual ~ILinkInfo() = default;

  /// True while the connection is up.
  virtual bool IsLink() const = 0;

  /// Remote IPv4 address, host byte order (127.0.0.1 is 0x7f000001).
  virtual unsigned int GetIP() const = 0;

  /// Remote port.
  virtual int GetPort() const = 0;

  /// For a thread that is about to send one of many packets: waits until
  /// fewer than 16 buffers (48 small ones) are queued, sending them meanwhile.
  /// The thread is expected back: its next packet may be kept until it asks
  /// again, 20 ms at most, so that several leave in one call.
  /// @return true when there is room, and also when waiting is of no use: the
  ///         link is down, or the caller is a thread of the layer. False when
  ///         there is none after about `ms` milliseconds.
  virtual bool WaitSendRoom(int ms);
};
