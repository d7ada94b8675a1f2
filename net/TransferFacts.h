#pragma once

#include <cstdint>
#include <string>

/// What a server's hooks are told of a link, a transfer or a request. Only the
/// library makes these, and it may add members at the end: read them where they
/// are passed, and copy single members rather than the whole.
struct STransferFacts {
  unsigned int m_nIP = 0;  ///< of the client, host byte order
  int m_nPort = 0;         ///< of its link

  /// A transfer's file, by the name that the client called it; the project of a
  /// deletion or of a list of files; otherwise "". Any bytes.
  std::string m_strPath;

  std::int64_t m_llBytes = 0;         ///< of the file, moved on this link so far
  std::int64_t m_llMilliseconds = 0;  ///< since the transfer, or the link, began
  int m_nResult = 1;                  ///< once it has ended: a code of protocol/ResultCodes.h
};

/// What was refused, and where.
enum class ERefusal {
  kAddress,       ///< a connection: its address may not connect
  kLinks,         ///< a connection: there are as many as there may be
  kAddressLinks,  ///< a connection: its address has as many as one may have
  kNewLinks,      ///< a connection: too many came within a short time
  kUpload,        ///< a file, by MayUpload
  kUploadRest,    ///< the rest of a file, by MayStore
  kDownload,      ///< a file, by MayDownload
  kDownloadRest,  ///< the rest of a file, by MaySend
  kDelete,        ///< a project, by MayDelete
};
