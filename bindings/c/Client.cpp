// The client of the C face: a project client, its observer, and what came of
// its last operation.

#include <memory>
#include <utility>

#include "bindings/c/ClientObserver.h"
#include "bindings/c/Options.h"
#include "bindings/c/Result.h"
#include "protocol/ResultCodes.h"

struct kqft_client {
  explicit kqft_client(SServerPlace place) : m_client(std::move(place), &m_observer) {}

  CClientObserver m_observer;
  CProjectClient m_client;
  CInUse m_use;
  std::int32_t m_nCode = KQFT_OK;  // these two: by the thread that uses the handle
  std::string m_strWords;
};

namespace {

/// Runs one operation of a client, which sets words where it has any, and keeps
/// what came of it.
template <typename Operation>
std::int32_t Use(kqft_client* client, const Operation& operation) {
  if (client == nullptr) return KQFT_E_NULL;
  const CInUse::CScope use(client->m_use);
  if (!use.IsMine()) return KQFT_E_IN_USE;
  client->m_strWords.clear();
  client->m_nCode = Guarded([&] { return operation(*client, client->m_strWords); });
  return client->m_nCode;
}

/// The same of one that others may ask how far it is.
template <typename Operation>
std::int32_t Run(kqft_client* client, const Operation& operation) {
  return Use(client, [&](kqft_client& used, std::string& words) -> std::int32_t {
    class CRunning {
     public:
      explicit CRunning(CClientObserver& observer) : m_observer(observer) {
        m_observer.SetRunning(true);
      }
      ~CRunning() { m_observer.SetRunning(false); }

     private:
      CClientObserver& m_observer;
    };
    const CRunning running(used.m_observer);
    return operation(used, words);
  });
}

std::string WhyNot(const kqft_client& client, std::int32_t code) {
  switch (code) {
    case ERROR_CODE_CLIENT_CONNECT:
    case kOtherStorage:
      return client.m_client.WhyNotConnected();
    case kServerTaken:
      return client.m_client.TakenBy() + " is busy with the server";
    default:
      return "";
  }
}

void Clear(kqft_result** result) {
  if (result != nullptr) *result = nullptr;
}

std::int32_t Finish(const kqft_client& client, STransferResult moved, bool planOnly,
                    std::string& words, kqft_result** result) {
  const std::int32_t code = CodeOf(moved, planOnly);
  if (code != KQFT_OK) words = code == kServerTaken ? WhyNot(client, code) : WordsOf(moved);
  HandOver(std::move(moved), code, words, result);
  return code;
}

}  // namespace

std::int32_t kqft_client_create(const kqft_client_options* options, kqft_client** client) {
  if (client == nullptr) return KQFT_E_NULL;
  *client = nullptr;
  return Guarded([&] {
    SServerPlace place;
    const std::int32_t result = PlaceOf(options, place);
    if (result == KQFT_OK) *client = new kqft_client(std::move(place));
    return result;
  });
}

std::int32_t kqft_client_destroy(kqft_client* client) {
  if (client == nullptr) return KQFT_OK;
  if (!client->m_use.TakeForGood()) return KQFT_E_IN_USE;
  delete client;
  return KQFT_OK;
}

std::int32_t kqft_client_set_callbacks(kqft_client* client, const kqft_callbacks* callbacks) {
  return Use(client, [&](kqft_client& used, std::string&) -> std::int32_t {
    kqft_callbacks taken;
    const std::int32_t result = Take(callbacks, taken);
    if (result == KQFT_OK) used.m_observer.SetCallbacks(taken);
    return result;
  });
}

std::int32_t kqft_client_code(const kqft_client* client) {
  return client == nullptr ? KQFT_E_NULL : client->m_nCode;
}

const char* kqft_client_words(const kqft_client* client) {
  if (client == nullptr || client->m_strWords.empty()) {
    return kqft_describe(kqft_client_code(client));
  }
  return client->m_strWords.c_str();
}

std::int32_t kqft_client_connect(kqft_client* client, std::int32_t retries, std::int32_t seconds) {
  return Use(client, [&](kqft_client& used, std::string& words) -> std::int32_t {
    if (retries < 0 || seconds < 0) return KQFT_E_ARGUMENT;
    const std::int32_t code = used.m_client.Connect(retries, seconds);
    words = WhyNot(used, code);
    return code;
  });
}

std::int32_t kqft_client_disconnect(kqft_client* client) {
  return Use(client, [](kqft_client& used, std::string&) -> std::int32_t {
    used.m_client.Disconnect();
    return KQFT_OK;
  });
}

