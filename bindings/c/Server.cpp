// The server of the C face: the library's, with its hooks as events.

#include <climits>
#include <filesystem>
#include <memory>
#include <utility>

#include "bindings/c/EventQueue.h"
#include "bindings/c/Face.h"
#include "net/NetWorkManageEx.h"
#include "platform/PathBytes.h"
#include "server/EndServer.h"
#include "server/KQFileTransServiceServer.h"

namespace fs = std::filesystem;

namespace {

constexpr int kNewLinksMs = 1000;

// As the library wants it: absolute, something that names can stand behind.
std::string DirectoryForServer(const std::string& directory) {
  std::error_code error;
  return BytesOf(fs::absolute(PathOf(directory), error).lexically_normal() / "");
}

bool IsDirectory(const std::string& directory) {
  std::error_code error;
  return fs::is_directory(PathOf(directory), error);
}

}  // namespace

/// Decides what the options say, and notes what happens.
class CFaceServer : public CKQFileTransServiceServer {
 public:
  CFaceServer(bool deletes, std::shared_ptr<CEventQueue> events)
      : m_bDeletes(deletes), m_pEvents(std::move(events)) {}
  ~CFaceServer() override { Stop(); }

  CNetWorkManageEx& Network() { return *m_pPrimaryNetWork; }

  bool MayDelete(const STransferFacts&) override { return m_bDeletes; }
  void OnUploaded(const STransferFacts& facts) override {
    m_pEvents->Add(KQFT_EVENT_UPLOADED, facts);
  }
  void OnDownloaded(const STransferFacts& facts) override {
    m_pEvents->Add(KQFT_EVENT_DOWNLOADED, facts);
  }
  void OnProjectsListed(const STransferFacts& facts) override {
    m_pEvents->Add(KQFT_EVENT_PROJECTS_LISTED, facts);
  }
  void OnFilesListed(const STransferFacts& facts) override {
    m_pEvents->Add(KQFT_EVENT_FILES_LISTED, facts);
  }
  void OnDeleted(const STransferFacts& facts) override {
    m_pEvents->Add(KQFT_EVENT_DELETED, facts);
  }
  void OnRefused(const STransferFacts& facts, ERefusal) override {
    m_pEvents->Add(KQFT_EVENT_REFUSED, facts);
  }

 protected:
  void OnConnected(const STransferFacts& facts) override {
    m_pEvents->Add(KQFT_EVENT_CONNECTED, facts);
  }
  void OnDisconnected(const STransferFacts& facts) override {
    m_pEvents->Add(KQFT_EVENT_DISCONNECTED, facts);
  }

 private:
  const bool m_bDeletes;
  const std::shared_ptr<CEventQueue> m_pEvents;
};

namespace {

std::int32_t SetUp(const kqft_server_options& options, CFaceServer& server) {
  std::vector<std::string> allowed;
  const std::int32_t result = TakeTexts(options.allowed, options.allowed_count, allowed);
  if (result != KQFT_OK) return result;
  std::vector<CAddressRange> ranges(allowed.size());
  for (std::size_t i = 0; i < allowed.size(); ++i) {
    if (!CAddressRange::Parse(allowed[i], ranges[i]).empty()) return KQFT_E_ARGUMENT;
  }
  SLinkLimits limits;
  limits.m_nPerAddress = options.links_per_address;
  limits.m_nNew = options.new_links;
  limits.m_nNewMs = options.new_links_ms == 0 ? kNewLinksMs : options.new_links_ms;
  server.SetPrjDir(DirectoryForServer(options.directory));
  if (options.suffix != nullptr) server.SetPrjSuffix(options.suffix);
  const std::string logs = TextOf(options.log_directory);
  server.SetLog(logs.empty() ? kNoLogs : DirectoryForServer(logs), !logs.empty());
  server.SetDurable(options.no_durable == 0);
  server.Network().SetLocalAddress(TextOf(options.listen_address));
  server.Network().SetAllowedPeers(std::move(ranges));
  server.Network().SetLinkLimits(limits);
  return KQFT_OK;
}

std::int32_t Check(const kqft_server_options& options) {
  if (options.directory == nullptr) return KQFT_E_NULL;
  const bool makesSense = options.port >= 0 && options.port <= kLastPort &&
                          options.links_per_address >= 0 && options.new_links >= 0 &&
                          options.new_links_ms >= 0 && options.events >= 0;
  if (!makesSense) return KQFT_E_ARGUMENT;
  const std::string logs = TextOf(options.log_directory);
  const bool usable = IsDirectory(options.directory) && (logs.empty() || IsDirectory(logs));
  return usable ? KQFT_OK : KQFT_E_DIRECTORY;
}

}  // namespace

