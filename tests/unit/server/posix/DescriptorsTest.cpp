// What a server holds of the system's resources, as Linux tells it.

#include <filesystem>

#include "protocol/MessageCodes.h"
#include "support/TestServer.h"

namespace {

using Descriptors = CServerTest;

TEST_F(Descriptors, ClientThatNeverReturnsCostsNoDescriptor) {
  const auto descriptors = [] {
    const std::filesystem::directory_iterator open("/proc/self/fd");
    return std::distance(begin(open), end(open));
  };
  const auto before = descriptors();
  for (unsigned int ip = 1; ip <= 3; ++ip) {
    m_server.CreateNetBuffer(ip, 1, 0, 0);
    m_server.DealNetMsg(ip, 1, NET_CTS_TRANSFILEDATA_END, 0, nullptr, 0);
    m_server.DealNetMsg(ip, 1, 0, 0, nullptr, 0);
  }
  EXPECT_EQ(descriptors(), before);
}

}  // namespace
