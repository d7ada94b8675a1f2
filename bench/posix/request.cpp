// Question and answer: the time of a 2511 beside that of a bare TCP echo of
// the same bytes, first on an idle server, then while others download.
//
//   kqft-request [LOADERS]
//
// The system places two threads that take turns now on one processor and now
// on two, for whole runs, and that makes more of a difference than what is
// compared. So the idle server is asked once more from a processor that nobody
// else has, as a workstation would; the bar is on the placement of the system.

#include <algorithm>
#include <atomic>
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
#include "protocol/Messages.h"
#include "server/KQFileTransServiceServer.h"

namespace {

constexpr int kTurns = 50;  // of each; a moment that is slow for one is so for both
constexpr int kQuestionsPerTurn = 200;
constexpr int kDefaultLoaders = 8;
constexpr double kMostEchoes = 2.0;  // that one question may cost
constexpr std::int64_t kLoadFileBytes = std::int64_t{64} << 30;

class CServer : public CKQFileTransServiceServer {
 public:
  ~CServer() override { Stop(); }
  int Port() const { return m_pPrimaryNetWork->GetListenPort(); }
};

// Processors first to last - 1, for the calling thread and those that it starts
// from then on. Without effect on a machine that has only one.
void RunOn(long first, long last) {
  cpu_set_t set;
  CPU_ZERO(&set);
  for (long i = first; i < last; ++i) CPU_SET(static_cast<std::size_t>(i), &set);
  if (first < last && sched_setaffinity(0, sizeof set, &set) != 0) std::perror("processors");
}

int Connect(int port, const std::string& from) {
  const int fd = ConnectFrom(from, port);
  if (fd < 0) std::exit(1);
  return fd;
}

// Microseconds from the question to its whole answer.
void Ask(int fd, std::size_t answerBytes, std::vector<double>& times) {
  using Clock = std::chrono::steady_clock;
  const std::string question = Packet(NET_CTS_GETPRJDIR, "");
  std::vector<char> answer(answerBytes);
  for (int i = 0; i < kQuestionsPerTurn; ++i) {
    const auto start = Clock::now();
    if (!SendAll(fd, question) || !ReceiveAll(fd, answer.data(), answer.size())) std::exit(1);
    times.push_back(std::chrono::duration<double, std::micro>(Clock::now() - start).count());
  }
}

// Answers everything by itself.
int StartEcho() {
  const int listener = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  if (bind(listener, reinterpret_cast<sockaddr*>(&address), size) != 0) std::exit(1);
  listen(listener, 1);
  getsockname(listener, reinterpret_cast<sockaddr*>(&address), &size);
  std::thread([listener] {
    const int fd = accept(listener, nullptr, nullptr);
    const int on = 1;
    setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    char data[256];
    for (ssize_t n = 0; (n = recv(fd, data, sizeof data, 0)) > 0;) {
      if (send(fd, data, static_cast<std::size_t>(n), MSG_NOSIGNAL) < 0) break;
    }
  }).detach();
  return ntohs(address.sin_port);
}

void Load(int port, int number, const std::string& path, const std::atomic<bool>& stop) {
  const int fd = Connect(port, "127.0.2." + std::to_string(number));
  const std::string start = Packet(NET_CTS_PREPARETRANS_FILE, EncodeBody(SDownloadStart{0, path}));
  if (!SendAll(fd, start)) std::exit(1);
  std::vector<char> data(1 << 20);
  while (!stop && recv(fd, data.data(), data.size(), 0) > 0) {
  }
  close(fd);
}

// Returns the ratio of the medians.
double Compare(const char* title, int server, int echo, std::size_t answerBytes) {
  std::vector<double> bare;
  std::vector<double> ours;
  for (int i = 0; i < kTurns; ++i) {
    Ask(echo, kPackHeadBytes, bare);
    Ask(server, answerBytes, ours);
  }
  std::sort(bare.begin(), bare.end());
  std::sort(ours.begin(), ours.end());
  const std::size_t median = bare.size() / 2;
  const std::size_t late = bare.size() * 99 / 100;
  const double ratio = ours[median] / bare[median];
  std::fprintf(
      stderr,
      "  %s: echo median %.1f us, 99th %.1f us; 2511 median %.1f us, 99th %.1f us; ratio %.2f\n",
      title, bare[median], bare[late], ours[median], ours[late], ratio);
  return ratio;
}

// Beside `loaders` downloads of `file` that go on all the while; `apart`: the
// first processor is for those who ask, and the others for those who answer.
double Measure(const std::string& title, const std::string& directory, const std::string& file,
               int loaders, bool apart) {
  const long processors = sysconf(_SC_NPROCESSORS_ONLN);
  RunOn(apart ? 1 : 0, processors);
  CServer server;
  server.SetPrjDir(directory);
  server.SetLog(directory, false);
  if (!server.Init(0)) std::exit(1);
  const int echoPort = StartEcho();
  if (apart) RunOn(0, 1);
  const int echo = Connect(echoPort, "127.0.0.1");
  const int asking = Connect(server.Port(), "127.0.1.1");
  std::atomic<bool> stop{false};
  std::vector<std::thread> threads;
  for (int i = 1; i <= loaders; ++i) {
    threads.emplace_back([&, i] { Load(server.Port(), i, file, stop); });
  }
  const double ratio = Compare(title.c_str(), asking, echo, kPackHeadBytes + directory.size());
  stop = true;
  for (std::thread& thread : threads) thread.join();
  close(echo);
  close(asking);
  return ratio;
}

}  // namespace

int main(int argc, char** argv) {
  const int loaders = argc > 1 ? std::atoi(argv[1]) : kDefaultLoaders;
  char pattern[] = "/tmp/kqft-request.XXXXXX";
  if (mkdtemp(pattern) == nullptr) return 1;
  const std::string directory = std::string(pattern) + "/";
  const std::string file = directory + "load";
  std::ofstream(file).close();
  std::filesystem::resize_file(file, kLoadFileBytes);
  const double idle = Measure("idle", directory, file, 0, false);
  Measure("idle, asked from another processor", directory, file, 0, true);
  Measure("beside " + std::to_string(loaders) + " downloads", directory, file, loaders, false);
  std::fprintf(stderr,
               "%s question and answer, idle, median over a bare echo's: %.2f, at most %.2f\n",
               idle <= kMostEchoes ? "[holds]      " : "[falls short]", idle, kMostEchoes);
  std::filesystem::remove_all(directory);
  return 0;
}
