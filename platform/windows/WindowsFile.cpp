// Files on Windows. Only files on disks open. Several programs may have a file
// open at a time, and it can be renamed and deleted meanwhile, as elsewhere.

#include <windows.h>

#include <winioctl.h>

#include <algorithm>
#include <atomic>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/windows/WindowsPath.h"
#include "platform/windows/WindowsPlace.h"

namespace {

constexpr DWORD kMostAtOnce = 1U << 30;

// Beside the content, in a stream of the file.
constexpr wchar_t kNoteStream[] = L":kqft.receiving";
constexpr std::size_t kLongestNote = 256;

// A gap that is longer is worth a sparse file: filling it with zeros, as the
// file system does otherwise, takes its time when the first byte behind it is
// written.
constexpr std::int64_t kLongestFilledGap = 16 << 20;

// Far behind the end of every file, since what is locked nobody reads.
constexpr DWORD kLockHigh = 0x7FFFFFFF;

// Newer than the headers that compilers bring along.
constexpr auto kDispositionInfoEx = static_cast<FILE_INFO_BY_HANDLE_CLASS>(21);
constexpr auto kRenameInfoEx = static_cast<FILE_INFO_BY_HANDLE_CLASS>(22);
constexpr DWORD kRenameIgnoresReadOnly = 0x40;

OVERLAPPED At(std::int64_t position) {
  OVERLAPPED at = {};
  at.Offset = static_cast<DWORD>(position);
  at.OffsetHigh = static_cast<DWORD>(position >> 32);
  return at;
}

class CWindowsFile final : public ISystemFile {
 public:
  CWindowsFile(CHandle handle, std::wstring path, bool append)
      : m_handle(std::move(handle)), m_strPath(std::move(path)), m_bAppend(append) {}

  // The system takes its time with what is left locked.
  ~CWindowsFile() override {
    OVERLAPPED at = FarByte();
    if (m_bLocked) UnlockFileEx(m_handle.Get(), 0, 1, 0, &at);
  }

  ESystemError ReadAt(const SReadPart* parts, int count, std::int64_t position,
                      std::int64_t& bytes) override {
    bytes = 0;
    for (int i = 0; i < count; ++i) {
      DWORD got = 0;
      OVERLAPPED at = At(position + bytes);
      const auto size = static_cast<DWORD>(std::min<std::size_t>(parts[i].m_nBytes, kMostAtOnce));
      if (ReadFile(m_handle.Get(), parts[i].m_pData, size, &got, &at) == 0) {
        const DWORD code = GetLastError();
        if (code == ERROR_HANDLE_EOF || bytes > 0) return ESystemError::kNone;
        return ToSystemError(code);
      }
      bytes += got;
      if (got < parts[i].m_nBytes) break;
    }
    return ESystemError::kNone;
  }

  ESystemError WriteAt(const char* data, std::size_t size, std::int64_t position,
                       std::int64_t& bytes) override {
    bytes = 0;
    if (!m_bAppend) AllowGap(position);
    // All bits set stand for the end of the file.
    OVERLAPPED at = At(m_bAppend ? -1 : position);
    DWORD written = 0;
    const auto part = static_cast<DWORD>(std::min<std::size_t>(size, kMostAtOnce));
    const bool done = WriteFile(m_handle.Get(), data, part, &written, &at) != 0;
    const ESystemError error = LastError(!done);
    bytes = done ? written : 0;
    return error;
  }

  // The call for bytes that lie apart takes whole pages only.
  ESystemError WriteParts(const SWritePart* parts, int count, std::int64_t position,
                          std::int64_t& bytes) override {
    if (count == 1) return WriteAt(parts->m_pData, parts->m_nBytes, position, bytes);
    std::string joined;
    for (int i = 0; i < count; ++i) joined.append(parts[i].m_pData, parts[i].m_nBytes);
    return WriteAt(joined.data(), joined.size(), position, bytes);
  }

  ESystemError Flush() override { return LastError(FlushFileBuffers(m_handle.Get()) == 0); }

  // There is no call that only begins; what is to be written is bounded by the
  // steps in which this is called.
  ESystemError StartFlush() override { return Flush(); }

  // There is no call that does not wait.
  void ReadAhead(std::int64_t) override {}

  ESystemError Resize(std::int64_t bytes) override {
    AllowGap(bytes);
    FILE_END_OF_FILE_INFO end = {};
    end.EndOfFile.QuadPart = bytes;
    return LastError(
        SetFileInformationByHandle(m_handle.Get(), FileEndOfFileInfo, &end, sizeof end) == 0);
  }

