// Our headers stay usable behind <windows.h>, which turns common words into
// macros. The macros below are those of it that have hurt others.

#include <algorithm>
#include <climits>
#include <condition_variable>
#include <deque>
#include <functional>
#include <list>
#include <set>
#include <unordered_map>

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

#include "all_headers.h"

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
