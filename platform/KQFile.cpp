// Files that several threads share.
//
// CKQFile only points to a handle. Every operation copies the pointer and
// works on the handle without a lock of the object, so closing never waits
// and a late write cannot reach a file that was opened later.

#include "platform/KQFile.h"

#include <limits>
#include <utility>

#include "platform/SharedWord.h"
#include "platform/System.h"

namespace {

constexpr std::int64_t kLastPosition = std::numeric_limits<std::int64_t>::max();

bool ToOpenMode(const std::string& text, EOpenMode& mode) {
  if (text == "rb") {
    mode = EOpenMode::kRead;
  } else if (text == "r+b") {
    mode = EOpenMode::kUpdate;
  } else if (text == "r+bc") {
    mode = EOpenMode::kKeep;
  } else if (text == "w+b") {
    mode = EOpenMode::kCreate;
  } else if (text == "w+bx") {
    mode = EOpenMode::kCreateNew;
  } else if (text == "a+") {
    mode = EOpenMode::kAppend;
  } else {
    return false;
  }
  return true;
}

// Moves on to what is still to fill, or to be written.
template <typename Part>
void SkipDone(Part*& parts, int& count, std::size_t bytes) {
  while (count > 0 && bytes >= parts->m_nBytes) {
    bytes -= parts->m_nBytes;
    ++parts;
    --count;
  }
  if (count == 0) return;
  parts->m_pData += bytes;
  parts->m_nBytes -= bytes;
}

// Calls `move` until all parts are moved, or nothing more is. Returns the bytes.
template <typename Part, typename Move>
int MoveParts(std::int64_t position, Part* parts, int count, const Move& move) {
  std::int64_t left = 0;
  for (int i = 0; i < count; ++i) left += static_cast<std::int64_t>(parts[i].m_nBytes);
  if (position < 0 || position > kLastPosition - left) return 0;
  std::int64_t done = 0;
  while (left > 0) {
    std::int64_t n = 0;
    move(parts, count, position + done, n);
    if (n <= 0) break;
    done += n;
    left -= n;
    SkipDone(parts, count, static_cast<std::size_t>(n));
  }
  return static_cast<int>(done);
}

}  // namespace

struct CFileHandle::SState {
  explicit SState(std::unique_ptr<ISystemFile> file) : m_pFile(std::move(file)) {}

  const std::unique_ptr<ISystemFile> m_pFile;  // constant after construction
  CSharedWord<bool> m_bClosed{false};          // shared word
  std::mutex m_mutex;                          // held across Read, Write and Seek
  std::int64_t m_llPosition = 0;               // guarded by m_mutex
};

std::shared_ptr<CFileHandle> CFileHandle::Open(const std::string& path, const std::string& mode,
                                               ESystemError* error) {
  EOpenMode openMode = EOpenMode::kRead;
  if (!ToOpenMode(mode, openMode)) return nullptr;
  std::unique_ptr<ISystemFile> file;
  const ESystemError why = System().OpenFile(path, openMode, file);
  if (error != nullptr) *error = why;
  return file == nullptr ? nullptr : std::make_shared<CFileHandle>(std::move(file));
}

CFileHandle::CFileHandle(std::unique_ptr<ISystemFile> file)
    : m_pState(std::make_unique<SState>(std::move(file))) {}

CFileHandle::~CFileHandle() = default;

int CFileHandle::ReadAt(std::int64_t position, char* buf, int len) {
  if (len <= 0) return 0;
  SReadPart whole = {buf, static_cast<std::size_t>(len)};
  return ReadAt(position, &whole, 1);
}

int CFileHandle::ReadAt(std::int64_t position, SReadPart* parts, int count) {
  if (IsClosed()) return 0;
  return MoveParts(position, parts, count,
                   [this](const SReadPart* left, int some, std::int64_t at, std::int64_t& moved) {
                     m_pState->m_pFile->ReadAt(left, some, at, moved);
                   });
}

bool CFileHandle::WriteAt(std::int64_t position, const char* data, int len) {
  if (len < 0 || position < 0 || IsClosed() || position > kLastPosition - len) return false;
  int done = 0;
  while (done < len) {
    std::int64_t n = 0;
    m_pState->m_pFile->WriteAt(data + done, static_cast<std::size_t>(len - done), position + done,
                               n);
    if (n <= 0) return false;
    done += static_cast<int>(n);
  }
  return true;
}

int CFileHandle::WriteAt(std::int64_t position, SWritePart* parts, int count) {
  if (IsClosed()) return 0;
  return MoveParts(position, parts, count,
                   [this](const SWritePart* left, int some, std::int64_t at, std::int64_t& moved) {
                     m_pState->m_pFile->WriteParts(left, some, at, moved);
                   });
}

