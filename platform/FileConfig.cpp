// Configuration files: read tolerantly, changed line by line, replaced whole.
//
// The text stays as it was read, cut into lines; a change replaces only the
// value inside its line. Writing goes to a new file beside the old one, which
// then takes over its name, so readers in other sessions and processes never
// meet half a file.

#include "platform/FileConfig.h"

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <limits>
#include <memory>
#include <string_view>
#include <utility>

#include "platform/ExpertUtils.h"
#include "platform/FileTurn.h"
#include "platform/GBKUTF8Transfer.h"
#include "platform/KQPlatForm.h"
#include "platform/System.h"

namespace {

constexpr std::size_t kLargestFileBytes = 64U << 20;
constexpr std::size_t kMostEntries = 1000000;
constexpr std::string_view kBlanks = " \t\r\n";

std::string Lowered(std::string_view text) {
  std::string lowered(text);
  return EU::CExpertUtils::ToLower(lowered);
}

std::string_view Trimmed(std::string_view text) {
  const std::size_t begin = text.find_first_not_of(kBlanks);
  if (begin == std::string_view::npos) return {};
  return text.substr(begin, text.find_last_not_of(kBlanks) - begin + 1);
}

// A text as it can stand in one line and is read back.
std::string AsOneLine(std::string_view text) {
  std::string line(Trimmed(text));
  for (char& c : line) {
    if (c == '\r' || c == '\n') c = ' ';
  }
  return line;
}

// A line as it is understood.
struct SParsedLine {
  enum class EKind { kPlain, kHeading, kKey } m_kind = EKind::kPlain;
  std::string m_strName;      // lowered
  std::size_t m_nValue = 0;   // where a key's value begins, and its length
  std::size_t m_nLength = 0;  //
};

SParsedLine ParseLine(std::string_view text) {
  SParsedLine parsed;
  const std::string_view shown = Trimmed(text);
  if (shown.empty() || shown.front() == ';' || shown.front() == '#') return parsed;
  if (shown.front() == '[') {
    const std::size_t close = shown.find(']');
    if (close == std::string_view::npos) return parsed;
    parsed.m_kind = SParsedLine::EKind::kHeading;
    parsed.m_strName = Lowered(Trimmed(shown.substr(1, close - 1)));
    return parsed;
  }
  const std::size_t equals = text.find('=');
  if (equals == std::string_view::npos) return parsed;
  parsed.m_strName = Lowered(Trimmed(text.substr(0, equals)));
  if (parsed.m_strName.empty()) return parsed;
  parsed.m_kind = SParsedLine::EKind::kKey;
  const std::string_view value = Trimmed(text.substr(equals + 1));
  parsed.m_nLength = value.size();
  parsed.m_nValue =
      value.empty() ? equals + 1 : static_cast<std::size_t>(value.data() - text.data());
  return parsed;
}

bool ReadAll(ISystemFile& file, std::string& content) {
  constexpr std::size_t kBlockBytes = 65536;
  for (;;) {
    const std::size_t have = content.size();
    content.resize(have + kBlockBytes);
    const SReadPart block = {content.data() + have, kBlockBytes};
    std::int64_t n = 0;
    if (file.ReadAt(&block, 1, static_cast<std::int64_t>(have), n) != ESystemError::kNone) {
      return false;
    }
    content.resize(have + static_cast<std::size_t>(n));
    if (n == 0) return true;
    if (content.size() > kLargestFileBytes) return false;
  }
}

bool WriteAll(ISystemFile& file, const std::string& content) {
  std::size_t done = 0;
  while (done < content.size()) {
    std::int64_t n = 0;
    file.WriteAt(content.data() + done, content.size() - done, static_cast<std::int64_t>(done), n);
    if (n <= 0) return false;
    done += static_cast<std::size_t>(n);
  }
  return true;
}

}  // namespace

QFileConfig::QFileConfig() {
  Clear();
}

QFileConfig::~QFileConfig() = default;

void QFileConfig::SetFileName(const std::string& path) {
  m_strPath = path;
}

bool QFileConfig::ReadConfig() {
  Clear();
  std::unique_ptr<ISystemFile> file;
  System().OpenFile(m_strPath, EOpenMode::kRead, file);
  std::string content;
  if (file == nullptr || !ReadAll(*file, content)) return false;
  if (Parse(content)) return true;
  Clear();
  return false;
}

void QFileConfig::Clear() {
  m_mapSections.clear();
  m_lstLines.assign(1, SLine());
  m_lstLines.front().m_bEntry = true;  // nothing is joined to it
  m_mapSections[""].m_itLast = m_lstLines.begin();
  m_strLineEnd = "\n";
  m_nEntries = 0;
}

// False when there are more entries than allowed.
bool QFileConfig::Parse(const std::string& content) {
  const std::string_view text = content;
  std::size_t at = 0;
  if (text.substr(0, kUtf8ByteOrderMark.size()) == kUtf8ByteOrderMark) {
    at = kUtf8ByteOrderMark.size();
    m_lstLines.front().m_strText = kUtf8ByteOrderMark;
  }
  const std::size_t firstEnd = text.find('\n');
  if (firstEnd != text.npos && firstEnd > 0 && text[firstEnd - 1] == '\r') m_strLineEnd = "\r\n";

  SSection* section = &m_mapSections[""];
  while (at < text.size()) {
    const std::size_t end = std::min(text.find('\n', at), text.size() - 1) + 1;
    const std::string_view line = text.substr(at, end - at);
    at = end;
    const SParsedLine parsed = ParseLine(line);
    if (parsed.m_kind == SParsedLine::EKind::kPlain) {
      if (m_lstLines.back().m_bEntry) m_lstLines.emplace_back();
      m_lstLines.back().m_strText += line;
      continue;
    }
    if (++m_nEntries > kMostEntries) return false;
    const bool heading = parsed.m_kind == SParsedLine::EKind::kHeading;
    m_lstLines.push_back({std::string(line), parsed.m_nValue, parsed.m_nLength, true});
    const auto place = std::prev(m_lstLines.end());
    if (heading) section = &m_mapSections[parsed.m_strName];
    if (!heading) section->m_mapKeys.emplace(parsed.m_strName, place);
    section->m_itLast = place;
  }
  return true;
}

