// Names that a peer sends to a server on Windows: what leads out of its
// directories, to a device, to a stream or to no file at all is refused before
// anything is opened.

#include "platform/ByteOrder.h"
#include "platform/LocalNames.h"
#include "protocol/MessageCodes.h"
#include "protocol/ResultCodes.h"
#include "support/Packets.h"
#include "support/Programs.h"
#include "support/Sockets.h"

namespace {

int Create(const CRawClient& client, const std::string& path) {
  client.Send(MakePacket(NET_CTS_PREPARETRAN_FILE, '\1' + path));
  const std::string answer = client.Receive(32);  // with its head
  return answer.size() < 32 ? 0 : ReadInt32(answer.data() + 20);
}

TEST(ProgramNames, OnlyWhatCanBeAFileBelowTheDirectoriesIsMade) {
  CServerProgram server({"--no-durable"});
  const CTempDirectory outside;
  const CRawClient client(server.Port());
  const std::string data = server.ProjectPath("");
  const std::string host = "\\\\127.0.0.1\\share\\x";
  std::vector<std::string> refused = {
      outside / "x", host,  "\\\\?\\" + data + "x", "\\\\.\\PhysicalDrive0",
      "\\x",         "C:x", data + "..\\x",         data + "P/../../x"};
  for (const char* const name : {"P\\a:stream", "P\\a::$DATA", "CON", "P\\nul.txt", "lpt9.dat",
                                 "COM\xC2\xB9", "dot.", "blank ", "a\xFF", "a*b", "a?b", "a<b",
                                 "a\x01"
                                 "b",
                                 "c:\\x"}) {
    refused.push_back(data + name);
  }
  for (const std::string& path : refused)
    EXPECT_EQ(Create(client, path), CREATE_FILE_ERROR) << path;
  for (const char* const name : {"P\\a", "..b", "CONSOLE", "COM", "\xE6\x97\xA5.txt"}) {
    EXPECT_EQ(Create(client, data + name), RESULT_OK) << name;
  }
  EXPECT_EQ(ReadTree(data).size(), 5U);
  EXPECT_TRUE(ReadTree(outside.Path()).empty());
  EXPECT_NE(server.Process().Error().find("(names checked)"), std::string::npos);
  EXPECT_EQ(FoldLocalName("\xC3\xA4.Txt"), FoldLocalName("\xC3\x84.tXT"));  // one file
}

}  // namespace
