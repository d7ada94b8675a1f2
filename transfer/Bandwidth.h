#pragma once

#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

#include "net/RateLimit.h"

/// From a minute of the day on so many bytes a second; 0: as many as it gets.
struct SBandwidthStep {
  int m_nMinute = 0;
  int m_nRate = 0;
};

/// A limit that both ways share, the same all day or by a timetable. What was
/// not used for a quarter of a second is lost, so that nothing catches up.
class CBandwidth : public IRateLimit {
 public:
  /// Reads "512k", "1.5M", "10485760", "off", or "08:00,512k 19:00,off", which
  /// is in the machine's local time and goes round at midnight.
  /// @param steps by their minutes; empty when nothing is limited
  /// @return what is wrong with the text; "" when nothing is
  static std::string Parse(const std::string& text, std::vector<SBandwidthStep>& steps);

  explicit CBandwidth(std::vector<SBandwidthStep> steps);

  int Rate() const override;
  int Wait(int ms) override;
  void Moved(std::size_t bytes) override;

 private:
  int RateNow(std::int64_t now) const;
  bool Refill(int& step, int& waitMs);

  const std::vector<SBandwidthStep> m_vecSteps;
  mutable std::mutex m_mutex;
  mutable int m_nRate = 0;              // guarded by m_mutex
  mutable std::int64_t m_llLookMs = 0;  // guarded by m_mutex; when the timetable is due
  std::int64_t m_llThenMs = 0;          // guarded by m_mutex; of the balance
  double m_dBalance = 0;                // guarded by m_mutex; bytes; below 0: too many moved
};
