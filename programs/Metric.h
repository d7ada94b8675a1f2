#pragma once

#include <cstdint>
#include <string>

/// One metric in the text format of Prometheus: its head, then a sample each.
class CMetric {
 public:
  /// @param text   what is appended to; outlives this
  /// @param type   "gauge" or "counter"
  /// @param labels that every sample bears, as made by Label; "" for none
  CMetric(std::string& text, const std::string& name, const std::string& type,
          const std::string& help, std::string labels = "");

  CMetric& Sample(std::int64_t value, const std::string& labels = "");
  CMetric& Sample(double value, const std::string& labels = "");

  /// @param word any bytes
  static std::string Label(const std::string& name, const std::string& word);

 private:
  CMetric& Add(const std::string& value, const std::string& labels);

  std::string& m_text;
  const std::string m_strName;
  const std::string m_strLabels;
};
