// The two texts of a server's status.

#include "programs/kqft-server/StatusText.h"

#include <utility>

#include "programs/Metric.h"
#include "programs/kqft-server/AccessLog.h"
#include "programs/kqft-server/Members.h"
#include "protocol/ResultCodes.h"

namespace {

constexpr int kFormat = 1;
constexpr std::size_t kMostTransfers = 8;  // told of one link

const char* WorkWord(EWork work) {
  switch (work) {
    case EWork::kUpload:
      return "upload";
    case EWork::kDownload:
      return "download";
    default:
      return "delete";
  }
}

double Seconds(std::int64_t milliseconds) {
  return static_cast<double>(milliseconds) * kSecondsPerMillisecond;
}

template <typename Key>
std::int64_t Before(const std::map<Key, std::int64_t>& counts, const Key& key) {
  const auto found = counts.find(key);
  return found == counts.end() ? 0 : found->second;
}

CJsonObject LinkObject(const SServerStatus& status, const CTraffic::SLink& link,
                       std::int64_t rate) {
  SLinkTotals totals = link.m_totals;
  std::vector<CJsonObject> transfers;
  for (const auto& [name, file] : link.m_mapRunning) {
    (name.first ? totals.m_llBytesUp : totals.m_llBytesDown) += file.m_llBytes;
    if (transfers.size() == kMostTransfers) continue;
    CJsonObject& transfer = transfers.emplace_back();
    transfer.Text("direction", name.first ? "up" : "down");
    AddPath(transfer, WithSlashes(status.m_strDirectory), file.m_strPath);
    transfer.Number("bytes", file.m_llBytes).Seconds("seconds", Seconds(file.m_llMilliseconds));
  }
  CJsonObject object;
  AddAddress(object, link.m_facts);
  object.Seconds("seconds", Seconds(status.m_llNowMs - link.m_llSince))
      .Number("files_up", totals.m_llFilesUp)
      .Number("bytes_up", totals.m_llBytesUp)
      .Number("files_down", totals.m_llFilesDown)
      .Number("bytes_down", totals.m_llBytesDown)
      .Number("bytes_per_second", rate)
      .List("transfers", transfers);
  return object;
}

std::vector<CJsonObject> ResultObjects(const SServerStatus& status) {
  std::vector<CJsonObject> results;
  for (const auto& [key, count] : status.m_traffic.m_counts.m_mapResults) {
    CJsonObject& object = results.emplace_back();
    object.Text("event", WorkWord(key.first));
    AddResult(object, key.second);
    object.Number("count", count)
        .Number("today", count - Before(status.m_before.m_mapResults, key));
  }
  return results;
}

// Refusals of different kinds may have one name.
std::map<std::pair<std::string, std::string>, std::pair<std::int64_t, std::int64_t>> Refusals(
    const SServerStatus& status) {
  std::map<std::pair<std::string, std::string>, std::pair<std::int64_t, std::int64_t>> refusals;
  for (const auto& [refusal, count] : status.m_traffic.m_counts.m_mapRefusals) {
    auto& [all, before] = refusals[{RefusedThing(refusal), RefusalReason(refusal)}];
    all += count;
    before += Before(status.m_before.m_mapRefusals, refusal);
  }
  return refusals;
}

std::string CodeLabel(int code) {
  const std::string name = ResultName(code);
  return CMetric::Label("code", name.empty() ? std::to_string(code) : name);
}

std::int64_t UnixSeconds(std::chrono::system_clock::time_point time) {
  return std::chrono::duration_cast<std::chrono::seconds>(time.time_since_epoch()).count();
}

void AddResultMetrics(std::string& text, const SServerStatus& status, const std::string& port) {
  const STrafficCounts& counts = status.m_traffic.m_counts;
  CMetric files(text, "kqft_files_total", "counter", "Files that were sent and fetched, by result.",
                port);
  for (const auto& [key, count] : counts.m_mapResults) {
    if (key.first == EWork::kDelete) continue;
    files.Sample(count, CMetric::Label("direction", key.first == EWork::kUpload ? "up" : "down") +
                            "," + CodeLabel(key.second));
  }
  CMetric deletions(text, "kqft_deletions_total", "counter", "Deletions of projects, by result.",
                    port);
  for (const auto& [key, count] : counts.m_mapResults) {
    if (key.first == EWork::kDelete) deletions.Sample(count, CodeLabel(key.second));
  }
  CMetric refusals(text, "kqft_refusals_total", "counter",
                   "Connections and requests that were refused.", port);
  for (const auto& [names, count] : Refusals(status)) {
    refusals.Sample(count.first, CMetric::Label("what", names.first) + "," +
                                     CMetric::Label("why", names.second));
  }
}

}  // namespace

