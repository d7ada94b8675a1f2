// The page: figures and names put into its fragments.

#include "programs/kqft-status/Page.h"

#include <algorithm>
#include <cmath>

#include "programs/kqft-status/Html.h"
#include "programs/kqft-status/PageFiles.h"
#include "programs/kqft-status/Reports.h"
#include "programs/kqft/Text.h"

namespace {

constexpr std::size_t kMostRows = 400;
constexpr double kCurveWidth = 240, kCurveHeight = 32;
constexpr std::int64_t kGapMs = 60000;  // more than that between two samples is no line
constexpr double kLowRoom = 0.1;
constexpr double kPercent = 100;

std::string Rate(std::int64_t bytes) {
  return FormatSize(bytes) + "/s";
}

std::string Age(double seconds) {
  return FormatDuration(static_cast<std::int64_t>(std::min(seconds, 1e12)));
}

std::string Place(double x, double y) {
  const auto tenths = [](double value) {
    const auto whole = static_cast<std::int64_t>(std::lround(value * 10));
    return std::to_string(whole / 10) + "." + std::to_string(whole % 10);
  };
  return tenths(x) + " " + tenths(y);
}

// Bytes a second between two samples; a server that began anew counts from 0.
double Between(std::int64_t before, std::int64_t after, std::int64_t milliseconds) {
  const std::int64_t bytes = after >= before ? after - before : after;
  return static_cast<double>(bytes) * 1000 /
         static_cast<double>(std::max<std::int64_t>(milliseconds, 1));
}

template <typename Take>
void EachStep(const SServerView& view, const Take& take) {
  for (std::size_t i = 1; i < view.m_samples.size(); ++i) {
    const SSample& a = view.m_samples[i - 1];
    const SSample& b = view.m_samples[i];
    const std::int64_t passed = b.m_llTimeMs - a.m_llTimeMs;
    take(a.m_llTimeMs, b.m_llTimeMs, Between(a.m_llUp, b.m_llUp, passed),
         Between(a.m_llDown, b.m_llDown, passed));
  }
}

// Both curves of a server have one scale.
double Peak(const SServerView& view) {
  double peak = 1;
  EachStep(view, [&](std::int64_t, std::int64_t, double up, double down) {
    peak = std::max({peak, up, down});
  });
  return peak;
}

CHtml Curve(const SServerView& view, std::int64_t now, bool isUp) {
  std::string line, area;
  double most = 0, last = 0;
  const double peak = Peak(view);
  const auto x = [&](std::int64_t time) {
    const double past = static_cast<double>(now - time) / static_cast<double>(kHistoryMs);
    return kCurveWidth * std::clamp(1 - past, 0.0, 1.0);
  };
  const auto end = [&] { area += area.empty() ? "" : "L" + Place(last, kCurveHeight) + "Z"; };
  EachStep(view, [&](std::int64_t from, std::int64_t to, double up, double down) {
    if (to - from > kGapMs) return;
    const double rate = isUp ? up : down;
    const std::string place = Place(x(to), kCurveHeight * (1 - rate / peak));
    most = std::max(most, rate);
    if (line.empty() || last < x(from)) {
      end();
      const std::string begin = Place(x(from), kCurveHeight * (1 - rate / peak));
      line += "M" + begin;
      area += "M" + Place(x(from), kCurveHeight) + "L" + begin;
    }
    line += "L" + place;
    area += "L" + place;
    last = x(to);
  });
  end();
  const std::string label = line.empty() ? "no curve yet" : "peak " + Rate(std::llround(most));
  return CHtml::Fill(kCurveHtml, {{"line", line}, {"area", area}, {"label", label}});
}

CHtml Room(const SServerFacts& facts) {
  if (facts.m_llFree < 0 || facts.m_llTotal <= 0) return {};
  const double free =
      std::min(1.0, static_cast<double>(facts.m_llFree) / static_cast<double>(facts.m_llTotal));
  const std::string label =
      std::to_string(std::lround(free * kPercent)) + " % of " + FormatSize(facts.m_llTotal);
  return CHtml::Fill(kBarHtml, {{"width", std::to_string(std::lround(kCurveWidth * (1 - free)))},
                                {"low", free < kLowRoom ? "low" : ""},
                                {"label", label}});
}

CHtml Figures(const SServerView& view, std::int64_t now) {
  const SServerFacts& facts = view.m_facts;
  const std::int64_t failures = FailuresToday(facts);
  return CHtml::Fill(kFiguresHtml,
                     {{"up", Rate(facts.m_llRateUp)},
                      {"upcurve", Curve(view, now, true)},
                      {"down", Rate(facts.m_llRateDown)},
                      {"downcurve", Curve(view, now, false)},
                      {"free", facts.m_llFree < 0 ? "unknown" : FormatSize(facts.m_llFree)},
                      {"bar", Room(facts)},
                      {"clients", std::to_string(facts.m_llLinks)},
                      {"failures", std::to_string(failures)},
                      {"failing", failures > 0 ? "failing" : ""}});
}

const char* Kind(const SServerView& view) {
  switch (view.m_state) {
    case EServerState::kUp:
      return view.m_facts.m_probe.value_or("").empty() ? "up" : "bad";
    case EServerState::kLate:
      return "late";
    case EServerState::kEnded:
      return "ended";
    default:
      return "bad";
  }
}

std::string Note(const SServerView& view) {
  const SServerFacts& facts = view.m_facts;
  std::string ago = Age(view.m_dAgeSeconds) + " ago";
  switch (view.m_state) {
    case EServerState::kMissing:
      return "nothing at " + view.m_strFile;
    case EServerState::kBroken:
      return view.m_strFile + ": " + view.m_strWhy;
    case EServerState::kEnded:
      return ago;
    case EServerState::kUp:
      if (std::string why = facts.m_probe.value_or(""); !why.empty()) return why;
      return "for " + Age(facts.m_dSeconds) + ", version " + facts.m_strVersion;
    default:
      return "last heard of " + ago;
  }
}

CHtml Servers(const std::vector<SServerView>& views, std::int64_t now) {
  CHtml rows;
  for (const SServerView& view : views) {
    rows += CHtml::Fill(kServerHtml, {{"state", Kind(view)},
                                      {"name", ServerName(view)},
                                      {"word", StateWord(view.m_state)},
                                      {"note", Note(view)},
                                      {"figures", IsServing(view) ? Figures(view, now) : CHtml()}});
  }
  return rows;
}

CHtml Transfer(const SServerView& view, const SLinkFact& link, const STransferFact& file,
               bool first) {
  return CHtml::Fill(kTransferHtml, {{"address", link.m_strAddress},
                                     {"direction", file.m_bUp ? "up" : "down"},
                                     {"does", file.m_bUp ? "sends" : "fetches"},
                                     {"project", file.m_strProject},
                                     {"slash", file.m_strProject.empty() ? "" : "/"},
                                     {"name", file.m_strName},
                                     {"moved", FormatSize(file.m_llBytes)},
                                     {"rate", first ? Rate(link.m_llRate) : ""},
                                     {"age", Age(link.m_dSeconds)},
                                     {"server", ServerName(view)}});
}

CHtml Nothing(const char* text) {
  return CHtml::Fill(kNothingHtml, {{"text", text}});
}

CHtml Transfers(const std::vector<SServerView>& views) {
  CHtml rows;
  std::size_t shown = 0, untold = 0;
  std::int64_t idle = 0;
  for (const SServerView& view : views) {
    if (!IsServing(view)) continue;
    idle += view.m_facts.m_llLinks;
    for (const SLinkFact& link : view.m_facts.m_vecLinks) {
      if (!link.m_vecTransfers.empty()) --idle;
      for (std::size_t i = 0; i < link.m_vecTransfers.size(); ++i) {
        if (shown < kMostRows) {
          ++shown;
          rows += Transfer(view, link, link.m_vecTransfers[i], i == 0);
        } else {
          ++untold;
        }
      }
    }
  }
  std::string more = untold > 0 ? "And " + std::to_string(untold) + " more. " : "";
  if (idle > 0)
    more += std::to_string(idle) + (idle == 1 ? " client is idle." : " clients are idle.");
  if (shown == 0)
    return Nothing(idle > 0 ? "No file is on its way; "
                              "clients are idle."
                            : "Nothing is on its way.");
  return CHtml::Fill(kTransfersHtml, {{"rows", rows}, {"more", more}});
}

CHtml Failure(const SServerView& view, const SEndFact& end, const std::string& result,
              const char* kind) {
  return CHtml::Fill(kFailureHtml, {{"kind", kind},
                                    {"server", ServerName(view)},
                                    {"what", end.m_strEvent},
                                    {"result", result},
                                    {"why", end.m_strWhy},
                                    {"today", std::to_string(end.m_llToday)},
                                    {"count", std::to_string(end.m_llCount)}});
}

// What was cut off goes on by itself, as a rule, and comes last.
CHtml Failures(const std::vector<SServerView>& views) {
  CHtml rows, cutOff;
  for (const SServerView& view : views) {
    for (const SEndFact& end : view.m_facts.m_vecEnds) {
      if (end.m_llToday == 0) continue;
      if (end.m_strResult == "cut_off") cutOff += Failure(view, end, "cut off", "");
      if (IsFailure(end)) rows += Failure(view, end, end.m_strResult, "failed");
    }
  }
  rows += cutOff;
  if (rows.Bytes().empty()) return Nothing("Nothing.");
  return CHtml::Fill(kFailuresHtml, {{"rows", rows}});
}

struct STotals {
  std::size_t m_nUp = 0;
  std::int64_t m_llClients = 0, m_llReceiving = 0, m_llSending = 0, m_llFailures = 0;
};

STotals Totals(const std::vector<SServerView>& views) {
  STotals totals;
  for (const SServerView& view : views) {
    totals.m_llFailures += FailuresToday(view.m_facts);
    if (!IsServing(view)) continue;
    if (view.m_state == EServerState::kUp) ++totals.m_nUp;
    totals.m_llClients += view.m_facts.m_llLinks;
    totals.m_llReceiving += view.m_facts.m_llRateUp;
    totals.m_llSending += view.m_facts.m_llRateDown;
  }
  return totals;
}

std::string Title(const STotals& totals, std::size_t servers) {
  return std::to_string(totals.m_nUp) + " of " + std::to_string(servers) + " up - data servers";
}

CHtml Main(const std::vector<SServerView>& views, std::int64_t now) {
  const STotals totals = Totals(views);
  return CHtml::Fill(kMainHtml, {{"title", Title(totals, views.size())},
                                 {"up", std::to_string(totals.m_nUp)},
                                 {"servers", "of " + std::to_string(views.size()) + " servers up"},
                                 {"clients", std::to_string(totals.m_llClients)},
                                 {"receiving", Rate(totals.m_llReceiving)},
                                 {"sending", Rate(totals.m_llSending)},
                                 {"failures", std::to_string(totals.m_llFailures)},
                                 {"failing", totals.m_llFailures > 0 ? "failing" : ""},
                                 {"rows", Servers(views, now)},
                                 {"transfers", Transfers(views)},
                                 {"failed", Failures(views)}});
}

}  // namespace

std::string Page(const std::vector<SServerView>& views, std::int64_t now) {
  return CHtml::Fill(kPageHtml,
                     {{"title", Title(Totals(views), views.size())}, {"main", Main(views, now)}})
      .Bytes();
}

std::string PageMain(const std::vector<SServerView>& views, std::int64_t now) {
  return Main(views, now).Bytes();
}
