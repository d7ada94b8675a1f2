// Bulk download: the next file is asked for where the end of one is heard of.
//
// The worker opens targets ahead and closes those that are over. The delivery
// thread stores each piece in the current target and, once its end has come,
// asks for the next one that is open: no other thread has to run in between.
// Where the end has come together with data, that is before these are stored.

#include <utility>

#include "client/BulkState.h"
#include "client/ClientState.h"
#include "client/KQFileBulkTransfer.h"
#include "client/TransferRun.h"
#include "net/LayerThread.h"
#include "net/NetWorkPackHead.h"
#include "platform/ExpertUtils.h"
#include "platform/KQFile.h"
#include "platform/System.h"
#include "protocol/MessageCodes.h"
#include "protocol/Messages.h"
#include "protocol/TransferTypes.h"

namespace {

constexpr std::size_t kOpenAhead = 16;
constexpr std::size_t kRefillAt = kOpenAhead / 2;
constexpr int kDrainMs = 10000;
constexpr int kWriteMs = 5000;  // a stop waits so long for a piece that is being stored

bool Passes(int result) {
  return result == ERROR_CODE_STOP_SERVICE || result == ERROR_CODE_SERVER_DOWNDATA ||
         result == ERROR_CODE_CLIENT_UPDATA || result == ERROR_CODE_TRANS_BUSY;
}

// Opened without a look before, as the base does it; null when it cannot be.
std::unique_ptr<ISystemFile> OpenOrMake(const std::string& local, bool& made) {
  std::unique_ptr<ISystemFile> file;
  made = System().OpenFile(local, EOpenMode::kUpdate, file) == ESystemError::kNotFound;
  if (!made || System().OpenFile(local, EOpenMode::kCreate, file) != ESystemError::kNotFound) {
    return file;
  }
  EU::CExpertUtils::CreateAllDir(local);
  System().OpenFile(local, EOpenMode::kCreate, file);
  return file;
}

// True when the good end of the file has arrived behind the piece that is being
// delivered.
bool EndFollows() {
  std::string_view behind = LayerThread().m_strBehind;
  while (behind.size() >= kPackHeadBytes && CNetWorkPackHead::IsValid(behind.data())) {
    const unsigned code = CNetWorkPackHead::Code(behind.data());
    const std::size_t bytes = CNetWorkPackHead::BodyLength(behind.data());
    behind.remove_prefix(kPackHeadBytes);
    if (bytes > behind.size()) return false;
    if (code == NET_STC_TRANSFILEDATA_END) {
      const auto end = DecodeBody<SResult>(behind.data(), static_cast<int>(bytes));
      return end && end->m_nResult == RESULT_OK;
    }
    if (code != NET_STC_TRANSFILEDATA) return false;
    behind.remove_prefix(bytes);
  }
  return false;
}

}  // namespace

bool CKQFileBulkTransfer::TakeDownload(int code, int length, const char* body) {
  switch (code) {
    case NET_STC_TRANSFILEDATA:
      return TakePiece(length, body);
    case NET_CTS_PREPARETRANS_FILE:
      return TakeRequestAnswer(length, body);
    case NET_STC_TRANSFILEDATA_END:
      return TakeFileEnd(length, body);
    default:
      return false;
  }
}