std::int32_t kqft_client_cancel(kqft_client* client) {
  if (client == nullptr) return KQFT_E_NULL;
  return Guarded([client] {
    client->m_client.Cancel();
    return KQFT_OK;
  });
}

std::int32_t kqft_client_progress(kqft_client* client, kqft_progress* progress, char* file,
                                  std::int32_t file_bytes) {
  if (client == nullptr) return KQFT_E_NULL;
  if (file_bytes < 0) return KQFT_E_ARGUMENT;
  return Guarded([&] {
    const auto room = static_cast<std::size_t>(file_bytes);
    return Give(client->m_observer.Progress(file, room), progress);
  });
}

std::int32_t kqft_client_projects(kqft_client* client, kqft_result** result) {
  if (result == nullptr) return KQFT_E_NULL;
  *result = nullptr;
  return Use(client, [&](kqft_client& used, std::string& words) -> std::int32_t {
    std::vector<SProject> projects;
    const std::int32_t code = used.m_client.ListProjects(projects);
    words = WhyNot(used, code);
    if (code == KQFT_OK) HandOver(std::move(projects), code, words, result);
    return code;
  });
}

std::int32_t kqft_client_files(kqft_client* client, const char* project, kqft_result** result) {
  if (result == nullptr) return KQFT_E_NULL;
  *result = nullptr;
  return Run(client, [&](kqft_client& used, std::string& words) -> std::int32_t {
    if (project == nullptr) return KQFT_E_NULL;
    words = CProjectClient::WhyNoProject(project);
    if (!words.empty()) return KQFT_FAILED;
    SFileList list;
    std::int32_t code = used.m_client.ListAllFiles(project, list);
    words = WhyNot(used, code);
    if (code != KQFT_OK) return code;
    if (!list.m_bComplete) code = KQFT_E_INCOMPLETE;
    HandOver(std::move(list), code, words, result);
    return code;
  });
}

std::int32_t kqft_client_delete(kqft_client* client, const char* project, std::int64_t* left) {
  return Use(client, [&](kqft_client& used, std::string& words) -> std::int32_t {
    if (project == nullptr) return KQFT_E_NULL;
    words = CProjectClient::WhyNoProject(project);
    if (!words.empty()) return KQFT_FAILED;
    std::size_t listed = 0;
    const std::int32_t code = used.m_client.DeleteProject(project, listed);
    words = WhyNot(used, code);
    if (left != nullptr) *left = static_cast<std::int64_t>(listed);
    return code;
  });
}

std::int32_t kqft_client_put(kqft_client* client, const char* path, const kqft_options* options,
                             kqft_result** result) {
  Clear(result);
  return Run(client, [&](kqft_client& used, std::string& words) -> std::int32_t {
    SPutRequest request;
    const std::int32_t wrong = PutOf(path, options, request, words);
    if (wrong != KQFT_OK) return wrong;
    return Finish(used, used.m_client.Put(request), request.m_bPlanOnly, words, result);
  });
}

std::int32_t kqft_client_get(kqft_client* client, const char* project, const char* into,
                             const kqft_options* options, kqft_result** result) {
  Clear(result);
  return Run(client, [&](kqft_client& used, std::string& words) -> std::int32_t {
    SGetRequest request;
    const std::int32_t wrong = GetOf(project, into, options, request, words);
    if (wrong != KQFT_OK) return wrong;
    return Finish(used, used.m_client.Get(request), request.m_bPlanOnly, words, result);
  });
}

std::int32_t kqft_client_verify(kqft_client* client, const char* project, const char* local,
                                const kqft_options* options, kqft_result** result) {
  Clear(result);
  return Run(client, [&](kqft_client& used, std::string& words) -> std::int32_t {
    SVerifyRequest request;
    const std::int32_t wrong = VerifyOf(project, local, options, request, words);
    if (wrong != KQFT_OK) return wrong;
    SVerifyResult check = used.m_client.Verify(request);
    const std::int32_t code = CodeOf(check);
    words = code == kServerTaken ? WhyNot(used, code) : check.m_strWhy;
    HandOver(std::move(check), code, words, result);
    return code;
  });
}

std::int32_t kqft_client_watch(kqft_client* client, const char* directory,
                               const kqft_options* options) {
  return Run(client, [&](kqft_client& used, std::string& words) -> std::int32_t {
    SWatchRequest request;
    const std::int32_t wrong = WatchOf(directory, options, request, words);
    if (wrong != KQFT_OK) return wrong;
    words = used.m_client.Watch(request);
    return words.empty() ? KQFT_E_CANCELLED : KQFT_FAILED;
  });
}
