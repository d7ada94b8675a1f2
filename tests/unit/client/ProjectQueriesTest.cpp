// The client's queries and what it tells of a transfer.

#include <stdexcept>

#include "protocol/MessageCodes.h"
#include "support/TestClient.h"

namespace {

using ProjectQueries = CClientTest;

const std::string kPrefix = "CKQFileTransServiceClient::";

TEST_F(ProjectQueries, FailuresKeepTheCallersList) {
  m_system.Follow(CFaultPlan().ClockFaster(200));
  for (int code = NET_CTS_GETPRJDIR; code <= NET_CTS_GETPRJFILELIST; ++code) m_server.Silent(code);
  std::string log = "DealNetMsg NET_COMMAND_CONNECT \n";
  for (const auto& [expected, told] : {std::pair(-2, "TIMEOUT"), std::pair(-4, "SENDERROR")}) {
    std::string text = "kept";
    EXPECT_EQ(m_client.GetServerPrjList(text), expected);
    EXPECT_EQ(m_client.GetServerPrjFileList("p", text), expected);
    EXPECT_EQ(text, "kept");
    EXPECT_EQ(m_client.DeleteServerPrj("p"), expected);
    EXPECT_EQ(m_client.GetPrjDir(text), expected);
    EXPECT_EQ(text, "");
    m_client.Stop();
    log += kPrefix + "GetServerPrjList ERROR_CODE_" + told + " \n";
    log += kPrefix + "GetPrjDir return ERROR_CODE_" + told + "\n";
  }
  EXPECT_EQ(m_client.Log(), log);
}

TEST_F(ProjectQueries, ProjectDirectoryEndsWithABackslash) {
  for (const std::string dir : {"C:\\data", "C:\\data\\"}) {
    m_client.SetPrjDir(dir);
    EXPECT_EQ(m_client.m_strPrjDir, "C:\\data\\");
  }
  EXPECT_THROW(m_client.SetPrjDir(""), std::out_of_range);
}

}  // namespace
