// Client observer: callbacks of the C face, and the progress that is asked for.

#include "bindings/c/ClientObserver.h"

#include <algorithm>

#include "bindings/c/Result.h"

namespace {

kqft_progress ProgressOf(const STransferProgress& progress) {
  auto made = Sized<kqft_progress>();
  made.running = 1;
  made.done = progress.m_llDone;
  made.total = progress.m_llTotal;
  made.moved = progress.m_llMoved;
  made.files_done = static_cast<std::int64_t>(progress.m_nFilesDone);
  made.files_total = static_cast<std::int64_t>(progress.m_nFilesTotal);
  made.file_done = progress.m_llFileDone;
  made.file_size = progress.m_llFileSize;
  made.silent_ms = progress.m_llSilentMs;
  made.bytes_per_second = progress.m_dBytesPerSecond;
  made.file = progress.m_strFile.c_str();
  return made;
}

}  // namespace

void CClientObserver::SetRunning(bool running) {
  const std::lock_guard lock(m_mutex);
  if (running) m_progress = {};
  m_bRunning = running;
}

kqft_progress CClientObserver::Progress(char* file, std::size_t fileBytes) const {
  const std::lock_guard lock(m_mutex);
  kqft_progress made = ProgressOf(m_progress);
  made.running = m_bRunning ? 1 : 0;
  made.file = "";
  if (file != nullptr && fileBytes > 0) {
    const std::size_t length = std::min(m_progress.m_strFile.size(), fileBytes - 1);
    m_progress.m_strFile.copy(file, length);
    file[length] = '\0';
    made.file = file;
  }
  return made;
}

void CClientObserver::OnProgress(const STransferProgress& progress) {
  {
    const std::lock_guard lock(m_mutex);
    m_progress = progress;
  }
  if (m_callbacks.progress == nullptr) return;
  const kqft_progress made = ProgressOf(progress);
  m_callbacks.progress(m_callbacks.user, &made);
}

void CClientObserver::OnPlanned(std::size_t files, std::int64_t bytes) {
  if (m_callbacks.planned == nullptr) return;
  m_callbacks.planned(m_callbacks.user, static_cast<std::int64_t>(files), bytes);
}

void CClientObserver::OnFileEnd(const STransferItem& item) {
  if (m_callbacks.file == nullptr) return;
  const kqft_item made = ItemOf(item);
  m_callbacks.file(m_callbacks.user, &made);
}

void CClientObserver::OnRound(const STransferResult& result) {
  if (m_callbacks.round == nullptr) return;
  const std::string why = WordsOf(result);
  const kqft_summary made = SummaryOf(result, CodeOf(result, false), why.c_str());
  m_callbacks.round(m_callbacks.user, &made);
}

void CClientObserver::Notice(std::int32_t kind, std::int32_t value, const std::string& text) const {
  if (m_callbacks.notice != nullptr) {
    m_callbacks.notice(m_callbacks.user, kind, value, text.c_str());
  }
}

void CClientObserver::OnLeftOut(const SLeftOut& left) {
  Notice(left.m_bProblem ? KQFT_NOTICE_PROBLEM : KQFT_NOTICE_LEFT_OUT, 0,
         left.m_strPath + ": " + left.m_strWhy);
}

void CClientObserver::OnWaiting(const std::string& why) {
  Notice(KQFT_NOTICE_WAITING, 0, why);
}

void CClientObserver::OnReconnecting() {
  Notice(KQFT_NOTICE_RECONNECTING, 0, "");
}

void CClientObserver::OnNotConnected(int code, const std::string& why) {
  Notice(KQFT_NOTICE_NOT_CONNECTED, code, why);
}

void CClientObserver::OnRetrying(std::size_t, int pauseMs, const std::string& why) {
  Notice(KQFT_NOTICE_RETRYING, pauseMs, why);
}
