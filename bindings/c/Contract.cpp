// The client of the protocol in the C face: the library's, its XML as arrays.

#include <memory>
#include <utility>

#include "bindings/c/Face.h"
#include "bindings/c/Result.h"
#include "client/KQFileTransServiceVisitor.h"
#include "net/NetWorkManageEx.h"
#include "protocol/ResultCodes.h"
#include "protocol/TransferTypes.h"

/// The library's client, with what hosts in C++ reach by deriving.
class CContractClient : public CKQFileTransServiceVisitor {
 public:
  CContractClient(const std::string& address, std::string logs) : m_strLogs(std::move(logs)) {
    m_pNetWork->SetLocalAddress(address);
    if (m_strLogs.empty()) m_strLogs = kNoLogs;
    if (m_strLogs.back() != '/' && m_strLogs.back() != '\\') m_strLogs += '/';
  }
  ~CContractClient() override { Stop(); }

  bool Begin() { return m_bInit || Init(m_strLogs); }

  /// 1, or the code of the transfer that runs.
  int CheckIdle() const {
    if (m_nTransState == PROCESS_TYPE_CLIENT_UPDATA) return ERROR_CODE_CLIENT_BUSY_UPDATA;
    if (m_nTransState == PROCESS_TYPE_CLIENT_DOWNDATA) return ERROR_CODE_CLIENT_BUSY_DOWNDATA;
    return RESULT_OK;
  }

  using CKQFileTransServiceVisitor::GetServerLostInfo;

 private:
  std::string m_strLogs;
};

struct kqft_contract {
  kqft_contract(const std::string& address, const std::string& logs) : m_client(address, logs) {}

  CContractClient m_client;
  CInUse m_use;
  CSharedWord<bool> m_bStarted = false;  // there is a transfer whose end comes
  std::string m_strDirectory;            // by the thread that uses the handle
};

namespace {

template <typename Operation>
std::int32_t Use(kqft_contract* contract, const Operation& operation) {
  if (contract == nullptr) return KQFT_E_NULL;
  const CInUse::CScope use(contract->m_use);
  if (!use.IsMine()) return KQFT_E_IN_USE;
  return Guarded([&]() -> std::int32_t { return operation(*contract); });
}

std::int32_t TakeRecords(const char* const* local, const char* const* names, std::int32_t count,
                         std::string& xml) {
  std::vector<std::string> locals, servers;
  std::int32_t result = TakeTexts(local, count, locals);
  if (result == KQFT_OK) result = TakeTexts(names, count, servers);
  if (result != KQFT_OK) return result;
  std::vector<Channel_Key_Value> records(locals.size());
  for (std::size_t i = 0; i < records.size(); ++i) {
    records[i].m_strPath = locals[i];
    records[i].m_strName = servers[i];
  }
  Channel_Key_Value::ConverValueToXML(records, xml);
  return KQFT_OK;
}

// A transfer that is refused because another one runs leaves that alone; after
// any other refusal no end comes.
std::int32_t NoteStart(kqft_contract& contract, std::int32_t result) {
  const bool runs =
      result == ERROR_CODE_CLIENT_BUSY_UPDATA || result == ERROR_CODE_CLIENT_BUSY_DOWNDATA;
  if (!runs) contract.m_bStarted = result == RESULT_OK;
  return result;
}

void HandOverRecords(const std::string& xml, kqft_result** result) {
  std::vector<Channel_Key_Value> records;
  Channel_Key_Value::ConvertXMLToValue(xml, records);
  HandOver(std::move(records), KQFT_OK, "", result);
}

}  // namespace

std::int32_t kqft_contract_create(const char* bind_address, const char* log_directory,
                                  kqft_contract** contract) {
  if (contract == nullptr) return KQFT_E_NULL;
  *contract = nullptr;
  return Guarded([&] {
    *contract = new kqft_contract(TextOf(bind_address), TextOf(log_directory));
    return KQFT_OK;
  });
}

std::int32_t kqft_contract_destroy(kqft_contract* contract) {
  if (contract == nullptr) return KQFT_OK;
  if (!contract->m_use.TakeForGood()) return KQFT_E_IN_USE;
  delete contract;
  return KQFT_OK;
}

std::int32_t kqft_contract_connect(kqft_contract* contract, const char* host, std::int32_t port,
                                   std::int32_t patience_ms) {
  return Use(contract, [&](kqft_contract& used) -> std::int32_t {
    if (host == nullptr) return KQFT_E_NULL;
    if (port <= 0 || port > kLastPort || patience_ms < 0) return KQFT_E_ARGUMENT;
    const bool connected = used.m_client.Begin() && used.m_client.Connect(host, port);
    if (!connected) return KQFT_E_CLIENT_CONNECT;
    return patience_ms == 0 ? KQFT_OK : used.m_client.WaitUntilServed(patience_ms);
  });
}

std::int32_t kqft_contract_disconnect(kqft_contract* contract) {
  return Use(contract, [](kqft_contract& used) {
    used.m_client.Stop();
    return KQFT_OK;
  });
}

std::int32_t kqft_contract_leave(kqft_contract* contract, const char* name) {
  return Use(contract, [&](kqft_contract& used) -> std::int32_t {
    if (name == nullptr) return KQFT_E_NULL;
    const std::int32_t idle = used.m_client.CheckIdle();
    if (idle == KQFT_OK) used.m_client.Leave(name);
    return idle;
  });
}

