// JSON text, as far as kqft speaks it.

#include "programs/kqft/JsonObject.h"

#include <charconv>
#include <cstdio>

#include "programs/kqft/Text.h"

namespace {

void AppendEscaped(std::string& text, char c) {
  if (c == '"' || c == '\\') {
    text += '\\';
    text += c;
    return;
  }
  char escaped[8];
  std::snprintf(escaped, sizeof escaped, "\\u%04X", static_cast<unsigned>(c));
  text += escaped;
}

void AppendQuoted(std::string& text, const std::string& value) {
  if (!IsUtf8(value)) return AppendQuoted(text, ReplaceNonUtf8(value));
  text += '"';
  std::size_t done = 0;
  for (std::size_t at = 0; at < value.size(); ++at) {
    const char c = value[at];
    if (c != '"' && c != '\\' && static_cast<unsigned char>(c) >= 0x20) continue;
    text.append(value, done, at - done);
    AppendEscaped(text, c);
    done = at + 1;
  }
  text.append(value, done);
  text += '"';
}

std::string Hex(const std::string& bytes) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  for (const char c : bytes) {
    const auto byte = static_cast<unsigned char>(c);
    text += kDigits[byte >> 4];
    text += kDigits[byte & 15];
  }
  return text;
}

}  // namespace

CJsonObject::CJsonObject(const std::string& type) {
  if (!type.empty()) Text("type", type);
}

CJsonObject& CJsonObject::Text(const std::string& key, const std::string& value) {
  AppendQuoted(Member(key), value);
  return *this;
}

CJsonObject& CJsonObject::Number(const std::string& key, std::int64_t value) {
  Member(key) += std::to_string(value);
  return *this;
}

CJsonObject& CJsonObject::Seconds(const std::string& key, double value) {
  char text[400];  // the longest double has 309 digits before the point
  const auto end = std::to_chars(text, text + sizeof text, value, std::chars_format::fixed, 3);
  Member(key).append(text, end.ptr);
  return *this;
}

CJsonObject& CJsonObject::Object(const std::string& key, const CJsonObject& value) {
  Member(key) += value.Line();
  return *this;
}

CJsonObject& CJsonObject::List(const std::string& key, const std::vector<CJsonObject>& value) {
  std::string text = "[";
  for (const CJsonObject& object : value) text += (text.size() > 1 ? "," : "") + object.Line();
  Member(key) += text + "]";
  return *this;
}

CJsonObject& CJsonObject::Name(const std::string& key, const std::string& value) {
  Text(key, value);
  return IsUtf8(value) ? *this : Text(key + "_hex", Hex(value));
}

std::string& CJsonObject::Member(const std::string& key) {
  if (m_strMembers.size() > 1) m_strMembers += ',';
  AppendQuoted(m_strMembers, key);
  return m_strMembers += ':';
}
