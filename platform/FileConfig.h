#pragma once

#include <cstddef>
#include <list>
#include <memory>
#include <string>
#include <unordered_map>

class CFileTurn;

/// A configuration file: `[Section]` lines and `key=value` lines under them.
///
/// Reads what other programs write: a byte order mark, CRLF or LF, blanks
/// around "=", comment lines that begin with ";" or "#", section and key
/// names in any case. Every line that is not changed is kept byte for byte.
///
/// Threads: one thread per object.
class QFileConfig {
 public:
  QFileConfig();
  ~QFileConfig();
  QFileConfig(const QFileConfig&) = delete;
  QFileConfig& operator=(const QFileConfig&) = delete;

  void SetFileName(const std::string& path);

  /// Until UpdateFile nobody else changes the file who asks in this way. Call
  /// before ReadConfig, since who reads, changes and writes later than another
  /// one began would undo what that one wrote.
  /// @return false when it cannot be had
  /// Blocks: while others change it, up to 5 s.
  bool TakeTurn();

  /// Takes away what a crash in the middle of an update has left beside the file.
  /// For who only reads: the next update does so by itself.
  void ClearLeft();

  /// Loads the file in place of what was in memory.
  /// @return false when it cannot be read, or holds more than 64 MiB or
  ///         1,000,000 keys and headings; nothing is then in memory.
  bool ReadConfig();

  /// Fetch a value. @return 1 when the key is there; otherwise 0, and `value`
  /// stays as it was. A number that is none reads as 0, one that does not fit
  /// as the nearest limit.
  int ReadInteger(const std::string& section, const std::string& key, int& value, bool);
  int ReadString(const std::string& section, const std::string& key, std::string& value, bool);

  /// Sets a value in memory; a missing key or section is added at the end of
  /// its section or of the file. A line break in a text becomes a blank.
  /// @param comment when not empty, becomes a comment line above a new key.
  void WriteString(const std::string& section, const std::string& key, const std::string& value,
                   const std::string& comment, bool);

  /// Writes the file back in one step: at any moment, also after a crash or
  /// on a full disk, the path holds the whole old or the whole new content. A
  /// symbolic link stays and leads to the new content.
  /// @return false when it could not; the old content is then in place.
  bool UpdateFile(bool);

 private:
  // A line with its line end, or several lines in a row that hold no entry.
  struct SLine {
    std::string m_strText;
    std::size_t m_nValue = 0;   // where the value begins
    std::size_t m_nLength = 0;  // of the value
    bool m_bEntry = false;      // a heading or a key
  };
  using Lines = std::list<SLine>;

  struct SSection {
    std::unordered_map<std::string, Lines::iterator> m_mapKeys;  // lowered; the first of equals
    Lines::iterator m_itLast;                                    // its heading or last key
  };

  void Clear();
  bool Parse(const std::string& content);
  SLine* Find(const std::string& section, const std::string& key);
  SSection& NeedSection(const std::string& section);
  void Insert(SSection& section, SLine line);
  std::string Content() const;

  // Used by one thread.
  std::unique_ptr<CFileTurn> m_pTurn;
  std::string m_strPath;
  std::string m_strLineEnd = "\n";
  Lines m_lstLines;                                         // the first: byte order mark or empty
  std::unordered_map<std::string, SSection> m_mapSections;  // lowered; "" begins the file
  std::size_t m_nEntries = 0;
};
