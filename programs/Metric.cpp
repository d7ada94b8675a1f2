// Metrics as text.

#include "programs/Metric.h"

#include <charconv>
#include <utility>

#include "programs/kqft/Text.h"

CMetric::CMetric(std::string& text, const std::string& name, const std::string& type,
                 const std::string& help, std::string labels)
    : m_text(text), m_strName(name), m_strLabels(std::move(labels)) {
  m_text += "# HELP " + name + " " + help + "\n# TYPE " + name + " " + type + "\n";
}

CMetric& CMetric::Sample(std::int64_t value, const std::string& labels) {
  return Add(std::to_string(value), labels);
}

CMetric& CMetric::Sample(double value, const std::string& labels) {
  char digits[32];
  const auto end = std::to_chars(digits, digits + sizeof digits, value);
  return Add(std::string(digits, end.ptr), labels);
}

CMetric& CMetric::Add(const std::string& value, const std::string& labels) {
  m_text += m_strName;
  if (!m_strLabels.empty() || !labels.empty()) {
    const bool both = !m_strLabels.empty() && !labels.empty();
    m_text += "{" + m_strLabels + (both ? "," : "") + labels + "}";
  }
  m_text += " " + value + "\n";
  return *this;
}

std::string CMetric::Label(const std::string& name, const std::string& word) {
  std::string text = name + "=\"";
  for (const char c : ReplaceNonUtf8(word)) {
    if (c == '\n') {
      text += "\\n";
      continue;
    }
    if (c == '"' || c == '\\') text += '\\';
    text += c;
  }
  return text + "\"";
}