QFileConfig::SLine* QFileConfig::Find(const std::string& section, const std::string& key) {
  const auto inSections = m_mapSections.find(Lowered(Trimmed(section)));
  if (inSections == m_mapSections.end()) return nullptr;
  const auto inKeys = inSections->second.m_mapKeys.find(Lowered(Trimmed(key)));
  return inKeys == inSections->second.m_mapKeys.end() ? nullptr : &*inKeys->second;
}

int QFileConfig::ReadInteger(const std::string& section, const std::string& key, int& value, bool) {
  using Limits = std::numeric_limits<int>;
  std::string text;
  if (ReadString(section, key, text, true) == 0) return 0;
  value = static_cast<int>(
      std::clamp<std::int64_t>(CKQPlatForm::KQToLONGLONG(text), Limits::min(), Limits::max()));
  return 1;
}

int QFileConfig::ReadString(const std::string& section, const std::string& key, std::string& value,
                            bool) {
  const SLine* const line = Find(section, key);
  if (line == nullptr) return 0;
  value = line->m_strText.substr(line->m_nValue, line->m_nLength);
  return 1;
}

void QFileConfig::WriteString(const std::string& section, const std::string& key,
                              const std::string& value, const std::string& comment, bool) {
  const std::string name = AsOneLine(key);
  const std::string text = AsOneLine(value);
  if (name.empty()) return;
  if (SLine* const line = Find(section, name)) {
    line->m_strText.replace(line->m_nValue, line->m_nLength, text);
    line->m_nLength = text.size();
    return;
  }
  SSection& place = NeedSection(section);
  if (!comment.empty()) {
    Insert(place, {"; " + AsOneLine(comment) + m_strLineEnd, 0, 0, true});
  }
  Insert(place, {name + "=" + text + m_strLineEnd, name.size() + 1, text.size(), true});
  place.m_mapKeys.emplace(Lowered(name), place.m_itLast);
  ++m_nEntries;
}

// The section, added at the end of the file when it is missing.
QFileConfig::SSection& QFileConfig::NeedSection(const std::string& section) {
  const std::string name = AsOneLine(section);
  const auto [found, added] = m_mapSections.try_emplace(Lowered(name));
  if (added) {
    found->second.m_itLast = std::prev(m_lstLines.end());
    Insert(found->second, {"[" + name + "]" + m_strLineEnd, 0, 0, true});
    ++m_nEntries;
  }
  return found->second;
}

// Puts a line behind the section's last one, which gets a line end if it was
// the end of the file.
void QFileConfig::Insert(SSection& section, SLine line) {
  std::string& before = section.m_itLast->m_strText;
  const bool firstLine = section.m_itLast == m_lstLines.begin();
  if (!firstLine && (before.empty() || before.back() != '\n')) before += m_strLineEnd;
  section.m_itLast = m_lstLines.insert(std::next(section.m_itLast), std::move(line));
}

std::string QFileConfig::Content() const {
  std::string content;
  for (const SLine& line : m_lstLines) content += line.m_strText;
  // A name that looks like the mark needs one in front, or it would be taken
  // for it.
  const bool marked = !m_lstLines.front().m_strText.empty();
  return !marked && content.starts_with(kUtf8ByteOrderMark) ? content.insert(0, kUtf8ByteOrderMark)
                                                            : content;
}

bool QFileConfig::TakeTurn() {
  std::string path;
  if (System().FollowLinks(m_strPath, path) != ESystemError::kNone) return false;
  m_pTurn = std::make_unique<CFileTurn>();
  if (!m_pTurn->Take(path)) m_pTurn = nullptr;
  return m_pTurn != nullptr;
}

void QFileConfig::ClearLeft() {
  std::string path;
  if (System().FollowLinks(m_strPath, path) == ESystemError::kNone) CFileTurn::ClearLeft(path);
}

bool QFileConfig::UpdateFile(bool) {
  const std::string content = Content();
  if (m_nEntries > kMostEntries || content.size() > kLargestFileBytes) return false;
  // What a link leads to is replaced, and lies perhaps on another file system.
  std::string path;
  if (System().FollowLinks(m_strPath, path) != ESystemError::kNone) return false;
  if (m_pTurn == nullptr && !TakeTurn()) return false;
  std::unique_ptr<CFileTurn> turn = std::move(m_pTurn);
  const std::string& temporary = turn->Temporary();
  std::unique_ptr<ISystemFile> file;
  if (System().OpenFile(temporary, EOpenMode::kCreate, file) != ESystemError::kNone) return false;
  // A file system without permissions of its own refuses to copy them; the
  // content matters more.
  if (!CKQPlatForm::IsFileMissing(path)) System().CopyPermissions(path, temporary);
  const bool written = WriteAll(*file, content) && file->Flush() == ESystemError::kNone;
  file.reset();
  if (!written || System().RenameFile(temporary, path) != ESystemError::kNone) {
    System().RemoveFile(temporary);
    return false;
  }
  turn.reset();
  // Every reader sees the new content from here on; a directory that cannot
  // be flushed only leaves open which of the two a power failure keeps.
  const std::string directory = EU::CExpertUtils::PickDirectory(path);
  System().FlushDirectory(directory.empty() ? "." : directory);
  return true;
}
