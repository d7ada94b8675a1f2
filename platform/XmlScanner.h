#pragma once

#include <cstddef>
#include <string>
#include <string_view>

/// A name="value" pair as it stands in the text.
struct SXmlAttribute {
  std::string_view m_strName;
  std::string_view m_strSource;  ///< name, "=" and quoted value
  std::string m_strValue;        ///< references resolved
};

/// How a start tag ended.
enum class EXmlTagEnd {
  kMore,   ///< an attribute follows
  kOpen,   ///< ">"
  kEmpty,  ///< "/>"
  kBad,
};

/// Reads XML from front to back: elements, attributes, comments, CDATA and
/// processing instructions; no document type, hence no entities of its own.
/// Runs in linear time and without recursion. Every operation returns false
/// on text that is not well-formed; the place is then undefined.
///
/// The text must outlive the scanner.
class CXmlScanner {
 public:
  explicit CXmlScanner(std::string_view text) : m_strText(text) {}

  bool AtEnd() const { return m_nAt == m_strText.size(); }
  std::size_t Position() const { return m_nAt; }

  /// Skips blanks, comments and processing instructions.
  bool SkipMisc();

  /// True, and past it, when `token` stands here.
  bool Take(std::string_view token);
  bool LooksAt(std::string_view token) const;

  /// "<" and the name behind it.
  bool TakeStartTag(std::string_view& name);

  /// What stands next in a start tag, past ">" or "/>".
  EXmlTagEnd TakeTagEnd();
  bool TakeAttribute(SXmlAttribute& attribute);

  /// The rest of a start tag whose attributes do not matter.
  bool SkipAttributes(EXmlTagEnd& end);

  /// What an open element holds, and its end tag. `content` is what stood
  /// between, as it was.
  bool TakeContent(std::string_view name, std::string_view& content);

 private:
  bool SkipBlanks();
  bool SkipThrough(std::string_view end);
  bool TakeName(std::string_view& name);
  bool TakeReference(std::string& value);
  bool SkipText();

  // Used by one thread.
  std::string_view m_strText;
  std::size_t m_nAt = 0;
};

/// Appends `text` as it must stand between double quotes.
void AppendXmlEscaped(std::string& out, std::string_view text);
