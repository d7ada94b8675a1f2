// XML text: reading it piece by piece, and escaping.

#include "platform/XmlScanner.h"

#include <cstdint>
#include <vector>

namespace {

constexpr std::size_t kDeepestElement = 64;

bool IsBlank(char c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

bool IsNameStart(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_' || c == ':' ||
         static_cast<unsigned char>(c) >= 0x80;
}

bool IsNameByte(char c) {
  return IsNameStart(c) || (c >= '0' && c <= '9') || c == '-' || c == '.';
}

// The digits of "&#...;" as a number; false when they are none or too large.
bool ToCodePoint(std::string_view digits, std::uint32_t& code) {
  constexpr std::uint32_t kLastCodePoint = 0x10FFFF;
  const bool hexadecimal = !digits.empty() && digits[0] == 'x';
  if (hexadecimal) digits.remove_prefix(1);
  if (digits.empty()) return false;
  code = 0;
  for (const char c : digits) {
    std::uint32_t digit = 0;
    if (c >= '0' && c <= '9') {
      digit = static_cast<std::uint32_t>(c - '0');
    } else if (hexadecimal && c >= 'a' && c <= 'f') {
      digit = static_cast<std::uint32_t>(c - 'a') + 10;
    } else if (hexadecimal && c >= 'A' && c <= 'F') {
      digit = static_cast<std::uint32_t>(c - 'A') + 10;
    } else {
      return false;
    }
    code = code * (hexadecimal ? 16 : 10) + digit;
    if (code > kLastCodePoint) return false;
  }
  return code < 0xD800 || code > 0xDFFF;
}

void AppendUtf8(std::string& out, std::uint32_t code) {
  if (code < 0x80) {
    out += static_cast<char>(code);
    return;
  }
  if (code < 0x800) {
    out += static_cast<char>(0xC0 | code >> 6);
  } else {
    if (code < 0x10000) {
      out += static_cast<char>(0xE0 | code >> 12);
    } else {
      out += static_cast<char>(0xF0 | code >> 18);
      out += static_cast<char>(0x80 | (code >> 12 & 0x3F));
    }
    out += static_cast<char>(0x80 | (code >> 6 & 0x3F));
  }
  out += static_cast<char>(0x80 | (code & 0x3F));
}

}  // namespace

bool CXmlScanner::LooksAt(std::string_view token) const {
  return m_strText.substr(m_nAt, token.size()) == token;
}

bool CXmlScanner::Take(std::string_view token) {
  if (!LooksAt(token)) return false;
  m_nAt += token.size();
  return true;
}

bool CXmlScanner::SkipBlanks() {
  const std::size_t begin = m_nAt;
  while (!AtEnd() && IsBlank(m_strText[m_nAt])) ++m_nAt;
  return m_nAt > begin;
}

bool CXmlScanner::SkipThrough(std::string_view end) {
  const std::size_t found = m_strText.find(end, m_nAt);
  if (found == std::string_view::npos) return false;
  m_nAt = found + end.size();
  return true;
}

bool CXmlScanner::SkipMisc() {
  for (;;) {
    SkipBlanks();
    if (Take("<!--")) {
      if (!SkipThrough("-->")) return false;
    } else if (Take("<?")) {
      if (!SkipThrough("?>")) return false;
    } else {
      return true;
    }
  }
}

bool CXmlScanner::TakeName(std::string_view& name) {
  const std::size_t begin = m_nAt;
  if (AtEnd() || !IsNameStart(m_strText[m_nAt])) return false;
  while (!AtEnd() && IsNameByte(m_strText[m_nAt])) ++m_nAt;
  name = m_strText.substr(begin, m_nAt - begin);
  return true;
}

bool CXmlScanner::TakeStartTag(std::string_view& name) {
  return Take("<") && TakeName(name);
}

EXmlTagEnd CXmlScanner::TakeTagEnd() {
  const bool blanks = SkipBlanks();
  if (Take("/>")) return EXmlTagEnd::kEmpty;
  if (Take(">")) return EXmlTagEnd::kOpen;
  return blanks && !AtEnd() ? EXmlTagEnd::kMore : EXmlTagEnd::kBad;
}

bool CXmlScanner::TakeAttribute(SXmlAttribute& attribute) {
  const std::size_t begin = m_nAt;
  if (!TakeName(attribute.m_strName)) return false;
  SkipBlanks();
  if (!Take("=")) return false;
  SkipBlanks();
  if (!LooksAt("\"") && !LooksAt("'")) return false;
  const char quote = m_strText[m_nAt++];
  attribute.m_strValue.clear();
  while (!AtEnd() && m_strText[m_nAt] != quote) {
    const char c = m_strText[m_nAt++];
    if (c == '<' || (c == '&' && !TakeReference(attribute.m_strValue))) return false;
    if (c != '&') attribute.m_strValue += c;
  }
  if (AtEnd()) return false;
  ++m_nAt;
  attribute.m_strSource = m_strText.substr(begin, m_nAt - begin);
  return true;
}

// What follows "&", through its ";".
bool CXmlScanner::TakeReference(std::string& value) {
  constexpr std::size_t kLongestReference = 12;
  const std::size_t length = m_strText.substr(m_nAt, kLongestReference).find(';');
  if (length == std::string_view::npos) return false;
  const std::string_view name = m_strText.substr(m_nAt, length);
  m_nAt += length + 1;
  if (name.substr(0, 1) == "#") {
    std::uint32_t code = 0;
    if (!ToCodePoint(name.substr(1), code)) return false;
    AppendUtf8(value, code);
    return true;
  }
  constexpr struct {
    std::string_view m_strName;
    char m_cValue;
  } kNamed[] = {{"amp", '&'}, {"lt", '<'}, {"gt", '>'}, {"quot", '"'}, {"apos", '\''}};
  for (const auto& known : kNamed) {
    if (name != known.m_strName) continue;
    value += known.m_cValue;
    return true;
  }
  return false;
}

bool CXmlScanner::SkipAttributes(EXmlTagEnd& end) {
  SXmlAttribute ignored;
  while ((end = TakeTagEnd()) == EXmlTagEnd::kMore) {
    if (!TakeAttribute(ignored)) return false;
  }
  return end != EXmlTagEnd::kBad;
}

// Text up to the next "<".
bool CXmlScanner::SkipText() {
  std::string ignored;
  while (!AtEnd() && m_strText[m_nAt] != '<') {
    if (m_strText[m_nAt++] == '&' && !TakeReference(ignored)) return false;
  }
  return !AtEnd();
}

bool CXmlScanner::TakeContent(std::string_view name, std::string_view& content) {
  const std::size_t begin = m_nAt;
  std::vector<std::string_view> open{name};
  while (SkipText()) {
    const std::size_t tag = m_nAt;
    if (Take("</")) {
      std::string_view closed;
      if (!TakeName(closed) || closed != open.back()) return false;
      SkipBlanks();
      if (!Take(">")) return false;
      open.pop_back();
      if (!open.empty()) continue;
      content = m_strText.substr(begin, tag - begin);
      return true;
    }
    if (Take("<![CDATA[")) {
      if (!SkipThrough("]]>")) return false;
    } else if (LooksAt("<!--") || LooksAt("<?")) {
      if (!SkipMisc()) return false;
    } else {
      std::string_view child;
      EXmlTagEnd end = EXmlTagEnd::kBad;
      if (!TakeStartTag(child) || !SkipAttributes(end)) return false;
      if (end == EXmlTagEnd::kOpen) open.push_back(child);
      if (open.size() > kDeepestElement) return false;
    }
  }
  return false;
}

void AppendXmlEscaped(std::string& out, std::string_view text) {
  for (const char c : text) {
    switch (c) {
      case '&':
        out += "&amp;";
        break;
      case '<':
        out += "&lt;";
        break;
      case '>':
        out += "&gt;";
        break;
      case '"':
        out += "&quot;";
        break;
      case '\'':
        out += "&apos;";
        break;
      default:
        if (static_cast<unsigned char>(c) < 0x20) {
          out += "&#" + std::to_string(static_cast<int>(c)) + ';';
        } else {
          out += c;
        }
    }
  }
}
