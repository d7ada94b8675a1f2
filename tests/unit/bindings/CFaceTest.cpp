// The C face, as a host uses it that knows nothing of C++.

#include "bindings/c/kqft.h"

#include "support/Programs.h"

namespace {

constexpr std::int64_t kBytes = 8 * kMiB;

template <typename Struct>
Struct Made() {
  Struct made = {};
  made.size = sizeof made;
  return made;
}

/// A server of the face, and a client of it that remembers what it was told.
class CFace : public testing::Test {
 protected:
  void SetUp() override {
    WriteWholeFile(m_dir / "projects/x", "");
    WriteWholeFile(m_dir / "Run/a.tm", PatternBytes(kBytes));
    WriteWholeFile(m_dir / "Run/deep/\xc3\xbc.dat", "utf-8");
    auto options = Made<kqft_server_options>();
    const std::string directory = m_dir / "projects";
    options.directory = directory.c_str();
    options.listen_address = "127.0.0.1";
    options.no_delete = options.no_durable = 1;
    options.events = 8;
    ASSERT_EQ(kqft_server_start(&options, &m_server), KQFT_OK);
    options.port = kqft_server_port(m_server);
    kqft_server* second = m_server;
    EXPECT_EQ(kqft_server_start(&options, &second), KQFT_E_LISTEN);
    EXPECT_EQ(second, nullptr);

    auto place = Made<kqft_client_options>();
    place.host = "127.0.0.1";
    place.bind_address = "127.0.0.4";
    place.port = kqft_server_port(m_server);
    place.bandwidth = "4M";  // a put takes long enough to be cancelled
    ASSERT_EQ(kqft_client_create(&place, &m_client), KQFT_OK);
    auto callbacks = Made<kqft_callbacks>();
    callbacks.user = this;
    callbacks.planned = [](void* test, std::int64_t files, std::int64_t) {
      Of(test).m_files = files;
    };
    callbacks.progress = [](void* test, const kqft_progress* now) { Of(test).OnProgress(*now); };
    callbacks.file = [](void* test, const kqft_item* item) {
      Of(test).m_ended.emplace_back(item->name);
    };
    callbacks.notice = [](void* test, std::int32_t kind, std::int32_t, const char* text) {
      Of(test).m_notices[kind] = text;
    };
    ASSERT_EQ(kqft_client_set_callbacks(m_client, &callbacks), KQFT_OK);
  }

  void TearDown() override {
    EXPECT_EQ(kqft_client_destroy(m_client), KQFT_OK);
    EXPECT_EQ(kqft_server_destroy(m_server, -1), KQFT_OK);
  }

  static CFace& Of(void* test) { return *static_cast<CFace*>(test); }

  // The first of a put ends it, after it has tried what no callback may.
  void OnProgress(const kqft_progress& now) {
    if (now.moved == 0 || m_cancelled) return;
    m_inside = {kqft_client_disconnect(m_client), kqft_client_destroy(m_client)};
    auto asked = Made<kqft_progress>();
    char file[8] = "1234567";
    EXPECT_EQ(kqft_client_progress(m_client, &asked, file, sizeof file), KQFT_OK);
    EXPECT_EQ(asked.moved, now.moved);
    EXPECT_EQ(asked.running, 1);
    EXPECT_STREQ(asked.file, std::string(now.file).substr(0, 7).c_str());
    m_cancelled = kqft_client_cancel(m_client) == KQFT_OK;
  }

  // Every event that is kept so far.
  std::vector<std::int32_t> Events() {
    std::vector<std::int32_t> kinds;
    auto event = Made<kqft_server_event>();
    while (kqft_server_next_event(m_server, 0, &event) == KQFT_OK) {
      kinds.push_back(event.kind);
      EXPECT_STREQ(event.address, "127.0.0.4");
      m_lost += event.lost;
    }
    return kinds;
  }

