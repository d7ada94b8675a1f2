#pragma once

#include <string>

#include "KQFileTransServiceExport.h"
#include "net/TransferFacts.h"

class CIOCPBuffer;
class ILinkInfo;

/// How a session reaches the server it belongs to, and what the server hears of
/// its work.
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

  /// Hooks. A server overrides what it wants to decide or to hear of; without
  /// that everything is allowed.
  ///
  /// Threads: the link's delivery thread; of a running download, its sender
  ///          thread; of the end of an upload, also the thread that stops the
  ///          server. Those of different clients run at the same time.
  /// Must not block for long, since the link waits, and not call Stop.

  /// Whether a client may send this file. Otherwise it is told -8, as when the
  /// file cannot be created, and nothing is touched.
  virtual bool MayUpload(const STransferFacts&) { return true; }

  /// Whether its next MiB may be stored; asked before its first byte, too.
  /// Otherwise that fails as on a full disk: what has arrived stays, the client
  /// is told -10.
  virtual bool MayStore(const STransferFacts&) { return true; }

  /// Whether a client may fetch this file. Otherwise it is told -7, as when the
  /// file cannot be opened.
  virtual bool MayDownload(const STransferFacts&) { return true; }

  /// Whether its next MiB may be sent. Otherwise the download ends with -28.
  virtual bool MaySend(const STransferFacts&) { return true; }

  /// Whether this project may be deleted. Otherwise it stays, and the client is
  /// told that it was refused.
  virtual bool MayDelete(const STransferFacts&) { return true; }

  /// The transfer of a file has ended, or did not begin: m_nResult is 1 when it
  /// came to its end, -9 when an upload was cut off (the link is gone, the
  /// server stops, another file was begun), -28 when a download was. One that
  /// was refused by a hook is not told here.
  virtual void OnUploaded(const STransferFacts&) {}
  virtual void OnDownloaded(const STransferFacts&) {}

  /// The list of projects was sent, or that of a project's files.
  virtual void OnProjectsListed(const STransferFacts&) {}
  virtual void OnFilesListed(const STransferFacts&) {}

  /// A deletion was carried out. m_nResult is 1 when the project is gone, 0 when
  /// it was not there or could not be removed altogether.
  virtual void OnDeleted(const STransferFacts&) {}

  /// Something was refused by a hook above, or a connection by the network
  /// layer, on its accept thread.
  virtual void OnRefused(const STransferFacts&, ERefusal) {}
};
