#pragma once

#include <string>
#include <vector>

/// A configuration file: `[Section]` lines and `key=value` lines under them.
///
/// Reads what other programs write: a byte order mark, CRLF or LF, blanks
/// around "=", comment lines that begin with ";" or "#", section and key
/// names in any case. Every line that is not changed is kept byte for byte.
///
/// Threads: one thread per object.
class QFileConfig {
 public:
  void SetFileName(const std::string& path);

  /// Loads the file. @return false when it cannot be read.
  bool ReadConfig();

  /// Fetch a value. @return 1 when the key is there; otherwise 0, and `value`
  /// stays as it was. A number that is none reads as 0, one that does not fit
  /// as the nearest limit.
  int ReadInteger(const std::string& section, const std::string& key, int& value, bool);
  int ReadString(const std::string& section, const std::string& key, std::string& value, bool);

  /// Sets a value in memory; a missing key or section is added at the end of
  /// its section or of the file.
  /// @param comment when not empty, becomes a comment line above a new key.
  void WriteString(const std::string& section, const std::string& key, const std::string& value,
                   const std::string& comment, bool);

  /// Writes the file back in one step: at any moment, also after a crash or
  /// on a full disk, the path holds the whole old or the whole new content.
  /// @return false when it could not; the old content is then in place.
  bool UpdateFile(bool);

 private:
  struct SLine {
    std::string m_strText;     // with its line end
    std::string m_strSection;  // lowered; the section the line lies in
    std::string m_strKey;      // lowered; empty when the line is no key line
    std::string m_strValue;
  };

  void Parse(const std::string& content);
  SLine* Find(const std::string& section, const std::string& key);

  std::string m_strPath;
  std::string m_strLineEnd = "\n";
  std::vector<SLine> m_vecLines;
};
