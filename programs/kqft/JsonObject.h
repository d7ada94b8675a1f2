#pragma once

#include <cstdint>
#include <string>
#include <vector>

/// One JSON object, its members in the order of the calls.
class CJsonObject {
 public:
  /// @param type becomes the first member, "type"; "" for none
  explicit CJsonObject(const std::string& type = "");

  CJsonObject& Text(const std::string& key, const std::string& value);
  CJsonObject& Number(const std::string& key, std::int64_t value);
  CJsonObject& Seconds(const std::string& key, double value);
  CJsonObject& Object(const std::string& key, const CJsonObject& value);
  CJsonObject& List(const std::string& key, const std::vector<CJsonObject>& value);

  /// A file name. Where it is not UTF-8, `key` holds it with U+FFFD in the
  /// place of foreign bytes, and `key`_hex the bytes themselves.
  CJsonObject& Name(const std::string& key, const std::string& value);

  /// The object on one line, without a line end.
  std::string Line() const { return m_strMembers + "}"; }

 private:
  /// Begins a member. @return the text that its value is to be appended to
  std::string& Member(const std::string& key);

  std::string m_strMembers = "{";
};