// A file has no gaps: what does not follow is lost, and all behind it.
bool CKQFileBulkTransfer::TakePiece(int length, const char* body) {
  const auto piece = DecodeBody<SFileData>(body, length);
  std::shared_ptr<CFileHandle> file;
  std::string ahead;
  {
    const std::lock_guard lock(m_pBulk->m_mutex);
    if (!m_pBulk->m_current) return false;
    ++m_pBulk->m_ullEvents;
    if (!piece || m_pBulk->m_bDropped || m_pBulk->m_nResult != RESULT_OK) return true;
    if (piece->m_llPosition == m_pBulk->m_llNext) file = m_pBulk->m_current->m_pFile;
    m_bWriting = file != nullptr;
    if (file != nullptr && !IsNextAsked() && !m_bStop && !m_pBulk->m_bBroken &&
        !m_pBulk->m_ready.empty() && EndFollows()) {
      m_pBulk->m_ready.front().m_bAsked = true;
      ahead = Request(m_pBulk->m_ready.front());
    }
  }
  if (!ahead.empty()) SendText(NET_CTS_PREPARETRANS_FILE, ahead);
  const auto bytes = static_cast<int>(piece->m_strData.size());
  const bool stored =
      file != nullptr && file->WriteAt(piece->m_llPosition, piece->m_strData.data(), bytes);
  m_bWriting = false;
  m_llTransBytes += bytes;
  {
    const std::lock_guard lock(m_pBulk->m_mutex);
    m_pBulk->m_llNext += bytes;
    if (stored) return true;
    m_pBulk->m_nResult = ERROR_CODE_CLIENT_WRITE;
    if (IsNextAsked()) return true;  // which a stop would end
  }
  SendMessage(NET_CTS_TRANS_STOP, nullptr, 0);  // the rest is of no use
  return true;
}

// Under the mutex.
bool CKQFileBulkTransfer::IsNextAsked() const {
  return !m_pBulk->m_ready.empty() && m_pBulk->m_ready.front().m_bAsked;
}

std::string CKQFileBulkTransfer::Request(const STarget& target) {
  return EncodeBody(SDownloadStart{target.m_llHave, target.m_strName});
}

// One that is good may be that of the file before: its data came first. A
// refusal is of the current one, as nothing else is asked for.
bool CKQFileBulkTransfer::TakeRequestAnswer(int length, const char* body) {
  std::unique_lock lock(m_pBulk->m_mutex);
  if (!m_pBulk->m_current) return false;
  const auto answer = DecodeBody<SResult>(body, length);
  if (!answer) return true;
  if (answer->m_nResult == RESULT_OK) {
    ++m_pBulk->m_ullEvents;
    m_pBulk->m_bAnswered = true;
  } else {
    EndCurrent(lock, answer->m_nResult);
  }
  return true;
}

bool CKQFileBulkTransfer::TakeFileEnd(int length, const char* body) {
  std::unique_lock lock(m_pBulk->m_mutex);
  if (!m_pBulk->m_current) return false;
  const auto end = DecodeBody<SResult>(body, length);
  if (!end) return true;
  const STarget& target = *m_pBulk->m_current;
  if (!m_pBulk->m_bAnswered && !m_pBulk->m_bDropped && end->m_nResult == RESULT_OK &&
      m_pBulk->m_llNext == target.m_llHave && target.m_llHave < target.m_llSize) {
    m_pBulk->m_nResult = ERROR_CODE_SEND_STOPPED;  // the end of another one, told twice
    Distrust();
  }
  EndCurrent(lock, m_pBulk->m_nResult == RESULT_OK ? end->m_nResult : m_pBulk->m_nResult);
  return true;
}

// Leaves the mutex.
void CKQFileBulkTransfer::EndCurrent(std::unique_lock<std::mutex>& lock, int result) {
  STarget target = std::move(*m_pBulk->m_current);
  m_pBulk->m_current.reset();
  ++m_pBulk->m_ullEvents;
  if (!m_pBulk->m_bDropped && Passes(result) && ++target.m_nRefusals <= kMostRefusals) {
    m_pBulk->m_bPause = true;
    m_pBulk->m_ready.push_front(std::move(target));
    m_pBulk->m_changed.notify_all();
    return lock.unlock();
  }
  if (!m_pBulk->m_bDropped) StoreStatus(m_pBulk->m_ullRun, target.m_nRecord, result);
  m_pBulk->m_vecOver.push_back(std::move(target));
  if (m_pBulk->m_ready.size() <= kRefillAt) m_pBulk->m_changed.notify_all();
  AskNext(lock);
}

