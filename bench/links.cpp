// Many clients at once in one process, each on a connection of its own from
// an address of its own.
//
//   kqft-links PORT up COUNT FILE SERVER_DIRECTORY       each sends FILE
//   kqft-links PORT down COUNT SERVER_FILE DIRECTORY     each fetches SERVER_FILE
//   kqft-links PORT stalled COUNT SERVER_FILE DIRECTORY  COUNT begin to fetch it and
//                                                        stop reading; then one more does
//
// Every link moves its file again and again. Once all have begun, bytes are
// counted for 12 seconds, or as many as a further argument says. What is
// fetched is counted and dropped: a hundred workstations have disks of their
// own, and it is the server that is judged.

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "client/KQFileTransServiceClient.h"
#include "net/IOCPBuffer.h"
#include "net/NetWorkManageEx.h"
#include "platform/KQEvent.h"
#include "protocol/DataPacket.h"
#include "protocol/MessageCodes.h"
#include "protocol/ResultCodes.h"

namespace {

using std::chrono::milliseconds;

constexpr int kAddressesPerNet = 250;
constexpr milliseconds kWarmUp(500);
constexpr double kWindowSeconds = 12;
constexpr int kEndWaitMs = 100;
constexpr double kMiB = 1 << 20;

struct SJob {
  bool m_bUpload;
  std::string m_strSource;     ///< here for an upload, there for a download
  std::string m_strDirectory;  ///< there for an upload, here for a download
};

[[noreturn]] void Fail(const std::string& what) {
  std::fprintf(stderr, "kqft-links: %s\n", what.c_str());
  std::_Exit(1);
}

/// A client with an address of its own that counts what it moves and may stop
/// reading.
class CLinkClient : public CKQFileTransServiceClient {
 public:
  explicit CLinkClient(int number) : m_nNumber(number) {
    m_pNetWork->SetLocalAddress("127.1." + std::to_string(number / kAddressesPerNet) + "." +
                                std::to_string(1 + number % kAddressesPerNet));
  }
  ~CLinkClient() override { Stop(); }

  std::int64_t Moved() const { return m_llMoved; }

  /// Holds the delivery of data, and thereby the reading of the connection.
  void StopReading() { m_bHold = true; }
  bool IsStalled() const { return m_bHeld; }

  void Open(int port) {
    std::string ignored;
    if (!Init((std::filesystem::temp_directory_path() / "").string()) ||
        !Connect("127.0.0.1", port) || GetPrjDir(ignored) != RESULT_OK) {
      Fail("link " + std::to_string(m_nNumber) + " has no connection");
    }
  }

  /// Moves the file, until it is whole.
  void MoveOnce(const SJob& job) {
    const std::string name = "link" + std::to_string(m_nNumber) + ".bin";
    Channel_Key_Value record;
    record.m_strPath = job.m_bUpload ? job.m_strSource : name;
    record.m_strName = job.m_bUpload ? job.m_strDirectory + "/" + name : job.m_strSource;
    std::string request;
    Channel_Key_Value::ConverValueToXML({record}, request);
    SetPrjDir(job.m_strDirectory + "/");
    const int result =
        job.m_bUpload ? UpdateFileToDataService(request) : DownFileFromDataService(request);
    if (result != RESULT_OK) Fail("a transfer was refused: " + std::to_string(result));
    // The event tells the end of an upload at once.
    while (!IsTransFinished()) m_evTransEnd->Wait(kEndWaitMs);
    if (!IsConnect() || GetTrans() != 1.0F) {
      std::string statuses;
      GetAllTransFileStatus(statuses);
      Fail(name + " did not go whole, " + (IsConnect() ? "" : "not ") + "connected, " +
           std::to_string(GetTrans()) + " of it: " + statuses);
    }
  }

