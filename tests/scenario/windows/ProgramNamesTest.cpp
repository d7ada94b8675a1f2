// Names that a peer sends on Windows: what leads out of the directories, to a
// device, to a stream or to no file at all is refused before anything is opened.

#include "platform/LocalNames.h"
#include "protocol/MessageCodes.h"
#include "protocol/ResultCodes.h"
#include "support/FakeServer.h"
#include "support/Packets.h"
#include "support/Programs.h"
#include "support/Sockets.h"

namespace {

int Create(const CRawClient& client, const std::string& path) {
  return ReadInt32(Ask(client, NET_CTS_PREPARETRAN_FILE, '\1' + path).data());
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
  for (const char* const clash : {"P\\A", "p\\b"}) {
    EXPECT_EQ(Create(client, data + clash), CREATE_FILE_ERROR) << clash;
  }
  EXPECT_EQ(ReadTree(data).size(), 5U);
  EXPECT_TRUE(ReadTree(outside.Path()).empty());
  EXPECT_NE(server.Process().Error().find("(names checked)"), std::string::npos);
  EXPECT_EQ(FoldLocalName("\xC3\xA4.Txt"), FoldLocalName("\xC3\x84.tXT"));  // one file
}

TEST(ProgramNames, WhatAServerListsIsFetchedOnlyWhereItCanBeAFile) {
  CFakeServer fake;
  const CWorkstation station(fake.Port());
  const CTempDirectory local;
  const std::vector<std::string> names = {"good",
                                          "\\\\127.0.0.1\\share\\x",
                                          "\\\\?\\C:\\x",
                                          "\\\\.\\pipe\\x",
                                          "C:\\x",
                                          "C:x",
                                          "D\\P\\..\\..\\x",
                                          "D\\P\\a:s",
                                          "D\\P\\con",
                                          "D\\P\\d\\nul.txt",
                                          "D\\P\\a.",
                                          "D\\P\\a ",
                                          "D\\P\\a\xFF",
                                          "D\\P\\a*",
                                          "D\\P\\\\\\h\\x",
                                          "D\\P\\GOOD"};
  std::vector<Channel_Key_Value> records;
  for (const std::string& name : names) {
    Channel_Key_Value record;
    record.m_strName = name == "good" ? "D\\P\\good" : name;
    record.m_strPath = name;
    record.m_llSize = 1;
    records.push_back(record);
  }
  fake.Answer(NET_CTS_GETPRJDIR, "D\\");
  fake.Answer(NET_CTS_GETPRJFILELIST, PrintRecords(records));
  fake.Answer(NET_CTS_REQUEST_SERVERFILESIZE, Int64(1));
  fake.On(NET_CTS_PREPARETRANS_FILE, [&](const std::string&) {
    fake.Send(NET_CTS_PREPARETRANS_FILE, Int32(1));
    fake.Send(2506, Int64(0) + "x");
    fake.Send(2507, Int32(1));
  });
  const auto get =
      station.Run({"get", "P", "--no-inventory", "--retries", "0", "--into", local.Path()});
  EXPECT_EQ(get->Wait(), 1);
  EXPECT_EQ(ReadTree(local.Path()),
            (std::map<std::string, std::string>{{"P/GOOD", "x"}, {"P/x", "x"}}))
      << get->Error();
  EXPECT_NE(get->Error().find("P/good: another file would"), std::string::npos) << get->Error();
  fake.Stop();
}

}  // namespace