// Leaves the mutex: nobody else asks while there is a current file.
void CKQFileBulkTransfer::AskNext(std::unique_lock<std::mutex>& lock) {
  if (m_pBulk->m_current || m_pBulk->m_ready.empty()) return lock.unlock();
  const bool asked = IsNextAsked();
  if (!asked && (m_bStop || m_pBulk->m_bBroken)) return lock.unlock();
  m_pBulk->m_current = std::move(m_pBulk->m_ready.front());
  m_pBulk->m_ready.pop_front();
  ++m_pBulk->m_ullEvents;
  m_pBulk->m_bAnswered = false;
  m_pBulk->m_bDropped = asked && m_pBulk->m_bDropped;
  m_pBulk->m_nResult = RESULT_OK;
  STarget& target = *m_pBulk->m_current;
  target.m_remove = nullptr;
  m_pBulk->m_llNext = target.m_llHave;
  BeginRecord(m_pBulk->m_ullRun, target.m_nRecord, target.m_llSize);
  if (target.m_nRefusals == 0) m_llTransBytes += target.m_llHave;
  const std::string body = asked ? "" : Request(target);
  lock.unlock();
  if (!asked) SendText(NET_CTS_PREPARETRANS_FILE, body);
}

// Whatever happens, the run is finished: callers wait for that.
void CKQFileBulkTransfer::ReceiveFileFromServer() {
  CTransferRun run;
  bool begun = false;
  try {
    if (!TakeRun(PROCESS_TYPE_CLIENT_DOWNDATA, run)) return;
    begun = BeginBulk(run);
    if (begun && WaitUntilDrained(run)) ReceiveAll(run);
  } catch (...) {  // no memory, as a rule
    StoreStatus(run.m_ullNumber, run.m_nRecord, ERROR_CODE_CLIENT_SENDCMD);
  }
  if (begun) {
    EndReceiving();
    EndBulk(run);
  }
  FinishRun(run.m_ullNumber, true);
}

// A stopped download may still be arriving. False when it does not end.
bool CKQFileBulkTransfer::WaitUntilDrained(const CTransferRun& run) {
  std::unique_lock lock(m_pBulk->m_mutex);
  const auto isOver = [this] { return !m_pBulk->m_current || m_bStop; };
  for (int waited = 0; waited < kDrainMs; waited += kBulkStepMs) {
    if (System().Wait(m_pBulk->m_changed, lock, kBulkStepMs, isOver) || IsTransStopped()) {
      if (!m_pBulk->m_current) m_pBulk->m_ready.clear();  // of a link that is gone
      return true;
    }
  }
  if (!run.m_vecKey.empty()) StoreStatus(run.m_ullNumber, 0, ERROR_CODE_DOWN_STALLED);
  return false;
}

void CKQFileBulkTransfer::ReceiveAll(const CTransferRun& run) {
  std::size_t next = 0;
  while (!IsTransStopped() && !IsBroken()) {
    OpenAhead(run, next);
    std::unique_lock lock(m_pBulk->m_mutex);
    if (!m_pBulk->m_current && m_pBulk->m_ready.empty() && next == run.m_vecKey.size()) return;
    const bool refused = std::exchange(m_pBulk->m_bPause, false);
    lock.unlock();
    if (refused) System().Sleep(kReadyPauseMs);
    lock.lock();
    AskNext(lock);
    if (WatchCurrent(next < run.m_vecKey.size()) != RESULT_OK) return;
  }
}

// Opens the next targets until enough are ready, and closes what is over. The
// first one is asked for before the second one is opened.
void CKQFileBulkTransfer::OpenAhead(const CTransferRun& run, std::size_t& next) {
  while (!IsTransStopped()) {
    std::vector<STarget> over;
    std::unique_lock lock(m_pBulk->m_mutex);
    over.swap(m_pBulk->m_vecOver);
    const bool enough = next == run.m_vecKey.size() || m_pBulk->m_ready.size() >= kOpenAhead;
    const bool idle = !m_pBulk->m_current && !m_pBulk->m_ready.empty();
    lock.unlock();
    if (enough || idle) return;
    OpenNext(run, next);
    ++next;
  }
}

