// Lines on their way to a file.
//
// The thread lets lines gather for a moment and writes them in one call: waking
// it for each of them would cost more than all the rest of a line. What could not be written stays
// in its place: after a full disk the file goes on within the line in which it ended.

#include "programs/kqft-server/LineLog.h"

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <utility>

#include "platform/System.h"

namespace {

constexpr std::size_t kMostBytes = std::size_t{1} << 20;  // on their way
constexpr std::size_t kGatherBytes = std::size_t{256} << 10;
constexpr int kRoomWaitMs = 1000;
constexpr int kGatherMs = 50;
constexpr int kRetryMs = 1000;
constexpr int kIdleMs = 60000;
constexpr int kLastMomentMs = 100;
const char kOutputStream[] = "-";

}  // namespace

struct CLineLog::SState {
  SState(std::string path, std::function<std::string(std::int64_t)> lostLine)
      : m_strPath(std::move(path)), m_lostLine(std::move(lostLine)) {}

  ESystemError OpenFile();
  void Run();
  void WaitForLines(std::unique_lock<std::mutex>& lock);
  void Reopen();
  ESystemError Write();
  ESystemError WriteStream();
  void Note(ESystemError error, std::size_t written);
  void Say(const std::string& what) const;
  bool HasRoom(std::size_t bytes) const { return m_nBytes + bytes <= kMostBytes; }

  const std::string m_strPath;
  const std::function<std::string(std::int64_t)> m_lostLine;

  // Used by the thread, once it runs.
  std::unique_ptr<ISystemFile> m_pFile;  // null: the output stream, or not to be opened
  std::string m_strText;                 // in hand
  bool m_bWithinLine = false;            // the file ends so, and the text goes on there

  std::mutex m_mutex;
  std::condition_variable m_work;
  std::condition_variable m_done;  // bytes were written, or cannot be; the end
  std::string m_strLines;          // guarded by m_mutex; not in hand yet
  std::size_t m_nBytes = 0;        // guarded by m_mutex; those in hand included
  std::int64_t m_llLost = 0;       // guarded by m_mutex; not told yet
  bool m_bFailing = false;         // guarded by m_mutex; the last write was not complete
  bool m_bStalled = false;         // guarded by m_mutex; somebody waited in vain
  bool m_bReopen = false;          // guarded by m_mutex
  bool m_bEnding = false;          // guarded by m_mutex
  bool m_bRuns = false;            // guarded by m_mutex
};

ESystemError CLineLog::SState::OpenFile() {
  if (m_strPath == kOutputStream) return ESystemError::kNone;
  const ESystemError error = System().OpenFile(m_strPath, EOpenMode::kAppend, m_pFile);
  SFileStatus status;
  char last = '\n';
  SReadPart part{&last, 1};
  std::int64_t bytes = 0;
  if (error == ESystemError::kNone && m_strText.empty() &&
      System().QueryFile(m_strPath, status) == ESystemError::kNone && status.m_llSize > 0 &&
      m_pFile->ReadAt(&part, 1, status.m_llSize - 1, bytes) == ESystemError::kNone &&
      last != '\n') {
    m_pFile->WriteAt("\n", 1, 0, bytes);
  }
  return error;
}

// The end of a line whose beginning went with the old file has no meaning.
void CLineLog::SState::Reopen() {
  if (m_strPath == kOutputStream) return;
  std::size_t dropped = 0;
  if (m_bWithinLine) {
    dropped = m_strText.find('\n') + 1;
    m_strText.erase(0, dropped);
    m_bWithinLine = false;
  }
  m_pFile.reset();
  OpenFile();
  const std::lock_guard<std::mutex> lock(m_mutex);
  m_nBytes -= dropped;
  m_llLost += dropped > 0 ? 1 : 0;
}

// What a stream has taken of a text is not to be learnt: a line at a time.
ESystemError CLineLog::SState::WriteStream() {
  ESystemError error = ESystemError::kNone;
  std::size_t written = 0;
  while (written < m_strText.size()) {
    const std::size_t end = m_strText.find('\n', written) + 1;
    error = System().WriteStandard(false, m_strText.substr(written, end - written));
    if (error != ESystemError::kNone) break;
    written = end;
  }
  m_strText.erase(0, written);
  return error;
}

ESystemError CLineLog::SState::Write() {
  if (m_strPath == kOutputStream) return WriteStream();
  if (m_pFile == nullptr && OpenFile() != ESystemError::kNone) return ESystemError::kNotFound;
  while (!m_strText.empty()) {
    std::int64_t bytes = 0;
    const ESystemError error = m_pFile->WriteAt(m_strText.data(), m_strText.size(), 0, bytes);
    const auto written = static_cast<std::size_t>(bytes);
    if (written > 0) m_bWithinLine = m_strText[written - 1] != '\n';
    m_strText.erase(0, written);
    if (error != ESystemError::kNone) return error;
    if (written == 0) return ESystemError::kOther;
  }
  return ESystemError::kNone;
}

