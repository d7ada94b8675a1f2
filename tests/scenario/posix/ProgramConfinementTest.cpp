// A kqft-server that keeps to its own: what hostile requests reach outside of
// its directories, who may connect, what may be deleted.

#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>

#include "platform/ByteOrder.h"
#include "protocol/MessageCodes.h"
#include "protocol/ResultCodes.h"
#include "support/Packets.h"
#include "support/Programs.h"
#include "support/Sockets.h"

namespace fs = std::filesystem;

namespace {

constexpr unsigned kCreateRuleset = 444;

// False, and only where that is accepted, on a kernel without Landlock.
bool KernelConfines() {
  if (syscall(kCreateRuleset, nullptr, 0, 1U) > 0) return true;
  EXPECT_NE(std::getenv("KQFT_NO_LANDLOCK"), nullptr) << "the kernel cannot confine the server";
  return false;
}

// Runs on a kernel that refuses one call, for what is started there, too.
void Refusing(unsigned call, const std::function<void()>& body) {
  std::thread([&] {
    sock_filter steps[] = {BPF_STMT(BPF_LD | BPF_W | BPF_ABS, 0),  // the call's number
                           BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, call, 0, 1),
                           BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | ENOSYS),
                           BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW)};
    const sock_fprog filter = {4, steps};
    ASSERT_EQ(prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0), 0);
    ASSERT_EQ(prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter), 0);
    body();
  }).join();
}

// Sends a request and returns the body of its answer.
std::string Ask(const CRawClient& client, int code, const std::string& body) {
  EXPECT_TRUE(client.Send(MakePacket(code, body)));
  const std::string head = client.Receive(20);
  if (head.size() < 20) return "no answer";
  EXPECT_EQ(ReadInt32(head.data() + 4), code);
  return client.Receive(static_cast<std::size_t>(ReadInt32(head.data() + 12)));
}

TEST(ProgramConfinement, NoRequestReadsMakesOrRemovesAnythingOutside) {
  if (!KernelConfines()) return;  // nothing starts then, see below
  CTempDirectory outside;
  WriteWholeFile(outside / "secret", "secret");
  WriteWholeFile(outside / "run.li", "[Lost_Pos]\nnRecordCount=1\nlost_info_0=1,2\n");
  WriteWholeFile(outside / "P/P.kqsln", "");
  const auto before = ReadTree(outside.Path());
  const CServerProgram server(Arguments{});
  const std::string projects = server.ProjectPath("");
  fs::create_directory_symlink(outside.Path(), projects + "link");
  const CRawClient client(server.Port(), "127.0.0.2");
  const std::string emptyList = Ask(client, NET_CTS_GETPRJFILELIST, "no-such-project");

  const std::string relative = fs::path(outside.Path()).lexically_relative(projects);
  const std::string ways[] = {outside.Path(), projects + relative + "/", projects + "link/",
                              "/proc/self/root" + outside.Path(),
                              "/proc/self/cwd/" + fs::relative(outside.Path()).string() + "/"};
  for (const std::string& way : ways) {
    const std::string refused = Int32(CREATE_FILE_ERROR);
    EXPECT_EQ(Ask(client, NET_CTS_PREPARETRAN_FILE, '\1' + way + "secret"), refused + Int64(6));
    EXPECT_EQ(Ask(client, NET_CTS_PREPARETRAN_FILE, '\0' + way + "secret"), refused + Int64(6));
    EXPECT_EQ(Ask(client, NET_CTS_PREPARETRAN_FILE, '\0' + way + "a/b"), refused + Int64(0));
    EXPECT_EQ(Ask(client, NET_CTS_PREPARETRANS_FILE, Int64(0) + way + "secret"),
              Int32(ERROR_CODE_SERVER_OPENFILE));
    EXPECT_EQ(Ask(client, NET_CTS_GETLOSTINFO, way + "run.tm"), Int32(ERROR_CODE_LOSTINFO_RECORD));
    EXPECT_EQ(Ask(client, NET_CTS_CHANGELOSTINFO, Int32(0) + Int64(9) + Int64(9)),
              Int32(ERROR_CODE_LOSTINFO_RECORD));
    const std::string name = fs::path(way).lexically_relative(projects).string();
    for (const std::string& directory : {name, name + "/.", name + "P"}) {
      EXPECT_EQ(Ask(client, NET_CTS_GETPRJFILELIST, directory), emptyList);
      EXPECT_EQ(Ask(client, NET_CTS_DELETEPRJ, directory), Int32(RESULT_OK));
    }
    EXPECT_EQ(ReadTree(outside.Path()), before) << way;
    EXPECT_FALSE(fs::exists(outside / "a")) << way;
  }
  EXPECT_EQ(Ask(client, NET_CTS_PREPARETRANS_FILE, Int64(0) + "/proc/self/environ"),
            Int32(ERROR_CODE_SERVER_OPENFILE));
  EXPECT_EQ(Ask(client, NET_CTS_PREPARETRAN_FILE, '\0' + std::string("/proc/self/comm")),
            Int32(CREATE_FILE_ERROR) + Int64(0));
}

