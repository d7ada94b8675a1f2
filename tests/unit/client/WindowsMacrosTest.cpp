// Our headers stay usable behind <windows.h>, which turns common words into
// macros. The macros below are those of it that have hurt others.

#include <algorithm>
#include <climits>
#include <condition_variable>
#include <cstring>
#include <functional>
#include <list>

#define SendMessage SendMessageW
#define GetObject GetObjectW
#define CreateFile CreateFileW
#define DeleteFile DeleteFileW
#define min(a, b) (((a) < (b)) ? (a) : (b))
#define max(a, b) (((a) > (b)) ? (a) : (b))
#define small char
#define interface struct
#define near
#define far
#define ERROR 0
#define IN
#define OUT

#include "client/KQFileTransServiceClient.h"
#include "net/DealNetData.h"
#include "net/IOCPBuffer.h"
#include "net/LinkEvents.h"
#include "net/LinkInfo.h"
#include "net/NetBuffer.h"
#include "net/NetWorkManageEx.h"
#include "net/NetWorkPackHead.h"
#include "net/TransNet.h"
#include "platform/ByteOrder.h"
#include "platform/ChannelKeyValue.h"
#include "platform/ExpertUtils.h"
#include "platform/FileConfig.h"
#include "platform/FileDataPos.h"
#include "platform/GBKUTF8Transfer.h"
#include "platform/HardWareCommon.h"
#include "platform/KQEvent.h"
#include "platform/KQFile.h"
#include "platform/KQPlatForm.h"
#include "platform/KQThread.h"
#include "platform/LogFile.h"
#include "platform/SharedWord.h"
#include "platform/System.h"
#include "platform/ThreadGate.h"
#include "platform/ThreadLock.h"
#include "platform/TimeConvert.h"
#include "protocol/DataPacket.h"
#include "protocol/MessageCodes.h"
#include "protocol/ResultCodes.h"
#include "protocol/TransferTypes.h"

namespace {

class CWindowsHost : public CKQFileTransServiceClient {
 public:
  ~CWindowsHost() override { Stop(); }
  bool Ask() { return SendMessage(NET_CTS_GETPRJDIR, nullptr, 0); }
};

TEST(WindowsMacros, HostThatIncludesWindowsHeadersFirstCanSendMessages) {
  CWindowsHost host;
  EXPECT_FALSE(host.Ask());  // compiled and linked; there is no link to send on
}

}  // namespace
