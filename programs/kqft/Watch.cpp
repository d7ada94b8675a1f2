// put --watch: sends what comes into a directory, until it is stopped.

#include <map>

#include "platform/System.h"
#include "programs/ExitStatus.h"
#include "programs/kqft/Commands.h"
#include "programs/kqft/ConsoleObserver.h"
#include "programs/kqft/Interrupt.h"
#include "programs/kqft/Output.h"
#include "programs/kqft/Report.h"
#include "programs/kqft/Text.h"
#include "protocol/ResultCodes.h"
#include "transfer/ProjectClient.h"

namespace {

constexpr int kMillisecondsPerSecond = 1000;

/// Shows what happens, and counts. What goes wrong again and again is told once.
class CWatchObserver : public CConsoleObserver {
 public:
  CWatchObserver(COutput& output, const SOptions& options)
      : CConsoleObserver(output, options.m_strCommand), m_output(output), m_options(options) {}

  void OnRound(const STransferResult& round) override {
    End();
    std::size_t done = 0;
    for (const STransferItem& item : round.m_vecItems) {
      if (item.m_bDone) ++done;
      const bool failed = !item.m_bDone && !item.m_bLater && !round.m_bCancelled;
      TellOnce(item.m_strShown, failed ? item.m_strWhy : "", item.m_nCode);
    }
    TellOnce("", round.m_nCode == RESULT_OK ? round.m_strInventory : round.m_strWhy, round.m_nCode);
    ++m_nRounds;
    m_nFiles += done;
    m_llMoved += round.m_llMoved;
    if (done > 0 || round.m_llMoved > 0) ReportRound(m_output, m_options.m_strCommand, round);
  }

  void OnWaiting(const std::string& why) override {
    if (m_told.empty()) CConsoleObserver::OnWaiting(why);
  }
  void OnReconnecting() override {}
  void OnNotConnected(int, const std::string&) override {}

  void Summarize(int status, std::int64_t milliseconds) {
    End();
    m_output.Tell("watched for " + FormatDuration(milliseconds / kMillisecondsPerSecond) + ": " +
                  FormatFiles(m_nFiles) + ", " + FormatExactSize(m_llMoved) + " over the network");
    m_output.Json(
        CJsonObject("summary")
            .Text("command", "put")
            .Text("result", WordFor(status))
            .Number("exit_status", status)
            .Number("rounds", m_nRounds)
            .Number("files_done", static_cast<std::int64_t>(m_nFiles))
            .Number("bytes_moved", m_llMoved)
            .Seconds("seconds", static_cast<double>(milliseconds) / kMillisecondsPerSecond));
  }

 private:
  // @param name of a file; "" for the server  @param why "" when it is well
  void TellOnce(const std::string& name, const std::string& why, int code) {
    if (why.empty()) {
      m_told.erase(name);
    } else if (m_told[name] != why) {
      m_output.Error(why + "; it is tried again", code, name);
      m_told[name] = why;
    }
  }

  COutput& m_output;
  const SOptions& m_options;
  std::map<std::string, std::string> m_told;  // by file, what its last try came to
  std::int64_t m_nRounds = 0;
  std::size_t m_nFiles = 0;
  std::int64_t m_llMoved = 0;
};

SWatchRequest MakeWatchRequest(const SOptions& options) {
  SWatchRequest request;
  request.m_put = MakePutRequest(options);
  request.m_nSettleSeconds = options.m_nSettleSeconds;
  return request;
}

}  // namespace

std::string WhyNoWatch(const SOptions& options) {
  if (options.m_bNames) return "--files-from and --watch do not go together";
  return CProjectClient::WhyNoWatch(MakeWatchRequest(options));
}

int RunWatch(COutput& output, const SOptions& options) {
  const std::int64_t start = System().SteadyMilliseconds();
  CWatchObserver observer(output, options);
  const CShowScope show([&observer] { observer.ShowNow(); });
  CProjectClient client(options.m_place, &observer);
  {
    const CInterruptScope scope([&client] { client.Cancel(); });
    output.Notice("watching " + Printable(options.m_vecPaths.front()) +
                  "; files are sent once they have been left alone for " +
                  std::to_string(options.m_nSettleSeconds) + " s");
    client.Watch(MakeWatchRequest(options));
  }
  const int status = IsInterrupted() ? InterruptedStatus() : kExitFailed;
  observer.Summarize(status, System().SteadyMilliseconds() - start);
  return status;
}