std::string StatusJson(const SServerStatus& status) {
  const STrafficCounts& counts = status.m_traffic.m_counts;
  std::vector<CJsonObject> links, refusals;
  for (std::size_t i = 0; i < status.m_traffic.m_vecLinks.size(); ++i) {
    links.push_back(LinkObject(status, status.m_traffic.m_vecLinks[i], status.m_vecRates[i]));
  }
  for (const auto& [names, count] : Refusals(status)) {
    refusals.emplace_back()
        .Text("what", names.first)
        .Text("why", names.second)
        .Number("count", count.first)
        .Number("today", count.first - count.second);
  }
  CJsonObject object;
  object.Number("format", kFormat)
      .Text("time", TimeText(status.m_now))
      .Text("state", status.m_bEnded ? "ended" : "up")
      .Text("version", KQFT_VERSION)
      .Text("host", status.m_strHost)
      .Text("listen", status.m_strAddress + ":" + std::to_string(status.m_nPort))
      .Name("directory", status.m_strDirectory)
      .Text("started", TimeText(status.m_started))
      .Seconds("seconds", Seconds(status.m_llRanMs))
      .Number("every_seconds", status.m_nEverySeconds);
  if (status.m_room.m_llFree >= 0) object.Number("free_bytes", status.m_room.m_llFree);
  if (status.m_room.m_llTotal >= 0) object.Number("total_bytes", status.m_room.m_llTotal);
  CJsonObject probe;
  probe.Text("result", status.m_strProbe.empty() ? "done" : "failed");
  if (!status.m_strProbe.empty()) probe.Text("message", status.m_strProbe);
  object.Object("probe", probe);
  object.Number("bytes_up", counts.m_llBytesUp)
      .Number("bytes_down", counts.m_llBytesDown)
      .Number("bytes_per_second_up", status.m_llRateUp)
      .Number("bytes_per_second_down", status.m_llRateDown)
      .Number("links_total", counts.m_llLinks)
      .Text("day", status.m_strDay)
      .List("results", ResultObjects(status))
      .List("refusals", refusals)
      .List("links", links);
  return object.Line() + "\n";
}

std::string StatusMetrics(const SServerStatus& status) {
  const STrafficCounts& counts = status.m_traffic.m_counts;
  std::int64_t up = 0, down = 0;
  for (const CTraffic::SLink& link : status.m_traffic.m_vecLinks) {
    for (const auto& [name, file] : link.m_mapRunning) ++(name.first ? up : down);
  }
  std::string text;
  const std::string port = CMetric::Label("port", std::to_string(status.m_nPort));
  const auto metric = [&](const char* name, const char* type, const char* help) {
    return CMetric(text, name, type, help, port);
  };
  metric("kqft_up", "gauge", "Whether the server runs; 0 once it has ended.")
      .Sample(std::int64_t{status.m_bEnded ? 0 : 1});
  metric("kqft_build_info", "gauge", "The version of the server.")
      .Sample(std::int64_t{1}, CMetric::Label("version", KQFT_VERSION));
  metric("kqft_start_time_seconds", "gauge", "When the server began, since 1970.")
      .Sample(UnixSeconds(status.m_started));
  metric("kqft_status_time_seconds", "gauge", "When this was written, since 1970.")
      .Sample(UnixSeconds(status.m_now));
  metric("kqft_links", "gauge", "Connections of clients.")
      .Sample(static_cast<std::int64_t>(status.m_traffic.m_vecLinks.size()));
  metric("kqft_links_total", "counter", "Connections of clients that came.")
      .Sample(counts.m_llLinks);
  metric("kqft_transfers", "gauge", "Files that are on their way.")
      .Sample(up, CMetric::Label("direction", "up"))
      .Sample(down, CMetric::Label("direction", "down"));
  metric("kqft_transferred_bytes_total", "counter", "Bytes of files that moved.")
      .Sample(counts.m_llBytesUp, CMetric::Label("direction", "up"))
      .Sample(counts.m_llBytesDown, CMetric::Label("direction", "down"));
  AddResultMetrics(text, status, port);
  if (status.m_room.m_llFree >= 0) {
    metric("kqft_free_bytes", "gauge", "Free room for projects.").Sample(status.m_room.m_llFree);
  }
  if (status.m_room.m_llTotal >= 0) {
    metric("kqft_size_bytes", "gauge", "Room for projects, used and free.")
        .Sample(status.m_room.m_llTotal);
  }
  metric("kqft_directory_usable", "gauge", "Whether the project directory can be used.")
      .Sample(std::int64_t{status.m_strProbe.empty() ? 1 : 0});
  return text;
}
