// Durable uploads: every 64 MiB the system begins to write what has arrived,
// and the session waits for what it began 64 MiB before. So the flush at the
// end finds at most 128 MiB to wait for, which a disk of 5 MB/s writes in the
// 30 s that a client waits, and the wait for the bulk is spent while data
// arrives, where nobody's patience is limited.

#include "session/DurableUpload.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "platform/ExpertUtils.h"
#include "platform/HardWareCommon.h"
#include "platform/Identity.h"
#include "platform/KQPlatForm.h"
#include "platform/System.h"
#include "session/DirectoryEntries.h"

namespace {

constexpr std::int64_t kStepBytes = 64 << 20;
constexpr int kOwnDirectory = 2;  // as PickDirectory counts
constexpr int kMostLevels = 1000;
constexpr char kNoteSeparator = ' ';

// What stands beside a file that is not whole, each but the last followed by a
// separator. Several servers may use one storage, so the run of a system says
// nothing without its machine. The process is for people to read.
struct SNote {
  std::string m_strBoot;            // the run of the system that wrote the note
  std::int64_t m_llSafeBytes = 0;   // this much lay on the disk by then
  std::int64_t m_llWholeBytes = 0;  // the length from which the file was cut; 0: it was not
  std::string m_strProcess;         // its number there
  std::string m_strMachine;         // whose system it was
};

std::string TakeWord(std::string& text) {
  const std::size_t end = std::min(text.find(kNoteSeparator), text.size());
  std::string word = text.substr(0, end);
  text.erase(0, end + 1);
  return word;
}

std::int64_t TakeBytes(std::string& text) {
  return std::max<std::int64_t>(CKQPlatForm::KQToLONGLONG(TakeWord(text)), 0);
}

bool ReadNote(CFileHandle& file, SNote& note) {
  std::string text = file.Note();
  if (text.empty()) return false;
  note.m_strBoot = TakeWord(text);
  note.m_llSafeBytes = TakeBytes(text);
  note.m_llWholeBytes = TakeBytes(text);
  note.m_strProcess = TakeWord(text);
  note.m_strMachine = text;
  return true;
}

// "" when the system cannot tell.
std::string BootName() {
  std::string name;
  System().QueryBootName(name);
  return name;
}

std::string MachineName() {
  std::string name;
  System().QueryMachineName(name);
  return name;
}

// A file system that keeps no notes, and a system that cannot name itself,
// leave the second accident to chance.
void WriteNote(CFileHandle& file, std::int64_t safeBytes, std::int64_t wholeBytes) {
  const std::string boot = BootName();
  const std::string machine = MachineName();
  if (boot.empty() || machine.empty()) return;
  file.SetNote(boot + kNoteSeparator + std::to_string(safeBytes) + kNoteSeparator +
               std::to_string(wholeBytes) + kNoteSeparator + std::to_string(ProcessId()) +
               kNoteSeparator + machine);
}

// Whether bytes may have been lost with the system that wrote the note. Of
// another machine nobody here knows whether it still runs, but who holds the
// file knows that it does not receive it any more.
bool WasLeftByACrash(const SNote& note, bool locked) {
  const std::string boot = BootName();
  if (boot.empty() || note.m_strBoot.empty() || note.m_strMachine.empty()) return false;
  if (note.m_strMachine != MachineName()) return locked;
  return note.m_strBoot != boot;
}

std::int64_t SizeOf(const std::string& path) {
  return static_cast<std::int64_t>(CHardWareCommon::GetFileSize(path));
}

std::string DirectoryAbove(const std::string& path, int level) {
  const std::string directory = EU::CExpertUtils::PickDirectory(path, kOwnDirectory + level);
  return directory.empty() ? "." : directory;
}

}  // namespace

int CDurableUpload::CountNewEntries(const std::string& path) {
  int count = 1;
  while (count < kMostLevels && !CKQPlatForm::IsFileExist(DirectoryAbove(path, count - 1))) {
    ++count;
  }
  if (count > 1) CDirectoryEntries::OfProcess().Forget(DirectoryAbove(path, count - 2));
  return count;
}

CDurableUpload::SFlushed::SFlushed() : m_ullMoment(CDirectoryEntries::OfProcess().Moment()) {}

std::string CDurableUpload::WriterOf(CFileHandle& file) {
  SNote note;
  return ReadNote(file, note) ? note.m_strMachine + " process " + note.m_strProcess : "";
}

void CDurableUpload::Recover(CFileHandle& file, const std::string& path, bool locked) {
  SNote note;
  if (!ReadNote(file, note) || !WasLeftByACrash(note, locked)) return;
  const std::int64_t size = SizeOf(path);
  if (size == 0) return;  // or not to be told
  if (size > note.m_llSafeBytes && !file.Resize(note.m_llSafeBytes)) return;
  SetNoteFor(file, std::min(size, note.m_llSafeBytes), std::max(size, note.m_llWholeBytes));
}

// A file that was cut keeps its note until it is as long again as it was.
void CDurableUpload::SetNoteFor(CFileHandle& file, std::int64_t bytes, std::int64_t wholeBytes) {
  if (bytes >= wholeBytes) return file.SetNote("");
  WriteNote(file, bytes, wholeBytes);
}

