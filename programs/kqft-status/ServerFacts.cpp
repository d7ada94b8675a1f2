// Status files as they are read: whoever wrote one, it costs and shows no more
// than a true one.

#include "programs/kqft-status/ServerFacts.h"

#include <algorithm>
#include <nlohmann/json.hpp>

namespace {

using Json = nlohmann::json;

constexpr int kFormat = 1;
constexpr int kDeepest = 6;
constexpr std::size_t kLongestText = 1024;
constexpr std::size_t kMostLinks = 1000;
constexpr std::size_t kMostTransfers = 8;
constexpr std::size_t kMostEnds = 100;

// So that sums over many files fit, too.
constexpr double kMostNumber = 9e15;
constexpr double kMostCount = 1e12;
constexpr std::int64_t kMostEverySeconds = 3600;
constexpr unsigned kContinuation = 0x80, kContinuationMask = 0xc0;

const Json& Member(const Json& object, const char* key) {
  static const Json none;
  if (!object.is_object()) return none;
  const auto found = object.find(key);
  return found == object.end() ? none : *found;
}

std::string Text(const Json& object, const char* key) {
  const Json& value = Member(object, key);
  if (!value.is_string()) return "";
  const auto& text = value.get_ref<const std::string&>();
  std::size_t end = std::min(text.size(), kLongestText);
  while (end < text.size() && end > 0 &&
         (static_cast<unsigned char>(text[end]) & kContinuationMask) == kContinuation) {
    --end;
  }
  return text.substr(0, end) + (end < text.size() ? "…" : "");
}

std::int64_t Number(const Json& object, const char* key, std::int64_t otherwise = 0,
                    double most = kMostNumber) {
  const Json& value = Member(object, key);
  if (!value.is_number()) return otherwise;
  return static_cast<std::int64_t>(std::clamp(value.get<double>(), 0.0, most));
}

std::int64_t Count(const Json& object, const char* key) {
  return Number(object, key, 0, kMostCount);
}

double Seconds(const Json& object) {
  const Json& value = Member(object, "seconds");
  return value.is_number() ? std::clamp(value.get<double>(), 0.0, kMostNumber) : 0;
}

// The first so many of a list.
template <typename Take>
void Each(const Json& list, std::size_t most, const Take& take) {
  if (!list.is_array()) return;
  for (std::size_t i = 0; i < std::min(list.size(), most); ++i) take(list[i]);
}

SLinkFact Link(const Json& object) {
  SLinkFact link;
  link.m_strAddress = Text(object, "address");
  link.m_dSeconds = Seconds(object);
  link.m_llRate = Number(object, "bytes_per_second");
  Each(Member(object, "transfers"), kMostTransfers, [&](const Json& transfer) {
    link.m_vecTransfers.push_back({Text(transfer, "direction") == "up", Text(transfer, "project"),
                                   Text(transfer, "name"), Number(transfer, "bytes")});
  });
  return link;
}

}  // namespace

std::string ParseServerFacts(const std::string& content, SServerFacts& facts) {
  const Json json = Json::parse(
      content, [](int depth, Json::parse_event_t, const Json&) { return depth <= kDeepest; },
      false);
  if (!json.is_object()) return "it is not whole, or no status file";
  if (Number(json, "format") != kFormat) return "it has another format";
  facts.m_strHost = Text(json, "host");
  facts.m_strListen = Text(json, "listen");
  facts.m_strVersion = Text(json, "version");
  facts.m_strDirectory = Text(json, "directory");
  facts.m_strDay = Text(json, "day");
  facts.m_bEnded = Text(json, "state") == "ended";
  facts.m_dSeconds = Seconds(json);
  facts.m_nEverySeconds = static_cast<int>(
      std::clamp<std::int64_t>(Number(json, "every_seconds"), 1, kMostEverySeconds));
  facts.m_llFree = Number(json, "free_bytes", -1);
  facts.m_llTotal = Number(json, "total_bytes", -1);
  if (const Json& probe = Member(json, "probe"); probe.is_object()) {
    facts.m_probe = Text(probe, "result") == "done" ? "" : Text(probe, "message");
    if (facts.m_probe->empty() && Text(probe, "result") != "done") facts.m_probe = "unusable";
  }
  facts.m_llBytesUp = Number(json, "bytes_up");
  facts.m_llBytesDown = Number(json, "bytes_down");
  facts.m_llRateUp = Number(json, "bytes_per_second_up");
  facts.m_llRateDown = Number(json, "bytes_per_second_down");
  Each(Member(json, "results"), kMostEnds, [&](const Json& end) {
    std::string why = Text(end, "code_name");
    if (why.empty()) why = std::to_string(Number(end, "code"));
    facts.m_vecEnds.push_back({Text(end, "event"), Text(end, "result"), std::move(why),
                               Count(end, "count"), Count(end, "today")});
  });
  Each(Member(json, "refusals"), kMostEnds, [&](const Json& end) {
    facts.m_vecEnds.push_back(
        {Text(end, "what"), "refused", Text(end, "why"), Count(end, "count"), Count(end, "today")});
  });
  const Json& links = Member(json, "links");
  facts.m_llLinks = links.is_array() ? static_cast<std::int64_t>(links.size()) : 0;
  Each(links, kMostLinks, [&](const Json& link) { facts.m_vecLinks.push_back(Link(link)); });
  return "";
}
