// The client's queries and what it tells of a transfer.

#include <stdexcept>

#include "protocol/MessageCodes.h"
#include "support/TestClient.h"

namespace {

const std::string kPrefix = "CKQFileTransServiceClient::";

TEST(ProjectQueries, AnswersAreHandedOverUnchanged) {
  CFakeServer server;
  CTestClient client(server);
  const std::string list = PatternBytes(3 << 20);  // one message
  server.Answer(NET_CTS_GETPRJDIR, "D:\\data\\");
  server.Answer(NET_CTS_GETPRJLIST, list);
  server.Answer(NET_CTS_GETPRJFILELIST, "");
  std::string text = "old";
  EXPECT_EQ(client.GetPrjDir(text), 1);
  EXPECT_EQ(client.GetPrjDir(text), 1);
  EXPECT_EQ(text, "D:\\data\\");
  EXPECT_EQ(server.Bodies(NET_CTS_GETPRJDIR).size(), 2U) << "never answered from memory";
  EXPECT_EQ(client.GetServerPrjList(text), 1);
  EXPECT_TRUE(text == list);
  EXPECT_EQ(client.GetServerPrjFileList("Run 1", text), 1);
  EXPECT_EQ(text, "");
  EXPECT_EQ(client.DeleteServerPrj("Run 2"), 1);
  EXPECT_EQ(server.Bodies(NET_CTS_GETPRJFILELIST), std::vector<std::string>{"Run 1"});
  EXPECT_EQ(server.Bodies(NET_CTS_DELETEPRJ), std::vector<std::string>{"Run 2"});
  const std::string found = kPrefix + "GetPrjDir RESULT_OK end strPrjDir = D:\\data\\ \n";
  EXPECT_EQ(client.Log(), "DealNetMsg NET_COMMAND_CONNECT \n" + found + found + kPrefix +
                              "GetServerPrjList end\n");
}

TEST(ProjectQueries, FailuresKeepTheCallersList) {
  CScopedSystem system(CFaultPlan().ClockFaster(200));
  CFakeServer server;
  for (int code = NET_CTS_GETPRJDIR; code <= NET_CTS_GETPRJFILELIST; ++code) server.Silent(code);
  CTestClient client(server);
  for (const int expected : {-2, -4}) {
    std::string text = "kept";
    EXPECT_EQ(client.GetServerPrjList(text), expected);
    EXPECT_EQ(client.GetServerPrjFileList("p", text), expected);
    EXPECT_EQ(text, "kept");
    EXPECT_EQ(client.DeleteServerPrj("p"), expected);
    EXPECT_EQ(client.GetPrjDir(text), expected);
    EXPECT_EQ(text, "");
    client.Stop();
  }
  EXPECT_EQ(client.Log(), "DealNetMsg NET_COMMAND_CONNECT \n" + kPrefix +
                              "GetServerPrjList ERROR_CODE_TIMEOUT \n" + kPrefix +
                              "GetPrjDir return ERROR_CODE_TIMEOUT\n" + kPrefix +
                              "GetServerPrjList ERROR_CODE_SENDERROR \n" + kPrefix +
                              "GetPrjDir return ERROR_CODE_SENDERROR\n");
}

TEST(ProjectQueries, ProjectDirectoryEndsWithABackslash) {
  CTestClient client;
  client.SetPrjDir("C:\\data");
  EXPECT_EQ(client.m_strPrjDir, "C:\\data\\");
  client.SetPrjDir("C:\\data\\");
  EXPECT_EQ(client.m_strPrjDir, "C:\\data\\");
  EXPECT_THROW(client.SetPrjDir(""), std::out_of_range);
}

}  // namespace
