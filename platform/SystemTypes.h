#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

/// What the calls of the system take and return, see System.h.

/// Why a call failed, as far as a caller tells cases apart.
enum class ESystemError {
  kNone,
  kNotFound,     ///< no such file or directory
  kExists,       ///< the name is taken
  kAccess,       ///< permission denied, or a read-only file system
  kNoSpace,      ///< disk or quota full
  kTooMany,      ///< no descriptor or thread left
  kNotRegular,   ///< a directory, pipe or device where a file was asked for
  kBadPath,      ///< empty, with a NUL byte, too long, or the root where that is refused
  kBusy,         ///< somebody else holds it
  kUnsupported,  ///< the file system does not offer it
  kOther,
};

/// How a file is opened. Only regular files open; anything else is
/// kNotRegular and never blocks (opening a pipe would).
enum class EOpenMode {
  kRead,       ///< must exist
  kUpdate,     ///< must exist; read and write, content kept
  kCreate,     ///< created, or emptied when it exists; read and write
  kKeep,       ///< created when missing; read and write, content kept
  kCreateNew,  ///< created; kExists when the name is taken; read and write
  kAppend,     ///< created when missing; every write goes to the end
};

/// A place in memory that a read fills, one of several in a row.
struct SReadPart {
  char* m_pData = nullptr;
  std::size_t m_nBytes = 0;
};

/// Bytes that a write takes, one of several in a row.
struct SWritePart {
  const char* m_pData = nullptr;
  std::size_t m_nBytes = 0;
};

/// What a path names, symbolic links followed.
struct SFileStatus {
  bool m_bRegular = false;
  bool m_bDirectory = false;
  std::int64_t m_llSize = 0;  ///< bytes; 0 for anything but a regular file
};

/// Attribute bits of a directory entry.
constexpr unsigned kAttributeReadOnly = 1;
constexpr unsigned kAttributeHidden = 2;
constexpr unsigned kAttributeDirectory = 16;
constexpr unsigned kAttributeNormal = 128;  ///< no other bit is set
constexpr unsigned kAttributeReparsePoint = 1024;

/// One entry of a directory.
struct SDirectoryEntry {
  std::string m_strName;
  unsigned m_nAttributes = 0;
  std::int64_t m_llSize = 0;        ///< bytes; 0 for anything but a regular file
  std::int64_t m_llCreateTime = 0;  ///< seconds since 1970
};

/// A moment as the local calendar and clock show it.
struct SCalendarTime {
  int m_nYear = 1970, m_nMonth = 1, m_nDay = 1, m_nHour = 0, m_nMinute = 0, m_nSecond = 0;
};
