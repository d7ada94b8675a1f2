// JSON text, as far as kqft speaks it.

#include "programs/kqft/JsonObject.h"

#include <cstdio>

#include "programs/kqft/Text.h"

namespace {

std::string Quoted(const std::string& value) {
  std::string text = "\"";
  for (const char c : ReplaceNonUtf8(value)) {
    if (c == '"' || c == '\\') {
      text += '\\';
      text += c;
    } else if (static_cast<unsigned char>(c) < 0x20) {
      char escaped[8];
      std::snprintf(escaped, sizeof escaped, "\\u%04X", static_cast<unsigned>(c));
      text += escaped;
    } else {
      text += c;
    }
  }
  return text + "\"";
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
  return Member(key, Quoted(value));
}

CJsonObject& CJsonObject::Number(const std::string& key, std::int64_t value) {
  return Member(key, std::to_string(value));
}

CJsonObject& CJsonObject::Seconds(const std::string& key, double value) {
  char text[32];
  std::snprintf(text, sizeof text, "%.3f", value);
  return Member(key, text);
}

CJsonObject& CJsonObject::List(const std::string& key, const std::vector<CJsonObject>& value) {
  std::string text = "[";
  for (const CJsonObject& object : value) text += (text.size() > 1 ? "," : "") + object.Line();
  return Member(key, text + "]");
}

CJsonObject& CJsonObject::Name(const std::string& key, const std::string& value) {
  Text(key, value);
  return IsUtf8(value) ? *this : Text(key + "_hex", Hex(value));
}

CJsonObject& CJsonObject::Member(const std::string& key, const std::string& value) {
  if (m_strMembers.size() > 1) m_strMembers += ",";
  m_strMembers += Quoted(key) + ":" + value;
  return *this;
}
