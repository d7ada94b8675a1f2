// The web server: a few paths, few threads, short patience.

#include "programs/kqft-status/WebServer.h"

#include <functional>
#include <thread>

#include <httplib.h>

#include "programs/kqft-status/Page.h"
#include "programs/kqft-status/PageFiles.h"
#include "programs/kqft-status/Reports.h"

namespace {

constexpr std::size_t kThreads = 4;
constexpr int kPatienceSeconds = 3;
constexpr std::size_t kMostRequests = 100;  // on one connection
constexpr std::size_t kMostBody = 1024;     // nobody has to send any

// The page needs nothing from elsewhere, and is to be shown in none.
const httplib::Headers kHeaders = {
    {"Content-Security-Policy",
     "default-src 'none'; style-src 'self'; script-src 'self'; connect-src 'self'; "
     "img-src 'self'; base-uri 'none'; form-action 'none'; frame-ancestors 'none'"},
    {"X-Content-Type-Options", "nosniff"},
    {"Referrer-Policy", "no-referrer"},
    {"Cache-Control", "no-store"}};

}  // namespace

struct CWebServer::SState {
  explicit SState(const CWatcher& watcher) : m_watcher(watcher) {}

  void Answer(const char* path, const std::string& type, std::function<std::string()> content) {
    m_server.Get(path, [content = std::move(content), type](const httplib::Request&,
                                                            httplib::Response& response) {
      response.set_content(content(), type);
    });
  }

  const CWatcher& m_watcher;
  httplib::Server m_server;
  std::thread m_thread;
};

CWebServer::CWebServer(const CWatcher& watcher) : m_pState(std::make_unique<SState>(watcher)) {
  SState& state = *m_pState;
  httplib::Server& server = state.m_server;
  server.new_task_queue = [] { return new httplib::ThreadPool(kThreads); };
  server.set_payload_max_length(kMostBody);
  server.set_read_timeout(kPatienceSeconds);
  server.set_write_timeout(kPatienceSeconds);
  server.set_keep_alive_timeout(1);
  server.set_keep_alive_max_count(kMostRequests);
  server.set_default_headers(kHeaders);
  const auto views = [&state](auto make) {
    return [&state, make] {
      std::int64_t now = 0;
      const std::vector<SServerView> all = state.m_watcher.Views(now);
      return make(all, now);
    };
  };
  const std::string html = "text/html; charset=utf-8";
  state.Answer("/", html, views(&Page));
  state.Answer("/main.html", html, views(&PageMain));
  state.Answer("/status.json", "application/json",
               views([](const auto& all, std::int64_t) { return ServersJson(all); }));
  state.Answer("/metrics", "text/plain; version=0.0.4; charset=utf-8",
               views([](const auto& all, std::int64_t) { return ServersMetrics(all); }));
  state.Answer("/page.css", "text/css", [] { return std::string(kPageCss); });
  state.Answer("/page.js", "text/javascript", [] { return std::string(kPageJs); });
  state.Answer("/icon.svg", "image/svg+xml", [] { return std::string(kIconSvg); });
}

CWebServer::~CWebServer() {
  Stop();
}

int CWebServer::Bind(const std::string& address, int port) {
  httplib::Server& server = m_pState->m_server;
  if (port == 0) return std::max(server.bind_to_any_port(address), 0);
  return server.bind_to_port(address, port) ? port : 0;
}

bool CWebServer::Start() {
  m_pState->m_thread = std::thread([this] { m_pState->m_server.listen_after_bind(); });
  return true;
}

void CWebServer::Stop() {
  if (!m_pState->m_thread.joinable()) return;
  m_pState->m_server.stop();
  m_pState->m_thread.join();
}