void CKQFileBulkTransfer::OpenNext(const CTransferRun& run, std::size_t record) {
  const Channel_Key_Value& rec = run.m_vecKey[record];
  STarget target;
  target.m_nRecord = record;
  target.m_strName = rec.m_strName;
  target.m_llSize = rec.m_llSize;
  const std::string local = GuardedCopy(m_strPrjDir) + rec.m_strPath;
  static_cast<STargetFile&>(target) = OpenTarget(record, local);
  if (target.m_pFile == nullptr) {
    StoreStatus(run.m_ullNumber, record, ERROR_CODE_CLIENT_CREATEFILE);
    WriteLog("ERROR_CODE_CLIENT_CREATEFILE " + local + " \n");
    return;
  }
  const std::lock_guard lock(m_pBulk->m_mutex);
  m_pBulk->m_ready.push_back(std::move(target));
}

CKQFileBulkTransfer::STargetFile CKQFileBulkTransfer::OpenTarget(std::size_t,
                                                                 const std::string& path) {
  STargetFile target;
  bool made = false;
  std::unique_ptr<ISystemFile> file = OpenOrMake(path, made);
  if (file == nullptr) return target;
  target.m_pFile = std::make_shared<CFileHandle>(std::move(file));
  if (made) {
    target.m_remove = [path] { System().RemoveFile(path); };
  } else {
    target.m_llHave = FileBytes(path);
  }
  return target;
}

// Waits until there is something to do. Returns -25 or -26 when the server is
// silent, which ends the transfer.
// @param more there are files to be opened
int CKQFileBulkTransfer::WatchCurrent(bool more) {
  std::unique_lock lock(m_pBulk->m_mutex);
  const auto isOver = [this, more] {
    return !m_pBulk->m_current || (more && m_pBulk->m_ready.size() <= kRefillAt) || m_bStop;
  };
  std::int64_t since = System().SteadyMilliseconds();
  std::uint64_t seen = CountEvents();
  while (m_pBulk->m_current && !IsTransStopped()) {
    if (System().Wait(m_pBulk->m_changed, lock, kBulkStepMs, isOver)) break;
    const std::int64_t now = System().SteadyMilliseconds();
    const std::uint64_t events = CountEvents();
    if (std::exchange(seen, events) != events) since = now;
    const bool asked = m_pBulk->m_bAnswered || m_pBulk->m_llNext > m_pBulk->m_current->m_llHave;
    if (now - since <= (asked ? kStallSeconds * 1000 : kRequestWaitMs)) continue;
    const int result = asked ? ERROR_CODE_DOWN_STALLED : ERROR_CODE_WAIT_SERVERRESPOND_DOWN;
    StoreStatus(m_pBulk->m_ullRun, m_pBulk->m_current->m_nRecord, result);
    m_pBulk->m_bSilent = true;
    return result;
  }
  return RESULT_OK;
}

// The server is told to stop; what it still sends of the current file is
// dropped. Files whose turn never came leave nothing behind.
void CKQFileBulkTransfer::EndReceiving() {
  std::deque<STarget> unused;
  std::vector<STarget> over;
  bool stops = false;
  {
    const std::lock_guard lock(m_pBulk->m_mutex);
    unused.swap(m_pBulk->m_ready);
    if (!unused.empty() && unused.front().m_bAsked) {  // the current one in a moment
      unused.front().m_pFile.reset();
      m_pBulk->m_ready.push_back(std::move(unused.front()));
      unused.pop_front();
    }
    over.swap(m_pBulk->m_vecOver);
    stops = m_pBulk->m_current.has_value() && !std::exchange(m_pBulk->m_bDropped, true);
  }
  if (stops) SendMessage(NET_CTS_TRANS_STOP, nullptr, 0);
  for (int i = 0; i < kWriteMs && m_bWriting; ++i) System().Sleep(1);
  {
    const std::lock_guard lock(m_pBulk->m_mutex);
    if (m_pBulk->m_current) m_pBulk->m_current->m_pFile.reset();
  }
  for (STarget& target : unused) {
    target.m_pFile.reset();
    if (target.m_remove) target.m_remove();
  }
}