  ESystemError Lock() override {
    OVERLAPPED at = FarByte();
    if (LockFileEx(m_handle.Get(), LOCKFILE_EXCLUSIVE_LOCK | LOCKFILE_FAIL_IMMEDIATELY, 0, 1, 0,
                   &at) != 0) {
      m_bLocked = true;
      return ESystemError::kNone;
    }
    const DWORD code = GetLastError();
    if (code == ERROR_LOCK_VIOLATION || code == ERROR_IO_PENDING) return ESystemError::kBusy;
    const bool isUnknown = code == ERROR_INVALID_FUNCTION || code == ERROR_NOT_SUPPORTED;
    return isUnknown ? ESystemError::kUnsupported : ToSystemError(code);
  }

  // What is about to be removed can be opened no more, and is then nobody's.
  ESystemError IsNamed(const std::string& path, bool& is) override {
    is = false;
    CPlace place;
    CHandle handle;
    const ESystemError error = place.Find(path);
    if (error != ESystemError::kNone) return error;
    BY_HANDLE_FILE_INFORMATION own = {};
    BY_HANDLE_FILE_INFORMATION found = {};
    if (place.Open(FILE_READ_ATTRIBUTES, OPEN_EXISTING, true, handle) != ESystemError::kNone) {
      return ESystemError::kNone;
    }
    const bool isKnown = GetFileInformationByHandle(m_handle.Get(), &own) != 0 &&
                         GetFileInformationByHandle(handle.Get(), &found) != 0;
    is = isKnown && own.dwVolumeSerialNumber == found.dwVolumeSerialNumber &&
         own.nFileIndexHigh == found.nFileIndexHigh && own.nFileIndexLow == found.nFileIndexLow;
    return LastError(!isKnown);
  }

  ESystemError Note(std::string& text) override {
    text.clear();
    if (!KeepsStreams()) return ESystemError::kNone;
    const CHandle stream = OpenStream(GENERIC_READ, OPEN_EXISTING);
    if (!stream.IsOpen()) return LastError(GetLastError() != ERROR_FILE_NOT_FOUND);
    char found[kLongestNote];
    DWORD bytes = 0;
    const ESystemError error =
        LastError(ReadFile(stream.Get(), found, sizeof found, &bytes, nullptr) == 0);
    if (error == ESystemError::kNone) text.assign(found, bytes);
    return error;
  }

  // What was written before has to lie on the disk first: a stream is no part
  // of what the file system keeps in order.
  ESystemError SetNote(const std::string& text) override {
    if (!KeepsStreams()) return text.empty() ? ESystemError::kNone : ESystemError::kOther;
    const std::wstring name = m_strPath + kNoteStream;
    if (text.empty()) {
      return LastError(DeleteFileW(name.c_str()) == 0 && GetLastError() != ERROR_FILE_NOT_FOUND);
    }
    const ESystemError flushed = Flush();
    if (flushed != ESystemError::kNone) return flushed;
    const CHandle stream = OpenStream(GENERIC_WRITE, CREATE_ALWAYS);
    if (!stream.IsOpen()) return ToSystemError(GetLastError());
    DWORD written = 0;
    const auto size = static_cast<DWORD>(text.size());
    const bool done = WriteFile(stream.Get(), text.data(), size, &written, nullptr) != 0 &&
                      FlushFileBuffers(stream.Get()) != 0;
    return LastError(!done);
  }

 private:
  static OVERLAPPED FarByte() {
    OVERLAPPED at = {};
    at.OffsetHigh = kLockHigh;
    return at;
  }

  bool KeepsStreams() const {
    DWORD flags = 0;
    return GetVolumeInformationByHandleW(m_handle.Get(), nullptr, 0, nullptr, nullptr, &flags,
                                         nullptr, 0) != 0 &&
           (flags & FILE_NAMED_STREAMS) != 0;
  }

  CHandle OpenStream(DWORD access, DWORD disposition) const {
    const std::wstring name = m_strPath + kNoteStream;
    return CHandle(CreateFileW(name.c_str(), access,
                               FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                               disposition, FILE_ATTRIBUTE_NORMAL, nullptr));
  }