void CDurableUpload::Begin(CFileHandle& file, const std::string& path, const std::string& root,
                           int newEntries, std::int64_t keptBytes) {
  const std::int64_t begin = std::max<std::int64_t>(keptBytes, 0);
  if (path != m_strPath) {
    EndPending();  // given up by the client, without an end
    m_nNewEntries = 0;
    m_llSafeBytes = begin;
    m_strPath = path;
    m_strRoot = root;
  }
  // The end of a file that is gone on with may not lie on the disk yet.
  SNote note;
  m_bNoted = ReadNote(file, note);
  m_llSafeBytes = std::min(m_llSafeBytes, begin);
  if (m_bNoted) m_llSafeBytes = std::min(m_llSafeBytes, note.m_llSafeBytes);
  m_llWholeBytes = keptBytes < 0 ? 0 : note.m_llWholeBytes;
  m_bShortened = begin < m_llWholeBytes;
  m_bWantsNote = true;
  m_llStartedBytes = m_llSafeBytes;
  m_llEnd = begin;
  m_llStepBytes = 0;
  m_bInOrder = true;
  m_bFailed = false;
  m_bDataStarted = m_bNoteStarted = m_bStartFailed = false;
  // Nobody has brought the name of a file to the disk whose end never came.
  m_nNewEntries = std::max({m_nNewEntries, newEntries, m_bNoted ? 1 : 0});
}

// Not at the beginning: most files that are opened again are whole.
void CDurableUpload::BeforeWrite(CFileHandle& file) {
  if (!m_bWantsNote) return;
  m_bWantsNote = false;
  m_bNoted = true;
  WriteNote(file, m_llSafeBytes, m_llWholeBytes);
}

bool CDurableUpload::Wrote(CFileHandle& file, std::int64_t position, std::int64_t bytes) {
  if (m_strPath.empty()) return true;
  m_bInOrder = m_bInOrder && position == m_llEnd;
  m_llEnd = position + bytes;
  m_llStepBytes += bytes;
  if (m_llStepBytes < kStepBytes) return true;
  m_llStepBytes = 0;
  if (!file.StartFlush()) return Fail(file);
  if (!m_bInOrder) return true;
  m_llSafeBytes = std::max(m_llSafeBytes, m_llStartedBytes);
  m_llStartedBytes = m_llEnd;
  if (m_bNoted) WriteNote(file, m_llSafeBytes, m_llWholeBytes);
  return true;
}

// Where nothing was begun the note is that of another server, a durable one.
bool CDurableUpload::End(CFileHandle& file, SFlushed& flushed) {
  if (m_strPath.empty()) {
    file.SetNote("");
    return true;
  }
  if (m_bNoted) StartData(file);
  StartNote(file);
  const bool isWritten = !m_bStartFailed && file.Flush();
  // Also of a file that failed: others may lie in the directories it made.
  if (!FlushDirectories(flushed) || !isWritten) return Fail(file);
  m_strPath.clear();
  return true;
}

// A flush may not tell again what this one says.
void CDurableUpload::StartData(CFileHandle& file) {
  if (!HasBegun() || std::exchange(m_bDataStarted, true)) return;
  m_bStartFailed = !file.StartFlush();
}

// The note goes to the disk with the flush: one that stays behind would have a
// confirmed file cut. It changes once the data are written out, so that it
// never says more than there is.
void CDurableUpload::StartNote(CFileHandle& file) {
  if (!m_bNoted || m_bStartFailed || std::exchange(m_bNoteStarted, true)) return;
  m_bStartFailed = !file.StartFlush();
  if (m_bStartFailed) return;
  SetNoteFor(file, std::max(m_llSafeBytes, SizeOf(m_strPath)), m_llWholeBytes);
}

bool CDurableUpload::FlushDirectories(SFlushed& flushed) const {
  std::vector<std::string> known;
  for (int level = 0; level < kMostLevels && NeedsFlush(level); ++level) {
    const std::string directory = DirectoryAbove(m_strPath, level);
    if (IsOfServer(level)) known.push_back(directory);
    if (flushed.m_directories.count(directory) > 0) continue;
    if (System().FlushDirectory(directory) != ESystemError::kNone) return false;
    flushed.m_directories.insert(directory);
  }
  CDirectoryEntries::OfProcess().Add(known, flushed.m_ullMoment);
  return true;
}

// Whether the directory has an entry on the way to the file that may not lie on
// the disk: one that was made for it, or below the server's own directory any,
// until this process has seen to it.
bool CDurableUpload::NeedsFlush(int level) const {
  if (level < m_nNewEntries) return true;
  const int below = std::max(level - 1, 0);
  return IsOfServer(level) && !CDirectoryEntries::OfProcess().Has(DirectoryAbove(m_strPath, below));
}

bool CDurableUpload::IsOfServer(int level) const {
  return !m_strRoot.empty() && DirectoryAbove(m_strPath, level).rfind(m_strRoot, 0) == 0;
}

bool CDurableUpload::EndPending() {
  if (CKQPlatForm::IsFileMissing(m_strPath)) m_strPath.clear();
  if (m_strPath.empty()) return true;
  if (m_bFailed) return false;
  const std::shared_ptr<CFileHandle> file = CFileHandle::Open(m_strPath, "r+b");
  if (file == nullptr) return false;
  if (file->Lock() == ESystemError::kBusy) {  // somebody else goes on with it: theirs to note
    m_bFailed = !file->Flush();
    if (!m_bFailed) m_strPath.clear();
    return !m_bFailed;
  }
  SFlushed flushed;
  return End(*file, flushed);
}

bool CDurableUpload::Fail(CFileHandle& file) {
  m_bFailed = true;
  m_bDataStarted = m_bNoteStarted = m_bStartFailed = false;
  const std::int64_t size = SizeOf(m_strPath);
  const bool cut = size > m_llSafeBytes && file.Resize(m_llSafeBytes);
  if (cut) m_llWholeBytes = std::max(m_llWholeBytes, size);
  if (cut || m_bNoted) WriteNote(file, m_llSafeBytes, m_llWholeBytes);
  m_llStartedBytes = m_llSafeBytes;
  m_bInOrder = false;
  return false;
}
