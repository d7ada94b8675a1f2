// What servers write about themselves, and the page that is made of it.

#include <filesystem>
#include <regex>

#include "support/Programs.h"
#include "support/Sockets.h"

namespace fs = std::filesystem;

namespace {

std::string Fetch(int port, const std::string& path) {
  const CRawClient client(port);
  client.Send("GET " + path + " HTTP/1.1\r\nHost: here\r\nConnection: close\r\n\r\n");
  return client.Receive(std::size_t{1} << 24);
}

TEST(ProgramStatus, DirectoryThatIsFullOrGoneIsToldOnceAndTriedAgain) {
  const CTempDirectory directory;
  const std::string status = directory / "status";
  CServerProgram server(
      {"--no-confine", "--no-durable", "--status-dir", status, "--status-every", "1"});
  const auto tells = [&](const std::string& what) {
    return WaitUntil([&] {
      return server.Process().Error().ends_with("status directory " + status + ": " + what + "\n");
    });
  };
  EXPECT_TRUE(WaitUntil([&] { return FileSize(status + "/kqft.prom") > 0; }));
  fs::create_symlink("/dev/full", status + "/status.json.new");
  EXPECT_TRUE(tells("is written again"));
  EXPECT_NE(server.Process().Error().find(": No space left on device\n"), std::string::npos);
  fs::remove_all(status);
  EXPECT_TRUE(tells("No such file or directory"));
  EXPECT_EQ(CWorkstation(server.Port()).Start({"ls"})->Wait(), 0);
  fs::create_directory(status);
  EXPECT_TRUE(tells("is written again"));
  server.Process().Signal(SIGTERM);
  EXPECT_EQ(server.Process().Wait(), 0);
  EXPECT_NE(ReadWholeFile(status + "/status.json").find("\"state\":\"ended\""), std::string::npos);
}

TEST(ProgramStatus, PageShowsServersAndBelievesNoFile) {
  const CTempDirectory directory;
  CServerProgram server(
      {"--no-confine", "--no-durable", "--status-dir", directory.Path(), "--status-every", "1"});
  const CRawClient client(server.Port(), "127.0.0.2");
  const std::string live = directory / "status.json";
  const std::string hostile =
      R"({"format":1,"host":"<script>alert(1)</script>","listen":"\"'&\u0001:1","every_seconds":1e300,
          "free_bytes":1e300,"total_bytes":-1,"seconds":"x",
          "results":[{"result":"failed","today":1e300},{"result":"failed","today":1e300},
          {"event":"download","result":"failed","code_name":"ERROR_CODE_SERVER_OPENFILE","today":7}],
          "refusals":[[],7,{"today":1}],
          "links":[7,{"address":null,"bytes_per_second":-5,"transfers":[{"name":"</bdi><img src=x>",
          "bytes":99999999999999999999}]}]})";
  WriteWholeFile(directory / "hostile\"\n.json", hostile);
  WriteWholeFile(directory / "old", R"({"format":1,"host":"ancient","every_seconds":5})");
  fs::last_write_time(directory / "old", fs::file_time_type::clock::now() - std::chrono::hours(2));
  WriteWholeFile(directory / "half", hostile.substr(0, hostile.size() / 2));
  WriteWholeFile(directory / "deep", std::string(1 << 20, '['));
  MakeSparseFile(directory / "long", std::int64_t{1} << 30);
  Arguments arguments = {"--listen", "127.0.0.1:0", live, live};
  for (const char* name : {"hostile\"\n.json", "old", "half", "deep", "long", "none", "."}) {
    arguments.push_back(directory / name);
  }
  CProgram program(KQFT_STATUS_PROGRAM, arguments);
  const std::string ready = "listening on http://127.0.0.1:";
  ASSERT_TRUE(WaitUntil([&] { return program.Error().ends_with("/\n"); })) << program.Error();
  const int port = std::stoi(program.Error().substr(ready.size()));

  // The server's next file has the client, the hostile one another.
  EXPECT_TRUE(
      WaitUntil([&] { return Holds(Fetch(port, "/main.html"), "<b>3</b> <span>clients"); }));
  const std::string page = Fetch(port, "/");
  for (const char* told :
       {"<!doctype html>", "Content-Security-Policy: default-src 'none';",
        "<b>2</b> <span>of 8 servers", "<b>2000000000001</b> <span>failed",
        "&lt;script&gt;alert(1)&lt;/script&gt;", "&lt;/bdi&gt;&lt;img src=x&gt;",
        "gone</b> <span><bdi>last heard of 2:00:", "half: it is not whole, or no status file",
        "deep: it is not whole", "long: it is longer than any status file", "none</bdi>",
        "it is no file"}) {
    EXPECT_TRUE(Holds(page, told)) << told;
  }
  EXPECT_FALSE(Holds(page, "<script>") || Holds(page, "<img"));
  EXPECT_TRUE(Holds(Fetch(port, "/status.json"), "\"state\":\"no file\""));

  std::string metrics = Fetch(port, "/metrics");
  metrics.erase(0, metrics.find("\r\n\r\n") + 4);
  EXPECT_TRUE(Holds(metrics, "kqft_server_up{file=\"" + live + "\"} 1\n"));
  const std::regex form(
      R"((# (HELP|TYPE) .*\n|[a-z_]+\{[a-z]+="([^"\\\n]|\\["\\n])*"(,[a-z]+="[^"]*")*\} -?[0-9]+\n)+)");
  EXPECT_TRUE(std::regex_match(metrics, form)) << metrics;
  EXPECT_TRUE(std::regex_match(ReadWholeFile(directory / "kqft.prom"), form));
  EXPECT_EQ(Fetch(port, "/../etc/passwd").substr(0, 12), "HTTP/1.1 404");
  program.Signal(SIGTERM);
  EXPECT_EQ(program.Wait(), 0);
  EXPECT_EQ(CProgram(KQFT_STATUS_PROGRAM, {"--listen", "127.0.0.1", live}).Wait(), 2);
}

}  // namespace
