// What other programs are told of the servers.

#include "programs/kqft-status/Reports.h"

#include <functional>

#include "programs/Metric.h"
#include "programs/kqft/JsonObject.h"

namespace {

CJsonObject LinkObject(const SLinkFact& link) {
  std::vector<CJsonObject> transfers;
  for (const STransferFact& file : link.m_vecTransfers) {
    CJsonObject& object = transfers.emplace_back();
    object.Text("direction", file.m_bUp ? "up" : "down");
    if (!file.m_strProject.empty()) object.Text("project", file.m_strProject);
    object.Text("name", file.m_strName).Number("bytes", file.m_llBytes);
  }
  CJsonObject object;
  object.Text("address", link.m_strAddress)
      .Seconds("seconds", link.m_dSeconds)
      .Number("bytes_per_second", link.m_llRate)
      .List("transfers", transfers);
  return object;
}

void AddFacts(CJsonObject& object, const SServerFacts& facts) {
  std::vector<CJsonObject> ends, links;
  for (const SEndFact& end : facts.m_vecEnds) {
    ends.emplace_back()
        .Text("event", end.m_strEvent)
        .Text("result", end.m_strResult)
        .Text("why", end.m_strWhy)
        .Number("count", end.m_llCount)
        .Number("today", end.m_llToday);
  }
  for (const SLinkFact& link : facts.m_vecLinks) links.push_back(LinkObject(link));
  object.Text("host", facts.m_strHost)
      .Text("listen", facts.m_strListen)
      .Text("version", facts.m_strVersion)
      .Text("directory", facts.m_strDirectory)
      .Seconds("seconds", facts.m_dSeconds);
  if (facts.m_llFree >= 0) object.Number("free_bytes", facts.m_llFree);
  if (facts.m_llTotal >= 0) object.Number("total_bytes", facts.m_llTotal);
  if (facts.m_probe) {
    CJsonObject probe;
    probe.Text("result", facts.m_probe->empty() ? "done" : "failed");
    if (!facts.m_probe->empty()) probe.Text("message", *facts.m_probe);
    object.Object("probe", probe);
  }
  object.Number("bytes_up", facts.m_llBytesUp)
      .Number("bytes_down", facts.m_llBytesDown)
      .Number("bytes_per_second_up", facts.m_llRateUp)
      .Number("bytes_per_second_down", facts.m_llRateDown)
      .Text("day", facts.m_strDay)
      .List("ends", ends)
      .List("links", links);
}

}  // namespace

const char* StateWord(EServerState state) {
  switch (state) {
    case EServerState::kUp:
      return "up";
    case EServerState::kLate:
      return "late";
    case EServerState::kGone:
      return "gone";
    case EServerState::kEnded:
      return "ended";
    case EServerState::kMissing:
      return "no file";
    default:
      return "not readable";
  }
}

std::string ServerName(const SServerView& view) {
  const SServerFacts& facts = view.m_facts;
  if (facts.m_strHost.empty()) return view.m_strFile;
  const std::size_t port = facts.m_strListen.rfind(':');
  return facts.m_strHost + (port == std::string::npos ? "" : facts.m_strListen.substr(port));
}

bool IsServing(const SServerView& view) {
  return view.m_state == EServerState::kUp || view.m_state == EServerState::kLate;
}

bool IsFailure(const SEndFact& end) {
  const bool isQuestion =
      end.m_strEvent == "download" && end.m_strWhy == "ERROR_CODE_SERVER_OPENFILE";
  return (end.m_strResult == "failed" && !isQuestion) || end.m_strResult == "refused";
}

std::int64_t FailuresToday(const SServerFacts& facts) {
  std::int64_t failures = 0;
  for (const SEndFact& end : facts.m_vecEnds) {
    if (IsFailure(end)) failures += end.m_llToday;
  }
  return failures;
}

std::string ServersJson(const std::vector<SServerView>& views) {
  std::vector<CJsonObject> servers;
  for (const SServerView& view : views) {
    CJsonObject& object = servers.emplace_back();
    object.Name("file", view.m_strFile).Text("state", StateWord(view.m_state));
    if (!view.m_strWhy.empty()) object.Text("message", view.m_strWhy);
    if (view.m_facts.m_strHost.empty()) continue;
    object.Seconds("age_seconds", view.m_dAgeSeconds);
    AddFacts(object, view.m_facts);
  }
  CJsonObject object;
  object.List("servers", servers);
  return object.Line() + "\n";
}

std::string ServersMetrics(const std::vector<SServerView>& views) {
  std::string text;
  const auto metric =
      [&](const char* name, const char* type, const char* help,
          const std::function<void(CMetric&, const SServerView&, const std::string&)>& sample) {
        CMetric each(text, name, type, help);
        for (const SServerView& view : views) {
          sample(each, view, CMetric::Label("file", view.m_strFile));
        }
      };
  metric("kqft_server_up", "gauge", "Whether the server's status file is one, and fresh.",
         [](CMetric& each, const SServerView& view, const std::string& file) {
           each.Sample(std::int64_t{view.m_state == EServerState::kUp ? 1 : 0}, file);
         });
  const auto fact = [&](const char* name, const char* type, const char* help,
                        std::int64_t (*value)(const SServerFacts&)) {
    metric(name, type, help, [&](CMetric& each, const SServerView& view, const std::string& file) {
      if (IsServing(view)) each.Sample(value(view.m_facts), file);
    });
  };
  fact("kqft_server_links", "gauge", "Connections of clients.",
       [](const SServerFacts& facts) { return facts.m_llLinks; });
  fact("kqft_server_received_bytes_total", "counter", "Bytes of files that were sent to it.",
       [](const SServerFacts& facts) { return facts.m_llBytesUp; });
  fact("kqft_server_sent_bytes_total", "counter", "Bytes of files that were fetched from it.",
       [](const SServerFacts& facts) { return facts.m_llBytesDown; });
  fact("kqft_server_free_bytes", "gauge", "Free room for projects; -1 where it is not known.",
       [](const SServerFacts& facts) { return facts.m_llFree; });
  fact("kqft_server_failures_today", "gauge", "What failed or was refused since midnight.",
       [](const SServerFacts& facts) { return FailuresToday(facts); });
  return text;
}