// Called with the lock held.
void CLineLog::SState::Note(ESystemError error, std::size_t written) {
  const bool failed = error != ESystemError::kNone;
  m_nBytes -= written;
  if (failed && !m_bFailing) {
    Say(error == ESystemError::kNoSpace ? "the disk is full" : "cannot be written");
  }
  if (written > 0) m_bStalled = false;
  if (!failed && (m_bFailing || m_llLost > 0)) {
    Say("is written again; lines lost: " + std::to_string(m_llLost));
    if (m_llLost > 0) {
      const std::string line = m_lostLine(std::exchange(m_llLost, 0)) + "\n";
      m_strLines.insert(0, line);
      m_nBytes += line.size();
    }
  }
  m_bFailing = failed;
}

void CLineLog::SState::Say(const std::string& what) const {
  System().WriteStandard(true, "kqft-server: access log " + m_strPath + ": " + what + "\n");
}

void CLineLog::SState::WaitForLines(std::unique_lock<std::mutex>& lock) {
  System().Wait(m_work, lock, m_bFailing ? kRetryMs : kIdleMs,
                [this] { return m_bEnding || m_bReopen || (!m_bFailing && !m_strLines.empty()); });
  if (m_bFailing || m_strLines.empty()) return;
  System().Wait(m_work, lock, kGatherMs,
                [this] { return m_bEnding || m_bReopen || m_strLines.size() >= kGatherBytes; });
}

void CLineLog::SState::Run() {
  std::unique_lock<std::mutex> lock(m_mutex);
  bool ending = false;
  while (!ending) {
    WaitForLines(lock);
    if (m_strText.empty()) m_strText.swap(m_strLines);
    const bool reopen = std::exchange(m_bReopen, false);
    const bool finish = reopen && !m_bFailing;  // what came before belongs to the old file
    lock.unlock();
    ESystemError error = ESystemError::kNone;
    std::size_t written = 0;
    const auto write = [&] {
      const std::size_t begun = m_strText.size();
      error = Write();
      written += begun - m_strText.size();
    };
    if (finish) write();
    if (reopen) Reopen();
    write();
    lock.lock();
    Note(error, written);
    m_done.notify_all();
    ending = m_bEnding && (m_bFailing || (m_strLines.empty() && m_strText.empty()));
  }
  for (const std::string* text : {&m_strText, &m_strLines}) {
    m_llLost += std::count(text->begin(), text->end(), '\n');
  }
  if (m_llLost > 0) Say("ends; lines lost: " + std::to_string(m_llLost));
  m_bRuns = false;
  m_done.notify_all();
}

CLineLog::CLineLog(std::string path, std::function<std::string(std::int64_t)> lostLine)
    : m_pState(std::make_shared<SState>(std::move(path), std::move(lostLine))) {}

CLineLog::~CLineLog() {
  Close(kLastMomentMs);
}

bool CLineLog::Open() {
  return m_pState->OpenFile() == ESystemError::kNone;
}

bool CLineLog::Start() {
  {
    const std::lock_guard<std::mutex> lock(m_pState->m_mutex);
    m_pState->m_bRuns = true;
  }
  const ESystemError error = System().StartThread([state = m_pState] { state->Run(); });
  const std::lock_guard<std::mutex> lock(m_pState->m_mutex);
  if (error != ESystemError::kNone) m_pState->m_bRuns = false;
  return error == ESystemError::kNone;
}

void CLineLog::Add(std::string line) {
  SState& state = *m_pState;
  line += '\n';
  std::unique_lock<std::mutex> lock(state.m_mutex);
  if (state.m_bEnding) return;
  if (!state.HasRoom(line.size()) && !state.m_bFailing && !state.m_bStalled) {
    const bool room = System().Wait(state.m_done, lock, kRoomWaitMs, [&] {
      return state.HasRoom(line.size()) || state.m_bFailing || state.m_bEnding;
    });
    state.m_bStalled = !room;
  }
  if (!state.HasRoom(line.size())) {
    ++state.m_llLost;
    return;
  }
  state.m_nBytes += line.size();
  const bool first = state.m_strLines.empty();
  state.m_strLines += line;
  if (first || state.m_strLines.size() >= kGatherBytes) state.m_work.notify_one();
}

void CLineLog::Reopen() {
  const std::lock_guard<std::mutex> lock(m_pState->m_mutex);
  m_pState->m_bReopen = true;
  m_pState->m_work.notify_one();
}

void CLineLog::Close(int milliseconds) {
  SState& state = *m_pState;
  std::unique_lock<std::mutex> lock(state.m_mutex);
  state.m_bEnding = true;
  state.m_work.notify_one();
  System().Wait(state.m_done, lock, milliseconds, [&] { return !state.m_bRuns; });
}
