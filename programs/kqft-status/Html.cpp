// Escaping, in one place.

#include "programs/kqft-status/Html.h"

#include <cstring>

namespace {

const char* Escaped(char c) {
  switch (c) {
    case '&':
      return "&amp;";
    case '<':
      return "&lt;";
    case '>':
      return "&gt;";
    case '"':
      return "&quot;";
    case '\'':
      return "&#39;";
    default:
      return static_cast<unsigned char>(c) < ' ' ? "\xEF\xBF\xBD" : nullptr;
  }
}

}  // namespace

CHtml::CHtml(const std::string& text) {
  for (const char c : text) {
    if (const char* const escaped = Escaped(c)) {
      m_strBytes += escaped;
    } else {
      m_strBytes += c;
    }
  }
}

CHtml& CHtml::operator+=(const CHtml& more) {
  m_strBytes += more.m_strBytes;
  return *this;
}

CHtml CHtml::Fill(const char* fragment,
                  std::initializer_list<std::pair<const char*, CHtml>> values) {
  CHtml html;
  const char* at = fragment;
  while (const char* const open = std::strchr(at, '{')) {
    const char* const close = std::strchr(open, '}');
    if (close == nullptr) break;
    html.m_strBytes.append(at, open);
    const std::string name(open + 1, close);
    for (const auto& [key, value] : values) {
      if (name == key) html.m_strBytes += value.m_strBytes;
    }
    at = close + 1;
  }
  html.m_strBytes += at;
  return html;
}
