#pragma once

#include <string>

#include "KQFileTransServiceExport.h"

class CIOCPBuffer;
class ILinkInfo;

/// How a session reaches the server it belongs to.
///
/// Threads: every operation from any thread.
class KQFT_API ITransNet {
 public:
  virtual ~ITransNet() = default;

  /// The link with this remote address and port, up or not; null if none.
  /// While a message is handled, the one on which it came.
  virtual ILinkInfo* GetLinkInfo(unsigned int ip, int port) = 0;

  /// Queues a buffer; it belongs to the network layer from now on, whatever
  /// the result. Never blocks.
  virtual bool SendText(ILinkInfo* link, CIOCPBuffer* buf) = 0;

  /// Sends a complete packet; the bytes stay the caller's. Never blocks.
  virtual bool SendText(unsigned int ip, int port, const char* data, int len) = 0;

  /// The project directory and the suffix of project files.
  virtual std::string GetFileDir() = 0;
  virtual std::string GetPrjSuffix() = 0;

  /// Whether a file must lie on the disk before its end is confirmed.
  virtual bool IsDurable() { return false; }

  /// Whether projects are deleted when a client asks for it.
  virtual bool MayDelete() { return true; }
};
