#pragma once

#include "KQFileTransServiceExport.h"

class CIOCPBuffer;
class CNetBuffer;

/// Takes back send buffers that the network layer is done with.
class KQFT_API IReleaseBuffer {
 public:
  virtual ~IReleaseBuffer() = default;

  /// Called exactly once for each buffer given to DirectSendData, sent or
  /// not. The default destroys the buffer.
  /// Threads: a thread of the layer, never the one that called
  ///          DirectSendData. Must not block for long: the link's sending
  ///          waits for it.
  virtual bool ReleaseIOCPBuffer(CIOCPBuffer* buf);
};

/// Receives what happens on the links of one CNetWorkManageEx.
///
/// Threads: threads of the layer. Calls for one link come one at a time, in
/// the order CreateNetBuffer, code 1, packets, code 0; links of one remote
/// address never call at the same time; links of different addresses do. No
/// lock of the layer is held during a call, so every operation of the manager
/// may be called from it.
class KQFT_API IDealNetData : public IReleaseBuffer {
 public:
  /// One event on the link (`ip`, `port`).
  /// @param code    1 the link is up; 0 it is gone; else a packet's code
  /// @param bodyLen bytes at `body`
  /// @param body    valid only during the call; null when bodyLen is 0
  virtual bool DealNetMsg(unsigned int ip, int port, int code, int bodyLen, const char* body,
                          int extra) = 0;

  /// Called for a new link before anything else of it.
  /// @return the parser of the link's packets, owned by the implementation
  ///         and alive as long as the layer runs; null closes the link. A
  ///         parser handed out again serves the newest link only: what
  ///         arrives on the older one is discarded.
  virtual CNetBuffer* CreateNetBuffer(unsigned int ip, int port, int, int) = 0;

  /// Not used by this layer; returns false.
  virtual bool GetExternalBuffer(unsigned int ip, int port, int, char*& buf, int& len, int);
};
