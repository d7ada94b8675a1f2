// Which logs the programs remove.

#include "programs/OldLogs.h"

#include <filesystem>
#include <set>

#include "support/HostFiles.h"
#include "support/TestSystem.h"

namespace fs = std::filesystem;

namespace {

std::set<std::string> Names(const std::string& directory) {
  std::set<std::string> names;
  for (const auto& entry : fs::directory_iterator(directory)) {
    names.insert(entry.path().filename().string());
  }
  return names;
}

TEST(OldLogs, OnlyOldFilesWithTheNamesOfAProgramsLogsGo) {
  const CTempDirectory logs;
  const auto make = [&](const std::string& name, int days) {
    WriteWholeFile(logs / name, "x");
    fs::last_write_time(logs / name,
                        fs::file_time_type::clock::now() - std::chrono::hours(24 * days));
  };
  const std::set<std::string> client = {"ServiceClient_1500000000",
                                        "ServiceClientdata_1.example_1500000001"};
  const std::set<std::string> server = {"KQFileTransServer_2017-07-14_02-40-00",
                                        "10.0.0.5_2017-07-14_02-40-01"};
  const std::set<std::string> others = {"ServiceClient_15000000x0",
                                        "ServiceClient_",
                                        "turn-0123456789abcdef",
                                        "KQFileTransServer_2017-07-14",
                                        "a10.0.0.5_2017-07-14_02-40-01",
                                        "_2017-07-14_02-40-01",
                                        "2017-07-14_02-40-01"};
  for (const auto* names : {&client, &server, &others}) {
    for (const std::string& name : *names) make(name, 31);
  }
  const std::string used = "ServiceClient_1400000000", usedThere = "10.0.0.6_2016-07-14_02-40-01";
  make(used, 29);
  make(usedThere, 29);
  fs::create_directory(logs / "ServiceClient_1500000002");
  MakeLink(logs / used, logs / "ServiceClient_1500000003");
  const std::size_t all = Names(logs.Path()).size();
  RemoveOldLogs(logs.Path(), ELogs::kClient, 0);
  RemoveOldLogs(logs / "nosuch", ELogs::kClient, 30);
  EXPECT_EQ(Names(logs.Path()).size(), all);
  RemoveOldLogs(logs.Path(), ELogs::kClient, 30);
  for (const std::string& name : client) EXPECT_FALSE(Names(logs.Path()).contains(name)) << name;
  EXPECT_EQ(Names(logs.Path()).size(), all - client.size());
  RemoveOldLogs(logs.Path(), ELogs::kServer, 30);
  for (const std::string& name : server) EXPECT_FALSE(Names(logs.Path()).contains(name)) << name;
  EXPECT_EQ(Names(logs.Path()).size(), all - client.size() - server.size());
}

}  // namespace