bool CFileHandle::Flush() {
  return !IsClosed() && m_pState->m_pFile->Flush() == ESystemError::kNone;
}

bool CFileHandle::StartFlush() {
  return !IsClosed() && m_pState->m_pFile->StartFlush() == ESystemError::kNone;
}

void CFileHandle::ReadAhead(std::int64_t bytes) {
  m_pState->m_pFile->ReadAhead(bytes);
}

bool CFileHandle::Resize(std::int64_t bytes) {
  return !IsClosed() && m_pState->m_pFile->Resize(bytes) == ESystemError::kNone;
}

ESystemError CFileHandle::Lock() {
  return m_pState->m_pFile->Lock();
}

std::string CFileHandle::Note() {
  std::string text;
  m_pState->m_pFile->Note(text);
  return text;
}

void CFileHandle::SetNote(const std::string& text) {
  m_pState->m_pFile->SetNote(text);
}

int CFileHandle::Read(char* buf, int len) {
  const std::lock_guard<std::mutex> lock(m_pState->m_mutex);
  const int done = ReadAt(m_pState->m_llPosition, buf, len);
  m_pState->m_llPosition += done;
  return done;
}

int CFileHandle::Read(SReadPart* parts, int count) {
  const std::lock_guard<std::mutex> lock(m_pState->m_mutex);
  const int done = ReadAt(m_pState->m_llPosition, parts, count);
  m_pState->m_llPosition += done;
  return done;
}

bool CFileHandle::Write(const char* data, int len) {
  const std::lock_guard<std::mutex> lock(m_pState->m_mutex);
  if (!WriteAt(m_pState->m_llPosition, data, len)) return false;
  m_pState->m_llPosition += len;
  return true;
}

bool CFileHandle::Seek(std::int64_t position) {
  if (position < 0 || IsClosed()) return false;
  const std::lock_guard<std::mutex> lock(m_pState->m_mutex);
  m_pState->m_llPosition = position;
  return true;
}

void CFileHandle::MarkClosed() {
  m_pState->m_bClosed = true;
}

bool CFileHandle::IsClosed() const {
  return m_pState->m_bClosed;
}

CKQFile::~CKQFile() {
  Swap(nullptr, nullptr);
}

bool CKQFile::KQOpen(const std::string& path, std::string mode) {
  Swap(nullptr, &path);
  std::shared_ptr<CFileHandle> handle = CFileHandle::Open(path, mode);
  if (handle == nullptr) return false;
  Swap(std::move(handle), &path);
  return true;
}

int CKQFile::Read(char* buf, int len) {
  const std::shared_ptr<CFileHandle> handle = GetHandle();
  return handle == nullptr ? 0 : handle->Read(buf, len);
}

bool CKQFile::Seek(std::int64_t pos) {
  const std::shared_ptr<CFileHandle> handle = GetHandle();
  return handle != nullptr && handle->Seek(pos);
}

bool CKQFile::Write(const char* data, int len) {
  const std::shared_ptr<CFileHandle> handle = GetHandle();
  return handle != nullptr && handle->Write(data, len);
}

bool CKQFile::WriteEx(std::int64_t pos, const char* data, int len) {
  const std::shared_ptr<CFileHandle> handle = GetHandle();
  return handle != nullptr && handle->WriteAt(pos, data, len);
}

void CKQFile::Close() {
  Swap(nullptr, nullptr);
}

bool CKQFile::IsOpen() const {
  return GetHandle() != nullptr;
}

std::string CKQFile::GetFilePath() const {
  const std::lock_guard<std::mutex> lock(m_mutex);
  return m_strPath;
}

std::shared_ptr<CFileHandle> CKQFile::GetHandle() const {
  const std::lock_guard<std::mutex> lock(m_mutex);
  return m_pHandle;
}

void CKQFile::Attach(std::shared_ptr<CFileHandle> handle, const std::string& path) {
  Swap(std::move(handle), &path);
}

std::shared_ptr<CFileHandle> CKQFile::Detach() {
  const std::lock_guard<std::mutex> lock(m_mutex);
  return std::exchange(m_pHandle, nullptr);
}

void CKQFile::CloseIf(const std::shared_ptr<CFileHandle>& handle) {
  std::shared_ptr<CFileHandle> before;
  {
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (handle == nullptr || m_pHandle != handle) return;
    before = std::move(m_pHandle);
    m_pHandle = nullptr;
  }
  before->MarkClosed();
}

// The handle that was open is let go after the lock: closing it may take time.
void CKQFile::Swap(std::shared_ptr<CFileHandle> handle, const std::string* path) {
  {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_pHandle.swap(handle);
    if (path != nullptr) m_strPath = *path;
  }
  if (handle != nullptr) handle->MarkClosed();
}