  CScopedSystem m_system{CFaultPlan().ClockFaster(20)};
  CTempDirectory m_dir;
  kqft_server* m_server = nullptr;
  kqft_client* m_client = nullptr;
  std::int64_t m_files = 0, m_lost = 0;
  bool m_cancelled = false;
  std::vector<std::int32_t> m_inside;
  std::vector<std::string> m_ended;
  std::map<std::int32_t, std::string> m_notices;
};

TEST_F(CFace, ProjectGoesUpWithABreakIsComparedAndComesBack) {
  const std::string run = m_dir / "Run", into = m_dir / "back";
  const char* const rules[] = {"- *.tmp"};
  WriteWholeFile(run + "/x.tmp", "left out");
  auto options = Made<kqft_options>();
  options.rules = rules;
  options.rule_count = 1;
  kqft_result* result = nullptr;
  EXPECT_EQ(kqft_client_put(m_client, run.c_str(), &options, &result), KQFT_E_CANCELLED);
  EXPECT_EQ(m_inside, std::vector<std::int32_t>(2, KQFT_E_IN_USE));
  EXPECT_EQ(m_files, 2);
  auto item = Made<kqft_item>();
  EXPECT_EQ(kqft_result_item(result, 0, &item), KQFT_OK);
  EXPECT_STREQ(item.name, "Run/a.tm");
  kqft_result_destroy(result);

  EXPECT_EQ(kqft_client_put(m_client, run.c_str(), &options, &result), KQFT_OK)
      << kqft_client_words(m_client);
  auto summary = Made<kqft_summary>();
  EXPECT_EQ(kqft_result_summary(result, &summary), KQFT_OK);
  EXPECT_EQ(summary.filtered, 1);
  EXPECT_STREQ(summary.project, "Run");
  EXPECT_EQ(kqft_result_count(result), 2);
  EXPECT_EQ(kqft_result_item(result, 0, &item), KQFT_OK);
  EXPECT_EQ(item.done, 1);
  auto file = Made<kqft_file>();
  EXPECT_EQ(kqft_result_item(result, 2, &item), KQFT_E_ARGUMENT);
  EXPECT_EQ(kqft_result_file(result, 0, &file), KQFT_E_KIND);
  file.size = sizeof file + 8;
  kqft_result_destroy(result);

  EXPECT_EQ(kqft_client_files(m_client, "Run", &result), KQFT_OK);
  EXPECT_EQ(kqft_result_file(result, 0, &file), KQFT_E_SIZE);
  file.size = sizeof file;
  EXPECT_EQ(kqft_result_file(result, 1, &file), KQFT_OK);
  EXPECT_STREQ(file.name, "deep/\xc3\xbc.dat");
  EXPECT_EQ(file.bytes, 5);
  kqft_result_destroy(result);

  WriteWholeFile(m_dir / "projects/Run/a.tm", PatternBytes(kBytes, 2));
  EXPECT_EQ(kqft_client_verify(m_client, "Run", run.c_str(), &options, &result), KQFT_E_DIFFERENT);
  auto verdict = Made<kqft_verdict>();
  EXPECT_EQ(kqft_result_verdict(result, 0, &verdict), KQFT_OK);
  EXPECT_EQ(verdict.verdict, KQFT_CHANGED);
  EXPECT_EQ(verdict.bytes, kBytes);
  kqft_result_destroy(result);
  EXPECT_EQ(kqft_client_get(m_client, "Run", into.c_str(), nullptr, nullptr), KQFT_E_INCOMPLETE);
  EXPECT_NE(std::string(kqft_client_words(m_client)), kqft_describe(KQFT_E_INCOMPLETE));

  options.whole = 1;
  EXPECT_EQ(kqft_client_put(m_client, run.c_str(), &options, nullptr), KQFT_OK);
  EXPECT_EQ(kqft_client_get(m_client, "Run", into.c_str(), nullptr, nullptr), KQFT_OK)
      << kqft_client_words(m_client);
  EXPECT_TRUE(ReadWholeFile(into + "/Run/a.tm") == ReadWholeFile(run + "/a.tm"));
  EXPECT_EQ(m_ended.back(), "Run/deep/\xc3\xbc.dat");
  EXPECT_EQ(kqft_client_delete(m_client, "Run", nullptr), KQFT_E_DELETE_REFUSED);
  EXPECT_EQ(kqft_client_delete(m_client, "..", nullptr), KQFT_FAILED);
  EXPECT_STRNE(kqft_client_words(m_client), kqft_describe(KQFT_FAILED));

  const std::vector<std::int32_t> kinds = Events();
  EXPECT_EQ(kinds.size(), 8U);  // no more are kept
  EXPECT_EQ(kinds.front(), KQFT_EVENT_CONNECTED);
  EXPECT_EQ(kqft_client_disconnect(m_client), KQFT_OK);
  EXPECT_TRUE(WaitUntil([&] { return Events() == std::vector{KQFT_EVENT_DISCONNECTED + 0}; }));
  EXPECT_GT(m_lost, 0);
  EXPECT_EQ(kqft_server_stop(m_server), KQFT_OK);
  EXPECT_EQ(kqft_client_projects(m_client, &result), KQFT_E_CLIENT_CONNECT);
  EXPECT_EQ(result, nullptr);
  auto event = Made<kqft_server_event>();
  EXPECT_EQ(kqft_server_next_event(m_server, -1, &event), KQFT_E_NO_EVENT);
}

TEST_F(CFace, ClientOfTheProtocolMovesFilesByTheirNames) {
  const std::string a = m_dir / "Run/a.tm", back = m_dir / "back\\";
  kqft_contract* client = nullptr;
  ASSERT_EQ(kqft_contract_create("127.0.0.5", nullptr, &client), KQFT_OK);
  EXPECT_EQ(kqft_contract_wait(client), KQFT_E_ARGUMENT);
  const char* directory = nullptr;
  EXPECT_EQ(kqft_contract_directory(client, &directory), KQFT_E_SENDERROR);
  ASSERT_EQ(kqft_contract_connect(client, "127.0.0.1", kqft_server_port(m_server), 60000), KQFT_OK);
  ASSERT_EQ(kqft_contract_directory(client, &directory), KQFT_OK);
  const std::string name = std::string(directory) + "P\\a.tm", none = name + "?";
  const char* const local[] = {a.c_str(), nullptr};
  const char* const names[] = {name.c_str(), none.c_str()};
  EXPECT_EQ(kqft_contract_upload(client, local, names, 2), KQFT_E_NULL);
  EXPECT_EQ(kqft_contract_upload(client, local, names, 1), KQFT_OK);
  EXPECT_EQ(kqft_contract_wait(client), KQFT_OK);
  auto state = Made<kqft_contract_state>();
  EXPECT_EQ(kqft_contract_progress(client, &state), KQFT_OK);
  EXPECT_EQ(state.done, kBytes);
  EXPECT_EQ(state.finished, 1);
  std::int64_t held = 0;
  EXPECT_EQ(kqft_contract_size(client, name.c_str(), &held), KQFT_OK);
  EXPECT_EQ(held, kBytes);
  kqft_result* result = nullptr;
  EXPECT_EQ(kqft_contract_files(client, "P", &result), KQFT_OK);
  auto record = Made<kqft_record>();
  EXPECT_EQ(kqft_result_record(result, 0, &record), KQFT_OK);
  EXPECT_EQ(record.name, name);
  kqft_result_destroy(result);
  WriteWholeFile(m_dir / "projects/P/a.tm.lost", "");
  EXPECT_EQ(kqft_contract_lost(client, name.c_str(), &result), KQFT_OK);
  kqft_result_destroy(result);

  WriteWholeFile(m_dir / "back/x", "");
  const char* const below[] = {"a.tm", "none"};
  EXPECT_EQ(kqft_contract_set_directory(client, ""), KQFT_E_ARGUMENT);
  EXPECT_EQ(kqft_contract_set_directory(client, back.c_str()), KQFT_OK);
  EXPECT_EQ(kqft_contract_download(client, below, names, 2), KQFT_OK);
  EXPECT_EQ(kqft_contract_wait(client), KQFT_E_SERVER_OPENFILE);
  EXPECT_EQ(kqft_contract_statuses(client, &result), KQFT_OK);
  EXPECT_EQ(kqft_result_record(result, 1, &record), KQFT_OK);
  EXPECT_EQ(record.status, KQFT_E_SERVER_OPENFILE);
  kqft_result_destroy(result);
  EXPECT_TRUE(ReadWholeFile(m_dir / "back/a.tm") == ReadWholeFile(a));
  EXPECT_EQ(kqft_contract_stop(client), KQFT_OK);
  EXPECT_EQ(kqft_contract_delete(client, "P"), KQFT_E_DELETE_REFUSED);
  EXPECT_EQ(kqft_contract_leave(client, name.c_str()), KQFT_OK);
  EXPECT_EQ(kqft_contract_destroy(client), KQFT_OK);
}

TEST(CFaceCodes, WhatMakesNoSenseIsRefused) {
  EXPECT_EQ(kqft_version(), 1000000);
  EXPECT_STREQ(kqft_describe(KQFT_E_CLIENT_CONNECT), "no connection to the server");
  EXPECT_STREQ(kqft_describe(2), "unknown result");
  auto place = Made<kqft_client_options>();
  kqft_client* client = nullptr;
  const auto create = [&] { return kqft_client_create(&place, &client); };
  EXPECT_EQ(create(), KQFT_E_NULL);
  place.host = "127.0.0.1";
  place.bandwidth = "fast";
  EXPECT_EQ(create(), KQFT_E_ARGUMENT);
  place.bandwidth = "10M";
  place.port = 65536;
  EXPECT_EQ(create(), KQFT_E_ARGUMENT);
  for (const std::uint32_t size : {0U, 8U, 100000U}) {
    place.size = size;
    EXPECT_EQ(create(), KQFT_E_SIZE);
  }
  place = Made<kqft_client_options>();
  place.host = "127.0.0.1";
  place.port = 1;
  ASSERT_EQ(create(), KQFT_OK);

  auto options = Made<kqft_options>();
  const char* const texts[] = {"[", nullptr};
  const auto put = [&] { return kqft_client_put(client, "/", &options, nullptr); };
  options.rules = texts;
  options.rule_count = 2;
  EXPECT_EQ(put(), KQFT_E_NULL);
  options.rule_count = -1;
  EXPECT_EQ(put(), KQFT_E_ARGUMENT);
  options.rules = nullptr;
  options.rule_count = 1;
  EXPECT_EQ(put(), KQFT_E_NULL);
  const char* const empty[] = {"- "};
  options.rules = empty;
  EXPECT_EQ(put(), KQFT_E_ARGUMENT);
  EXPECT_STREQ(kqft_client_words(client), "- : the pattern is empty");
  options = Made<kqft_options>();
  options.retries = -2;
  EXPECT_EQ(put(), KQFT_E_ARGUMENT);
  EXPECT_EQ(kqft_client_put(client, "/none", nullptr, nullptr), KQFT_FAILED);
  EXPECT_STREQ(kqft_client_words(client), "/none: no such file or directory");
  EXPECT_EQ(kqft_client_watch(client, "/none", nullptr), KQFT_FAILED);
  EXPECT_EQ(kqft_client_connect(client, 0, 0), KQFT_E_CLIENT_CONNECT);
  EXPECT_EQ(kqft_client_code(client), KQFT_E_CLIENT_CONNECT);
  EXPECT_EQ(kqft_client_destroy(client), KQFT_OK);

  EXPECT_EQ(kqft_client_put(nullptr, "", nullptr, nullptr), KQFT_E_NULL);
  EXPECT_EQ(kqft_client_cancel(nullptr), KQFT_E_NULL);
  EXPECT_EQ(kqft_contract_stop(nullptr), KQFT_E_NULL);
  EXPECT_EQ(kqft_server_port(nullptr), KQFT_E_NULL);
  EXPECT_EQ(kqft_result_count(nullptr), 0);
  EXPECT_EQ(kqft_client_destroy(nullptr), KQFT_OK);
  auto serving = Made<kqft_server_options>();
  kqft_server* server = nullptr;
  EXPECT_EQ(kqft_server_start(&serving, &server), KQFT_E_NULL);
  serving.directory = "/none";
  EXPECT_EQ(kqft_server_start(&serving, &server), KQFT_E_DIRECTORY);
  serving.directory = "/";
  serving.allowed = texts;
  serving.allowed_count = 1;
  EXPECT_EQ(kqft_server_start(&serving, &server), KQFT_E_ARGUMENT);
}

// docs/examples/roundtrip.c, built as it stands.
TEST(ProgramInC, ExampleEndsEqualAndWithAnErrorWhenTheServerIsKilled) {
  CServerProgram server;
  CTempDirectory dir;
  const auto run = [&](const std::string& into) {
    return std::make_unique<CProgram>(
        KQFT_C_PROGRAM, Arguments{"127.0.0.1", std::to_string(server.Port()), dir / "Run", into});
  };
  WriteWholeFile(dir / "Run/deep/a.dat", PatternBytes(20 * kMiB));
  const auto good = run(dir / "back");
  EXPECT_EQ(good->Wait(), 0) << good->Error();
  EXPECT_TRUE(ReadTree(dir / "back/Demo") == ReadTree(dir / "Run"));
  MakeSparseFile(dir / "Run/big.tm", 640 * kMiB);
  const auto cut = run(dir / "none");
  EXPECT_TRUE(WaitUntil([&] { return FileSize(server.ProjectPath("Demo/big.tm")) > kMiB; }));
  server.Process().Signal(SIGKILL);
  EXPECT_EQ(cut->Wait(), 1) << cut->Error();
  EXPECT_TRUE(Holds(cut->Error(), "-14: ")) << cut->Error();
}

}  // namespace