TEST(ProgramConfinement, ConfinedServerDoesAllItIsThereFor) {
  if (!KernelConfines()) return;
  const CTempDirectory audit;
  CServerProgram server(Arguments{"--no-delete", "--access-log", audit / "log"});
  EXPECT_NE(server.Process().Error().find(" (confined)\n"), std::string::npos);
  const CWorkstation station(server.Port());
  CTempDirectory local;
  WriteWholeFile(local / "P/deep/Run.tm", PatternBytes(200000));
  WriteWholeFile(server.ProjectPath("P/deep/Run.li"),
                 "[Lost_Pos]\nnRecordCount=1\nlost_info_0=0,5\n");
  for (int round = 0; round < 2; ++round) {  // the second one overwrites
    WriteWholeFile(local / "P/P.kqsln", std::to_string(round));
    EXPECT_EQ(station.Start({"put", local / "P"})->Wait(), 0);
  }
  EXPECT_NE(ReadWholeFile(server.ProjectPath("P/deep/Run.li")).find("=5,0\n"), std::string::npos);
  const auto rm = station.Run({"rm", "--yes", "P"});
  EXPECT_EQ(rm->Wait(), 1);
  EXPECT_NE(rm->Error().find("refused: the server deletes no projects"), std::string::npos);
  fs::rename(audit / "log", audit / "old");
  server.Process().Signal(SIGHUP);
  EXPECT_TRUE(WaitUntil([&] { return fs::exists(audit / "log"); }));
  EXPECT_NE(ReadWholeFile(audit / "old").find("\"what\":\"delete\",\"why\":\"forbidden\""),
            std::string::npos);
  EXPECT_EQ(station.Start({"get", "P", "--into", local / "back"})->Wait(), 0);
  EXPECT_EQ(ReadWholeFile(local / "back/P/P.kqsln"), "1");
  EXPECT_TRUE(ReadWholeFile(local / "back/P/deep/Run.tm") == PatternBytes(200000));
  server.Process().Signal(SIGTERM);
  EXPECT_EQ(server.Process().Wait(), 0) << server.Process().Error();
  const std::string log = ReadWholeFile(audit / "log");
  EXPECT_NE(log.find("\"project\":\"P\",\"name\":\"deep/Run.tm\",\"bytes\":200000,"),
            std::string::npos);
  EXPECT_EQ(log.back(), '\n');
}

TEST(ProgramConfinement, ServerThatCannotConfineItselfSaysHowToGoWithout) {
  Refusing(kCreateRuleset, [] {
    CTempDirectory directory;
    CProgram refused(KQFT_SERVER_PROGRAM,
                     {"--dir", directory.Path(), "--log-dir", directory.Path(), "--port", "0"});
    EXPECT_EQ(refused.Wait(), 1);
    EXPECT_NE(refused.Error().find("--no-confine"), std::string::npos) << refused.Error();
    CServerProgram server({"--no-confine"});
    EXPECT_NE(server.Process().Error().find(" (not confined)\n"), std::string::npos);
  });
}

TEST(ProgramConfinement, ServerConfirmsWhatLiesOnTheDiskUnlessToldNotToWait) {
  Refusing(SYS_fsync, [] {
    for (const Arguments& more : {Arguments{"--no-confine"}, {"--no-confine", "--no-durable"}}) {
      CServerProgram server(more);
      const CRawClient client(server.Port(), "127.0.0.2");
      Ask(client, NET_CTS_PREPARETRAN_FILE, '\1' + server.ProjectPath("file"));
      const int first = more.size() == 1 ? NET_STC_WRITEDATA_ERROR : NET_CTS_TRANSFILEDATA_END;
      client.Send(MakePacket(NET_CTS_TRANSFILEDATA_END));
      EXPECT_EQ(ReadInt32((client.Receive(20) + "none").data() + 4), first) << more.back();
    }
  });
}

TEST(ProgramConfinement, OnlyAllowedPeersAreServed) {
  CServerProgram server(
      {"--no-confine", "--allow", "127.0.0.2", "--allow", "127.8.0.0/16", "--suffix", ".mark"});
  WriteWholeFile(server.ProjectPath("Marked/x.mark"), "");
  for (const char* stranger : {"127.0.0.3", "127.9.0.0", "127.7.255.255"}) {
    EXPECT_TRUE(CRawClient(server.Port(), stranger).WaitClosed());
  }
  for (const char* friendly : {"127.0.0.2", "127.8.255.1"}) {
    EXPECT_EQ(Ask(CRawClient(server.Port(), friendly), NET_CTS_GETPRJDIR, ""),
              server.ProjectPath(""));
  }
  EXPECT_NE(Ask(CRawClient(server.Port(), "127.0.0.2"), NET_CTS_GETPRJLIST, "").find("Marked"),
            std::string::npos);
  EXPECT_EQ(server.Process().Output().find("127.0.0.3"), std::string::npos);
  CTempDirectory directory;
  WriteWholeFile(directory / "conf", "allow = 10.0.0.0/8\nport = 0\nallow = 10.0.0.1/8\n");
  for (const Arguments& wrong : {Arguments{"--allow", "10.0.0.1/8"}, Arguments{"--allow", ""},
                                 Arguments{"--config", directory / "conf"}}) {
    Arguments arguments = {"--dir", directory.Path()};
    arguments.insert(arguments.end(), wrong.begin(), wrong.end());
    CProgram program(KQFT_SERVER_PROGRAM, arguments);
    EXPECT_EQ(program.Wait(), 2);
    EXPECT_NE(program.Error().find("--allow"), std::string::npos) << program.Error();
  }
}

}  // namespace
