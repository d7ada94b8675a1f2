// kqft-status: a page about data servers, made of the files that they write.
//
// The main thread reads the files every second and waits for a request to end;
// the web server's threads show what was read last.

#include <CLI/CLI.hpp>
#include <algorithm>
#include <iostream>
#include <limits>
#include <string>
#include <vector>

#include "programs/ExitStatus.h"
#include "programs/ProgramStart.h"
#include "programs/ServiceNotify.h"
#include "programs/ServiceRequests.h"
#include "programs/kqft-status/WebServer.h"

namespace {

constexpr int kLookMs = 1000;

struct SStatusOptions {
  std::string m_strListen = "127.0.0.1:9998";
  std::string m_strAddress;
  int m_nPort = 0;
  std::vector<std::string> m_vecFiles;
};

const char* const kDescription =
    "Shows a page about data servers, made of the files that \"kqft-server --status-dir\" writes:\n"
    "who sends and fetches what, rates, free space, failures. Beside it lie /metrics, for\n"
    "Prometheus, and /status.json. Whoever reaches the page may read it.";

// "127.0.0.1:9998", "[::1]:9998".
void TakePlace(SStatusOptions& options) {
  const std::string& text = options.m_strListen;
  const std::size_t colon = text.rfind(':');
  const std::string port = colon == std::string::npos ? "" : text.substr(colon + 1);
  std::string address = text.substr(0, std::min(colon, text.size()));
  if (address.size() > 2 && address.front() == '[' && address.back() == ']') {
    address = address.substr(1, address.size() - 2);
  }
  constexpr std::size_t kMostDigits = 5;
  const bool isNumber = !port.empty() && port.size() <= kMostDigits &&
                        port.find_first_not_of("0123456789") == std::string::npos;
  if (address.empty() || !isNumber ||
      std::stoi(port) > int{std::numeric_limits<std::uint16_t>::max()}) {
    throw CLI::ValidationError("--listen", text + ": an address and a port, as 127.0.0.1:9998");
  }
  options.m_strAddress = address;
  options.m_nPort = std::stoi(port);
}

bool ParseOptions(int argc, char** argv, SStatusOptions& options, int& status) {
  CLI::App app(kDescription, "kqft-status");
  app.add_option("--listen", options.m_strListen, "address and port to listen on; port 0: any")
      ->type_name("ADDRESS:PORT")
      ->capture_default_str();
  app.add_option("FILE", options.m_vecFiles, "status.json of a server")->required();
  app.set_version_flag("--version", "kqft-status " KQFT_VERSION);
  app.failure_message([](const CLI::App*, const CLI::Error& error) {
    return std::string("kqft-status: ") + error.what() + "\nTry \"kqft-status --help\".\n";
  });
  try {
    app.parse(argc, argv);
    TakePlace(options);
  } catch (const CLI::ParseError& error) {
    status = app.exit(error) == 0 ? kExitDone : kExitUsage;
    return false;
  }
  std::vector<std::string>& files = options.m_vecFiles;
  auto end = files.begin();  // one of each, in their order
  for (auto each = files.begin(); each != files.end(); ++each) {
    if (std::find(files.begin(), end, *each) == end) std::swap(*end++, *each);
  }
  files.erase(end, files.end());
  return true;
}

int Run(int argc, char** argv) {
  SStatusOptions options;
  int status = kExitDone;
  if (!ParseOptions(argc, argv, options, status)) return status;
  HoldServiceRequests();
  CWatcher watcher(options.m_vecFiles);
  watcher.Look();
  CWebServer server(watcher);
  const int port = server.Bind(options.m_strAddress, options.m_nPort);
  if (port == 0) {
    std::cerr << "kqft-status: cannot listen on " + options.m_strListen +
                     ": the port is in use, or the address or port is not to be had\n";
    return kExitFailed;
  }
  server.Start();
  const std::size_t end = options.m_strListen.rfind(':') + 1;
  std::cerr << "listening on http://" + options.m_strListen.substr(0, end) + std::to_string(port) +
                   "/\n";
  NotifyServiceManager("READY=1");
  while (WaitForServiceRequest(kLookMs) != EServiceRequest::kEnd) watcher.Look();
  NotifyServiceManager("STOPPING=1");
  server.Stop();
  return kExitDone;
}

}  // namespace

int main(int argc, char** argv) {
  return StartProgram(argc, argv, &Run);
}
