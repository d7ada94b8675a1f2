// A kqft-server that keeps to its own: what hostile requests reach outside of
// its directories.

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

}  // namespace