std::int32_t kqft_contract_directory(kqft_contract* contract, const char** directory) {
  if (directory == nullptr) return KQFT_E_NULL;
  *directory = nullptr;
  return Use(contract, [&](kqft_contract& used) {
    const std::int32_t code = used.m_client.GetPrjDir(used.m_strDirectory);
    if (code == KQFT_OK) *directory = used.m_strDirectory.c_str();
    return code;
  });
}

std::int32_t kqft_contract_projects(kqft_contract* contract, kqft_result** result) {
  if (result == nullptr) return KQFT_E_NULL;
  *result = nullptr;
  return Use(contract, [&](kqft_contract& used) {
    std::string xml;
    const std::int32_t code = used.m_client.GetServerPrjList(xml);
    if (code == KQFT_OK) HandOverRecords(xml, result);
    return code;
  });
}

std::int32_t kqft_contract_files(kqft_contract* contract, const char* project,
                                 kqft_result** result) {
  if (project == nullptr || result == nullptr) return KQFT_E_NULL;
  *result = nullptr;
  return Use(contract, [&](kqft_contract& used) {
    std::string xml;
    const std::int32_t code = used.m_client.GetServerPrjFileList(project, xml);
    if (code == KQFT_OK) HandOverRecords(xml, result);
    return code;
  });
}

std::int32_t kqft_contract_delete(kqft_contract* contract, const char* project) {
  return Use(contract, [&](kqft_contract& used) -> std::int32_t {
    if (project == nullptr) return KQFT_E_NULL;
    const std::int32_t code = used.m_client.DeleteServerPrj(project);
    return used.m_client.WasDeleteRefused() ? KQFT_E_DELETE_REFUSED : code;
  });
}

std::int32_t kqft_contract_size(kqft_contract* contract, const char* name, std::int64_t* bytes) {
  if (name == nullptr || bytes == nullptr) return KQFT_E_NULL;
  *bytes = 0;
  return Use(contract, [&](kqft_contract& used) {
    const std::int32_t idle = used.m_client.CheckIdle();
    return idle == KQFT_OK ? used.m_client.AskSize(name, *bytes) : idle;
  });
}

std::int32_t kqft_contract_lost(kqft_contract* contract, const char* name, kqft_result** result) {
  if (name == nullptr || result == nullptr) return KQFT_E_NULL;
  *result = nullptr;
  return Use(contract, [&](kqft_contract& used) {
    std::int32_t code = used.m_client.CheckIdle();
    if (code != KQFT_OK) return code;
    std::vector<FILEDATAPOS> lost;
    std::vector<std::int64_t> bounds;
    code = used.m_client.GetServerLostInfo(name, lost, bounds);
    if (code == KQFT_OK) HandOver(std::move(lost), code, "", result);
    return code;
  });
}

std::int32_t kqft_contract_set_directory(kqft_contract* contract, const char* directory) {
  return Use(contract, [&](kqft_contract& used) -> std::int32_t {
    if (directory == nullptr) return KQFT_E_NULL;
    if (*directory == '\0') return KQFT_E_ARGUMENT;
    used.m_client.SetPrjDir(directory);
    return KQFT_OK;
  });
}

std::int32_t kqft_contract_upload(kqft_contract* contract, const char* const* local,
                                  const char* const* names, std::int32_t count) {
  return Use(contract, [&](kqft_contract& used) {
    std::string xml;
    const std::int32_t wrong = TakeRecords(local, names, count, xml);
    if (wrong != KQFT_OK) return wrong;
    return NoteStart(used, used.m_client.UpdateFileToDataService(xml));
  });
}

std::int32_t kqft_contract_download(kqft_contract* contract, const char* const* local,
                                    const char* const* names, std::int32_t count) {
  return Use(contract, [&](kqft_contract& used) {
    std::string xml;
    const std::int32_t wrong = TakeRecords(local, names, count, xml);
    if (wrong != KQFT_OK) return wrong;
    return NoteStart(used, used.m_client.DownFileFromDataService(xml));
  });
}

std::int32_t kqft_contract_wait(kqft_contract* contract) {
  if (contract == nullptr) return KQFT_E_NULL;
  if (!contract->m_bStarted) return KQFT_E_ARGUMENT;
  return Guarded([contract] { return contract->m_client.WaitForEnd(); });
}

std::int32_t kqft_contract_progress(kqft_contract* contract, kqft_contract_state* state) {
  if (contract == nullptr) return KQFT_E_NULL;
  return Guarded([&] {
    const CContractClient& client = contract->m_client;
    const STransferState now = client.GetTransferState();
    kqft_contract_state made = {};
    made.finished = client.IsTransFinished() ? 1 : 0;
    made.connected = client.IsConnect() ? 1 : 0;
    made.record = static_cast<std::int64_t>(now.m_nRecord);
    made.file_done = now.m_llFileDone;
    made.file_size = now.m_llFileSize;
    made.done = now.m_llDone;
    made.total = now.m_llTotal;
    made.share = static_cast<double>(client.GetTrans());
    return Give(made, state);
  });
}

std::int32_t kqft_contract_statuses(kqft_contract* contract, kqft_result** result) {
  if (contract == nullptr || result == nullptr) return KQFT_E_NULL;
  *result = nullptr;
  return Guarded([&] {
    std::string xml;
    contract->m_client.GetAllTransFileStatus(xml);
    HandOverRecords(xml, result);
    return KQFT_OK;
  });
}

std::int32_t kqft_contract_stop(kqft_contract* contract) {
  return Use(contract, [](kqft_contract& used) { return used.m_client.StopTrans(); });
}