struct kqft_server {
  std::shared_ptr<CEventQueue> m_pEvents;
  std::unique_ptr<CFaceServer> m_pServer;
  CInUse m_stop;         // who stops
  CInUse m_ask;          // who asks for events
  SServerEvent m_event;  // by the thread that asks; what it was given last
};

std::int32_t kqft_server_start(const kqft_server_options* options, kqft_server** server) {
  if (options == nullptr || server == nullptr) return KQFT_E_NULL;
  *server = nullptr;
  return Guarded([&]() -> std::int32_t {
    kqft_server_options taken;
    std::int32_t result = Take(options, taken);
    if (result == KQFT_OK) result = Check(taken);
    if (result != KQFT_OK) return result;
    auto made = std::make_unique<kqft_server>();
    made->m_pEvents = std::make_shared<CEventQueue>(static_cast<std::size_t>(taken.events));
    made->m_pServer = std::make_unique<CFaceServer>(taken.no_delete == 0, made->m_pEvents);
    result = SetUp(taken, *made->m_pServer);
    if (result != KQFT_OK) return result;
    if (!made->m_pServer->Init(taken.port)) return KQFT_E_LISTEN;
    *server = made.release();
    return KQFT_OK;
  });
}

std::int32_t kqft_server_port(const kqft_server* server) {
  if (server == nullptr) return KQFT_E_NULL;
  return Guarded([server] { return server->m_pServer->Network().GetListenPort(); });
}

std::int32_t kqft_server_next_event(kqft_server* server, std::int32_t milliseconds,
                                    kqft_server_event* event) {
  if (server == nullptr || event == nullptr) return KQFT_E_NULL;
  if (!IsSize<kqft_server_event>(event->size)) return KQFT_E_SIZE;
  const CInUse::CScope use(server->m_ask);
  if (!use.IsMine()) return KQFT_E_IN_USE;
  return Guarded([&]() -> std::int32_t {
    SServerEvent& next = server->m_event;
    if (!server->m_pEvents->Next(milliseconds, next)) return KQFT_E_NO_EVENT;
    kqft_server_event made = {};
    made.kind = next.m_nKind;
    made.code = next.m_nCode;
    made.client_port = next.m_nPort;
    made.address = next.m_strAddress.c_str();
    made.path = next.m_strPath.c_str();
    made.bytes = next.m_llBytes;
    made.milliseconds = next.m_llMilliseconds;
    made.lost = next.m_llLost;
    return Give(made, event);
  });
}

std::int32_t kqft_server_stop(kqft_server* server) {
  if (server == nullptr) return KQFT_E_NULL;
  const CInUse::CScope use(server->m_stop);
  if (!use.IsMine()) return KQFT_E_IN_USE;
  return Guarded([server] {
    server->m_pServer->Stop();
    server->m_pEvents->Close();
    return KQFT_OK;
  });
}

std::int32_t kqft_server_destroy(kqft_server* server, std::int32_t milliseconds) {
  if (server == nullptr) return KQFT_OK;
  if (server->m_ask.IsTaken() || !server->m_stop.TakeForGood()) return KQFT_E_IN_USE;
  const std::unique_ptr<kqft_server> ending(server);
  return Guarded([&]() -> std::int32_t {
    const int wait = milliseconds < 0 ? INT_MAX : milliseconds;
    return EndServer(std::move(ending->m_pServer), wait) ? KQFT_OK : KQFT_E_TIMEOUT;
  });
}