  bool DealNetMsg(unsigned int ip, int port, int nMsgType, int nLength, const char* pData,
                  int extra) override {
    if (nMsgType != NET_STC_TRANSFILEDATA) {
      if (nMsgType == NET_CTS_PREPARETRANS_FILE) m_bAnswered = true;
      return CKQFileTransServiceClient::DealNetMsg(ip, port, nMsgType, nLength, pData, extra);
    }
    while (m_bHold && m_bAnswered) {  // the answer may come behind the first data
      m_bHeld = true;
      m_llTransBytes += 1;  // a client gives a download up that does not advance
      std::this_thread::sleep_for(milliseconds(50));
    }
    m_llTransBytes += nLength - kPositionBytes;
    m_llMoved += nLength - kPositionBytes;
    return true;
  }

  bool ReleaseIOCPBuffer(CIOCPBuffer* p) override {
    if (p != nullptr && p->m_nBufSize == kSendBufferBytes) m_llMoved += p->m_nDataLen - kDataOffset;
    return CKQFileTransServiceClient::ReleaseIOCPBuffer(p);
  }

 private:
  const int m_nNumber;
  CSharedWord<std::int64_t> m_llMoved = 0;  // word; bytes in all
  CSharedWord<bool> m_bHold = false;        // word
  CSharedWord<bool> m_bAnswered = false;    // word; the server has begun a download
  CSharedWord<bool> m_bHeld = false;        // word
};

using Clients = std::vector<std::unique_ptr<CLinkClient>>;

/// Each from a thread of its own, for as long as the process lives.
void MoveForEver(const Clients& clients, const SJob& job) {
  for (const auto& owned : clients) {
    std::thread([client = owned.get(), job] {
      for (;;) client->MoveOnce(job);
    }).detach();
  }
}

std::vector<std::int64_t> Counts(const Clients& clients) {
  std::vector<std::int64_t> counts;
  for (const auto& client : clients) counts.push_back(client->Moved());
  return counts;
}

void Measure(const Clients& clients, double window) {
  using Clock = std::chrono::steady_clock;
  const auto opened = Clock::now();
  for (const auto& client : clients) {
    while (client->Moved() == 0) std::this_thread::sleep_for(milliseconds(1));
  }
  const double begun = std::chrono::duration<double>(Clock::now() - opened).count();
  std::this_thread::sleep_for(kWarmUp);
  const std::vector<std::int64_t> before = Counts(clients);
  const auto start = Clock::now();
  std::this_thread::sleep_for(std::chrono::duration<double>(window));
  const std::vector<std::int64_t> after = Counts(clients);
  const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
  double total = 0;
  std::vector<double> speeds;
  for (std::size_t i = 0; i < clients.size(); ++i) {
    speeds.push_back(static_cast<double>(after[i] - before[i]) / kMiB / seconds);
    total += speeds.back();
  }
  const auto [slowest, fastest] = std::minmax_element(speeds.begin(), speeds.end());
  std::printf("mib_per_second=%.1f fairness=%.3f begun=%.3f\n", total, *slowest / *fastest, begun);
}

Clients OpenAll(int port, int first, int count) {
  Clients clients;
  for (int i = 0; i < count; ++i) {
    clients.push_back(std::make_unique<CLinkClient>(first + i));
    clients.back()->Open(port);
  }
  return clients;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 6 && argc != 7) {
    Fail("usage: kqft-links PORT up|down|stalled COUNT SOURCE DIRECTORY [SECONDS]");
  }
  const int port = std::atoi(argv[1]);
  const std::string command = argv[2];
  const SJob job{command == "up", argv[4], argv[5]};
  Clients clients = OpenAll(port, 0, std::atoi(argv[3]));
  Clients late;
  if (command == "stalled") {
    for (const auto& client : clients) client->StopReading();
    MoveForEver(clients, job);
    for (const auto& client : clients) {
      while (!client->IsStalled()) std::this_thread::sleep_for(milliseconds(1));
    }
    late = OpenAll(port, static_cast<int>(clients.size()), 1);
  }
  const Clients& measured = late.empty() ? clients : late;
  MoveForEver(measured, job);
  Measure(measured, argc == 7 ? std::atof(argv[6]) : kWindowSeconds);
  // The transfers need not come to an end.
  std::fflush(stdout);
  std::_Exit(0);
}
