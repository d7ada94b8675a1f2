#pragma once

#include <cstdint>
#include <string>

#include "net/LinkEvents.h"

/// The messages between client and server. One list yields their codes, names
/// and range; what they carry stands in protocol/Messages.h, and byte by byte
/// in docs/protocol.md.
///
/// X(name, code, who sends it unasked, answered, meaning): "answered" ones get
/// a message of the same code, each exactly one, at once. A 2503 is not: its
/// answer comes from the sender of a download, where one runs.
#define KQFT_MESSAGES(X)                                                              \
  X(NET_CTS_PREPARETRAN_FILE, 2500, kClient, true, "announce a file to receive")      \
  X(NET_CTS_TRANSFILEDATA, 2501, kClient, false, "upload data")                       \
  X(NET_CTS_TRANSFILEDATA_END, 2502, kClient, true, "end of an uploaded file")        \
  X(NET_CTS_TRANS_STOP, 2503, kClient, false, "stop a download")                      \
  X(NET_CTS_REQUEST_SERVERFILESIZE, 2504, kClient, true, "total size of files")       \
  X(NET_CTS_PREPARETRANS_FILE, 2505, kClient, true, "ask for a file")                 \
  X(NET_STC_TRANSFILEDATA, 2506, kServer, false, "download data")                     \
  X(NET_STC_TRANSFILEDATA_END, 2507, kServer, false, "end of a downloaded file")      \
  X(NET_STC_WRITEDATA_ERROR, 2508, kServer, false, "upload data could not be stored") \
  X(NET_CTS_GETLOSTINFO, 2509, kClient, true, "ask for missing ranges")               \
  X(NET_CTS_CHANGELOSTINFO, 2510, kClient, true, "report a resent range")             \
  X(NET_CTS_GETPRJDIR, 2511, kClient, true, "ask for the project directory")          \
  X(NET_CTS_GETPRJLIST, 2512, kClient, true, "ask for the list of projects")          \
  X(NET_CTS_DELETEPRJ, 2513, kClient, true, "delete a project")                       \
  X(NET_CTS_GETPRJFILELIST, 2514, kClient, true, "ask for the files of a project")

enum EMessageCode : int {
#define KQFT_MESSAGE_CODE(name, code, sender, answered, meaning) name = (code),
  KQFT_MESSAGES(KQFT_MESSAGE_CODE)
#undef KQFT_MESSAGE_CODE
};

enum class ESender { kClient, kServer };

/// One message of the list.
struct SMessage {
  int m_nCode;
  const char* m_pName;
  ESender m_sender;
  bool m_bAnswered;
};

/// All messages, in the order of their codes, which follow each other.
#define KQFT_MESSAGE_ENTRY(name, code, sender, answered, meaning) \
  {(code), #name, ESender::sender, (answered)},
constexpr SMessage kMessages[] = {KQFT_MESSAGES(KQFT_MESSAGE_ENTRY)};
#undef KQFT_MESSAGE_ENTRY

constexpr int kMessageCount = sizeof kMessages / sizeof kMessages[0];
constexpr int kFirstMessage = kMessages[0].m_nCode;
constexpr int kLastMessage = kMessages[kMessageCount - 1].m_nCode;
static_assert(kLastMessage == kFirstMessage + kMessageCount - 1);

/// Names of channel lists in project files; kept for hosts, read by nothing here.
const std::string kMultiChannel = "MultiChannel";
const std::string kGroupChannelManage = "GroupChannelManage";