  // A file system without sparse files refuses, and fills the gap.
  void AllowGap(std::int64_t position) {
    if (position - m_llReached.load(std::memory_order_relaxed) <= kLongestFilledGap) {
      if (position > m_llReached) m_llReached = position;
      return;
    }
    LARGE_INTEGER size = {};
    if (GetFileSizeEx(m_handle.Get(), &size) != 0 && position - size.QuadPart > kLongestFilledGap) {
      DWORD ignored = 0;
      DeviceIoControl(m_handle.Get(), FSCTL_SET_SPARSE, nullptr, 0, nullptr, 0, &ignored, nullptr);
    }
    m_llReached = position;
  }

  // Constant after construction.
  const CHandle m_handle;
  const std::wstring m_strPath;
  const bool m_bAppend;

  bool m_bLocked = false;  // used by whoever opened it

  // The farthest position that was written to; a guess is enough.
  std::atomic<std::int64_t> m_llReached{0};
};

DWORD AccessOf(EOpenMode mode) {
  return mode == EOpenMode::kRead ? GENERIC_READ : GENERIC_READ | GENERIC_WRITE;
}

DWORD DispositionOf(EOpenMode mode) {
  if (mode == EOpenMode::kCreateNew) return CREATE_NEW;
  return mode == EOpenMode::kRead || mode == EOpenMode::kUpdate ? OPEN_EXISTING : OPEN_ALWAYS;
}

// What others have open for a moment (a scanner of viruses, a reader) cannot be
// renamed or deleted where the file system lacks the newer ways.
template <typename Try>
ESystemError Insist(const Try& attempt) {
  constexpr int kAttempts = 20;
  constexpr int kPauseMs = 10;
  for (int i = 1;; ++i) {
    const bool done = attempt();
    const DWORD code = done ? ERROR_SUCCESS : GetLastError();
    const bool mayPass = code == ERROR_SHARING_VIOLATION || code == ERROR_ACCESS_DENIED ||
                         code == ERROR_LOCK_VIOLATION || code == ERROR_USER_MAPPED_FILE;
    if (!mayPass || i == kAttempts) return done ? ESystemError::kNone : ToSystemError(code);
    ::Sleep(kPauseMs);
  }
}

// One step for everybody who looks, also while somebody has `to` open.
bool RenameAtOnce(HANDLE file, const std::wstring& to) {
  const std::size_t nameBytes = to.size() * sizeof(wchar_t);
  std::vector<char> memory(sizeof(FILE_RENAME_INFO) + nameBytes);
  auto* const rename = reinterpret_cast<FILE_RENAME_INFO*>(memory.data());
  rename->Flags = FILE_RENAME_FLAG_REPLACE_IF_EXISTS | FILE_RENAME_FLAG_POSIX_SEMANTICS |
                  kRenameIgnoresReadOnly;
  rename->FileNameLength = static_cast<DWORD>(nameBytes);
  std::copy(to.begin(), to.end(), rename->FileName);
  return SetFileInformationByHandle(file, kRenameInfoEx, rename,
                                    static_cast<DWORD>(memory.size())) != 0;
}

bool DeleteAtOnce(HANDLE file) {
  FILE_DISPOSITION_INFO_EX disposition = {};
  disposition.Flags = FILE_DISPOSITION_FLAG_DELETE | FILE_DISPOSITION_FLAG_POSIX_SEMANTICS |
                      FILE_DISPOSITION_FLAG_IGNORE_READONLY_ATTRIBUTE;
  return SetFileInformationByHandle(file, kDispositionInfoEx, &disposition, sizeof disposition) !=
         0;
}

bool IsDirectoryPath(const std::wstring& path) {
  const DWORD attributes = GetFileAttributesW(path.c_str());
  return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

bool IsOnDisk(HANDLE handle, BY_HANDLE_FILE_INFORMATION& found) {
  return GetFileType(handle) == FILE_TYPE_DISK && GetFileInformationByHandle(handle, &found) != 0;
}

}  // namespace

ESystemError CWindowsSystem::OpenFile(const std::string& path, EOpenMode mode,
                                      std::unique_ptr<ISystemFile>& file) {
  file = nullptr;
  CPlace place;
  CHandle handle;
  ESystemError error = place.Find(path);
  if (error != ESystemError::kNone) return error;
  error = place.Open(AccessOf(mode), DispositionOf(mode), true, handle);
  if (error == ESystemError::kAccess && IsDirectoryPath(place.Path())) {
    return ESystemError::kNotRegular;
  }
  if (error != ESystemError::kNone) return error;
  BY_HANDLE_FILE_INFORMATION found = {};
  if (!IsOnDisk(handle.Get(), found)) return ESystemError::kNotRegular;
  if ((found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0) return ESystemError::kNotRegular;
  const bool isEmpty = found.nFileSizeHigh == 0 && found.nFileSizeLow == 0;
  auto opened =
      std::make_unique<CWindowsFile>(std::move(handle), place.Path(), mode == EOpenMode::kAppend);
  if (mode == EOpenMode::kCreate && !isEmpty) error = opened->Resize(0);
  if (error == ESystemError::kNone) file = std::move(opened);
  return error;
}

ESystemError CWindowsSystem::QueryFile(const std::string& path, SFileStatus& status) {
  status = SFileStatus();
  CPlace place;
  CHandle handle;
  ESystemError error = place.Find(path);
  if (error == ESystemError::kNone) {
    error = place.Open(FILE_READ_ATTRIBUTES, OPEN_EXISTING, true, handle);
  }
  if (error != ESystemError::kNone) return error;
  BY_HANDLE_FILE_INFORMATION found = {};
  if (!IsOnDisk(handle.Get(), found)) return ESystemError::kNone;
  status.m_bDirectory = (found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
  status.m_bRegular = !status.m_bDirectory;
  if (status.m_bRegular) {
    status.m_llSize = (static_cast<std::int64_t>(found.nFileSizeHigh) << 32) | found.nFileSizeLow;
  }
  return ESystemError::kNone;
}

// Who writes is in the way of an opening that lets nobody write.
ESystemError CWindowsSystem::QueryWriters(const std::string& path, bool& any) {
  any = false;
  CPlace place;
  CHandle handle;
  ESystemError error = place.Find(path);
  if (error == ESystemError::kNone) {
    error =
        place.Open(GENERIC_READ, OPEN_EXISTING, true, handle, FILE_SHARE_READ | FILE_SHARE_DELETE);
  }
  any = error == ESystemError::kBusy;
  return any ? ESystemError::kNone : error;
}

ESystemError CWindowsSystem::RemoveFile(const std::string& path) {
  CPlace place;
  CHandle handle;
  const ESystemError error = place.Find(path);
  if (error != ESystemError::kNone) return error;
  if (place.Open(DELETE, OPEN_EXISTING, false, handle) == ESystemError::kNone) {
    if (IsDirectoryPath(place.Path()) && !IsLink(handle.Get())) return ESystemError::kNotRegular;
    if (DeleteAtOnce(handle.Get())) return ESystemError::kNone;
    handle = CHandle();
    MakeWritable(place.Path());
  }
  return Insist([&] { return DeleteFileW(place.Path().c_str()) != 0; });
}

ESystemError CWindowsSystem::RenameFile(const std::string& from, const std::string& to) {
  CPlace source;
  CPlace target;
  ESystemError error = source.Find(from);
  if (error == ESystemError::kNone) error = target.Find(to);
  if (error != ESystemError::kNone) return error;
  CHandle handle;
  if (source.Open(DELETE, OPEN_EXISTING, false, handle) == ESystemError::kNone &&
      RenameAtOnce(handle.Get(), target.Path())) {
    return ESystemError::kNone;
  }
  handle = CHandle();
  return Insist([&] {
    return MoveFileExW(source.Path().c_str(), target.Path().c_str(), MOVEFILE_REPLACE_EXISTING) !=
           0;
  });
}

ESystemError CWindowsSystem::FollowLinks(const std::string& path, std::string& target) {
  target.clear();
  CPlace place;
  CHandle handle;
  const ESystemError error = place.Find(path);
  if (error != ESystemError::kNone) return error;
  target = path;
  if (place.Open(FILE_READ_ATTRIBUTES, OPEN_EXISTING, false, handle) != ESystemError::kNone ||
      !IsLink(handle.Get()) ||
      place.Open(FILE_READ_ATTRIBUTES, OPEN_EXISTING, true, handle) != ESystemError::kNone) {
    return ESystemError::kNone;
  }
  std::wstring real(32768, L'\0');
  const DWORD length = GetFinalPathNameByHandleW(handle.Get(), real.data(),
                                                 static_cast<DWORD>(real.size()), VOLUME_NAME_DOS);
  real.resize(length < real.size() ? length : 0);
  if (!real.empty()) target = FromNativePath(real);
  return ESystemError::kNone;
}
