// What servers may tell of a project's tree.

#include "platform/ChannelKeyValue.h"
#include "protocol/MessageCodes.h"
#include "protocol/ResultCodes.h"
#include "support/FakeServer.h"
#include "support/Packets.h"
#include "support/TestSystem.h"
#include "transfer/ProjectClient.h"

namespace {

// A server whose list depends on what is asked for.
class CTreeServer : public CFakeServer {
 public:
  using Lists = std::function<std::vector<std::string>(const std::string& asked)>;

  explicit CTreeServer(Lists lists) {
    Answer(NET_CTS_GETPRJDIR, "D\\");
    Answer(NET_CTS_REQUEST_SERVERFILESIZE, Int64(0));
    On(NET_CTS_GETPRJFILELIST, [this, lists = std::move(lists)](const std::string& asked) {
      std::vector<Channel_Key_Value> records;
      for (const std::string& name : lists(asked)) records.emplace_back().m_strName = name;
      if (!records.empty()) Send(NET_CTS_GETPRJFILELIST, PrintRecords(records));
    });
  }
  ~CTreeServer() override { Stop(); }

  SFileList List() const {
    const CTempDirectory logs;
    CProjectClient client({"127.0.0.1", Port(), "", logs.Path()});
    SFileList list;
    EXPECT_EQ(client.ListAllFiles("P", list), RESULT_OK);
    return list;
  }
};

TEST(ProjectTree, ListsThatLieEndSoon) {
  // What lies elsewhere, in a circle, or for ever deeper.
  const CTreeServer elsewhere([](const std::string&) {
    return std::vector<std::string>{"D\\P\\a\\f", "D\\P\\kqft.inventory"};
  });
  const SFileList list = elsewhere.List();
  ASSERT_EQ(list.m_vecFiles.size(), 1U);
  EXPECT_EQ(list.m_vecFiles.front().m_strName, "a/f");
  EXPECT_TRUE(list.m_bComplete);
  // P, P\a, and whether f is a directory.
  EXPECT_EQ(elsewhere.Count(NET_CTS_GETPRJFILELIST), 3U);
  const CTreeServer deeper([](const std::string& asked) {
    return std::vector<std::string>{"D\\" + asked + "\\a\\f", "D\\" + asked + "\\x"};
  });
  EXPECT_FALSE(deeper.List().m_bComplete);
  EXPECT_LT(deeper.Count(NET_CTS_GETPRJFILELIST), 500U);
}

TEST(ProjectTree, DirectoryWhoseListDoesNotComeIsTold) {
  CScopedSystem system(CFaultPlan().ClockFaster(100));
  const CTreeServer server([](const std::string& asked) {
    if (asked == "P\\b") return std::vector<std::string>();  // it does not answer
    return std::vector<std::string>{"D\\P\\b\\g", "D\\P\\c\\h"};
  });
  const SFileList list = server.List();
  EXPECT_FALSE(list.m_bComplete);
  ASSERT_EQ(list.m_vecFiles.size(), 2U);
  EXPECT_EQ(list.m_vecFiles[1].m_strName, "c/h");
  const std::vector<std::string> asked = server.Bodies(NET_CTS_GETPRJFILELIST);
  EXPECT_EQ(std::count(asked.begin(), asked.end(), "P\\b"), 2);
}

}  // namespace
