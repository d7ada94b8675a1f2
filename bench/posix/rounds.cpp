// What stays behind in a server after many short visits: connect, one
// question, its answer, disconnect. Memory, threads and descriptors have to be
// back where they began.
//
//   kqft-rounds [ROUNDS]
//
// A server stops a session before it takes the next, for 20 ms and one at a
// time: that clock runs faster here. Visits come from many addresses, since a
// port rests after its connection. The server keeps a session for each
// address: the count begins when it has seen all of them.

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "bench/posix/Wire.h"
#include "net/NetWorkManageEx.h"
#include "protocol/MessageCodes.h"
#include "server/KQFileTransServiceServer.h"
#include "tests/support/TestSystem.h"

namespace {

constexpr int kDefaultRounds = 100000;
constexpr int kClockFactor = 100;
constexpr int kThreads = 4;
constexpr int kAddresses = 250;  // of each thread
constexpr int kFirstRounds = 5 * kThreads * kAddresses;
constexpr int kMostTries = 1000;
constexpr std::chrono::milliseconds kRetryPause(50);
constexpr int kSettleSteps = 100;
constexpr std::chrono::milliseconds kSettleStep(100);
constexpr double kGrowthMiB = 2;  // what an allocator may round

class CServer : public CKQFileTransServiceServer {
 public:
  ~CServer() override { Stop(); }
  int Port() const { return m_pPrimaryNetWork->GetListenPort(); }
};

struct SFigures {
  long m_nThreads = 0;
  long m_nDescriptors = 0;
  double m_dMiB = 0;
};

long EntriesOf(const char* directory) {
  return std::distance(std::filesystem::directory_iterator(directory), {});
}

SFigures Now() {
  std::ifstream pages("/proc/self/statm");
  double all = 0;
  double resident = 0;
  pages >> all >> resident;
  return {EntriesOf("/proc/self/task"), EntriesOf("/proc/self/fd"),
          resident * static_cast<double>(sysconf(_SC_PAGESIZE)) / (1 << 20)};
}

// The last links may still be on their way out.
SFigures Settled(const SFigures& before) {
  SFigures now = Now();
  for (int i = 0; i < kSettleSteps && (now.m_nThreads > before.m_nThreads ||
                                       now.m_nDescriptors > before.m_nDescriptors);
       ++i) {
    std::this_thread::sleep_for(kSettleStep);
    now = Now();
  }
  return now;
}

// A server that has not yet left enough of the earlier visitors closes a new
// one, who then comes again.
void Round(const std::string& from, int port, std::size_t answerBytes) {
  for (int i = 0; i < kMostTries; ++i) {
    const int fd = ConnectFrom(from, port);
    if (fd < 0) break;
    std::vector<char> answer(answerBytes);
    const bool answered =
        SendAll(fd, Packet(NET_CTS_GETPRJDIR, "")) && ReceiveAll(fd, answer.data(), answer.size());
    close(fd);
    if (answered) return;
    std::this_thread::sleep_for(kRetryPause);
  }
  std::fprintf(stderr, "kqft-rounds: a visit failed\n");
  std::_Exit(1);
}

void Visit(int port, int rounds, std::size_t answerBytes) {
  std::vector<std::thread> threads;
  for (int t = 1; t <= kThreads; ++t) {
    threads.emplace_back([=] {
      const std::string net = "127.2." + std::to_string(t) + ".";
      for (int i = 0; i < rounds / kThreads; ++i) {
        Round(net + std::to_string(1 + i % kAddresses), port, answerBytes);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
}

void Print(const char* when, const SFigures& figures) {
  std::fprintf(stderr, "  %-26s %ld threads, %ld descriptors, %.1f MiB\n", when, figures.m_nThreads,
               figures.m_nDescriptors, figures.m_dMiB);
}

}  // namespace

int main(int argc, char** argv) {
  const int rounds = argc > 1 ? std::atoi(argv[1]) : kDefaultRounds;
  const CScopedSystem system(CFaultPlan().ClockFaster(kClockFactor));
  char pattern[] = "/dev/shm/kqft-rounds.XXXXXX";
  if (mkdtemp(pattern) == nullptr) return 1;
  const std::string directory = std::string(pattern) + "/";
  SFigures idle, first, last;
  {
    CServer server;
    server.SetPrjDir(directory);
    server.SetLog(directory, false);
    if (!server.Init(0)) return 1;
    const std::size_t answerBytes = kPackHeadBytes + directory.size();
    idle = Now();
    Visit(server.Port(), kFirstRounds, answerBytes);
    first = Settled(idle);
    Visit(server.Port(), rounds, answerBytes);
    last = Settled(first);
  }
  std::filesystem::remove_all(directory);
  Print("idle:", idle);
  Print("every address known:", first);
  Print(("after " + std::to_string(rounds) + " visits:").c_str(), last);
  const bool holds = last.m_nThreads <= idle.m_nThreads &&
                     last.m_nDescriptors <= first.m_nDescriptors &&
                     last.m_dMiB <= first.m_dMiB + kGrowthMiB;
  std::fprintf(stderr, "%s %d visits leave behind %ld threads, %ld descriptors, %.1f MiB\n",
               holds ? "[holds]      " : "[falls short]", rounds, last.m_nThreads - idle.m_nThreads,
               last.m_nDescriptors - first.m_nDescriptors, last.m_dMiB - first.m_dMiB);
  return holds ? 0 : 1;
}
