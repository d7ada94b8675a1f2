#pragma once

#include <initializer_list>
#include <string>
#include <utility>

/// Text that may stand in a page. Whatever becomes one is escaped, unless it
/// comes out of Fill.
class CHtml {
 public:
  CHtml() = default;
  CHtml(const std::string& text);  // NOLINT: text wherever a page is put together
  CHtml(const char* text) : CHtml(std::string(text)) {}

  const std::string& Bytes() const { return m_strBytes; }
  CHtml& operator+=(const CHtml& more);

  /// A fragment of the program's own, each {name} in it replaced.
  static CHtml Fill(const char* fragment,
                    std::initializer_list<std::pair<const char*, CHtml>> values);

 private:
  std::string m_strBytes;
};
