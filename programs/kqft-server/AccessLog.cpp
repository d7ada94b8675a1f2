// The access log's lines.

#include "programs/kqft-server/AccessLog.h"

#include <algorithm>
#include <chrono>

#include "net/NetWorkManageEx.h"
#include "programs/kqft/JsonObject.h"
#include "protocol/ResultCodes.h"

namespace {

// A name may be as long as a packet. This is more than systems take.
constexpr std::size_t kLongestName = 1024;
constexpr double kSecondsPerMillisecond = 0.001;

void AppendDigits(std::string& text, std::int64_t value, int digits, char after) {
  std::int64_t scale = 1;
  while (--digits > 0) scale *= 10;
  for (; scale > 0; scale /= 10) text += static_cast<char>('0' + value / scale % 10);
  text += after;
}

// RFC 3339, in UTC.
std::string Now() {
  using namespace std::chrono;
  const auto now = floor<milliseconds>(system_clock::now());
  const auto day = floor<days>(now);
  const year_month_day date(day);
  const hh_mm_ss time(now - day);
  std::string text;
  text.reserve(24);
  AppendDigits(text, static_cast<int>(date.year()), 4, '-');
  AppendDigits(text, static_cast<unsigned>(date.month()), 2, '-');
  AppendDigits(text, static_cast<unsigned>(date.day()), 2, 'T');
  AppendDigits(text, time.hours().count(), 2, ':');
  AppendDigits(text, time.minutes().count(), 2, ':');
  AppendDigits(text, time.seconds().count(), 2, '.');
  AppendDigits(text, time.subseconds().count(), 3, 'Z');
  return text;
}

CJsonObject Event(const char* event) {
  CJsonObject object;
  object.Text("time", Now()).Text("event", event);
  return object;
}

CJsonObject Event(const char* event, const STransferFacts& facts) {
  CJsonObject object = Event(event);
  object.Text("address",
              CNetWorkManageEx::TransIP(facts.m_nIP) + ":" + std::to_string(facts.m_nPort));
  return object;
}

void AddName(CJsonObject& object, const char* key, const std::string& name) {
  object.Name(key, name.substr(0, kLongestName));
  if (name.size() > kLongestName) {
    object.Number(std::string(key) + "_bytes", static_cast<std::int64_t>(name.size()));
  }
}

void AddSeconds(CJsonObject& object, const STransferFacts& facts) {
  object.Seconds("seconds", static_cast<double>(facts.m_llMilliseconds) * kSecondsPerMillisecond);
}

const char* ResultWord(int result) {
  switch (result) {
    case RESULT_OK:
      return "done";
    case ERROR_CODE_STOP_SERVICE:
    case ERROR_CODE_SEND_STOPPED:
      return "cut_off";
    default:
      return "failed";
  }
}

void AddResult(CJsonObject& object, int result) {
  object.Text("result", ResultWord(result))
      .Number("code", result)
      .Text("code_name", ResultName(result));
}

std::string WithSlashes(std::string path) {
  std::replace(path.begin(), path.end(), '\\', '/');
  return path;
}

}  // namespace

const char* RefusedThing(ERefusal refusal) {
  switch (refusal) {
    case ERefusal::kUpload:
    case ERefusal::kUploadRest:
      return "upload";
    case ERefusal::kDownload:
    case ERefusal::kDownloadRest:
      return "download";
    case ERefusal::kDelete:
      return "delete";
    default:
      return "connect";
  }
}

const char* RefusalReason(ERefusal refusal) {
  switch (refusal) {
    case ERefusal::kAddress:
      return "address";
    case ERefusal::kLinks:
      return "links";
    case ERefusal::kAddressLinks:
      return "links_of_address";
    case ERefusal::kNewLinks:
      return "new_links";
    case ERefusal::kUpload:
    case ERefusal::kUploadRest:
      return "free_space";
    default:
      return "forbidden";
  }
}

CAccessLog::CAccessLog(const std::string& path, const std::string& directory)
    : m_strDirectory(WithSlashes(directory)), m_lines(path, [](std::int64_t lines) {
        CJsonObject object = Event("lost");
        object.Number("lines", lines);
        return ToText(object);
      }) {}

std::string CAccessLog::ToText(const CJsonObject& object) {
  return object.Line();
}

// A name that leads elsewhere is told as it came.
void CAccessLog::AddPath(CJsonObject& object, const std::string& path) const {
  const std::string name = WithSlashes(path);
  const std::size_t end =
      name.starts_with(m_strDirectory) ? name.find('/', m_strDirectory.size()) : std::string::npos;
  if (end == std::string::npos) return AddName(object, "name", path);
  AddName(object, "project", name.substr(m_strDirectory.size(), end - m_strDirectory.size()));
  AddName(object, "name", name.substr(end + 1));
}

void CAccessLog::Connected(const STransferFacts& link) {
  Write(Event("connect", link));
}

void CAccessLog::Disconnected(const STransferFacts& link, const SLinkTotals& totals) {
  CJsonObject object = Event("disconnect", link);
  AddSeconds(object, link);
  object.Number("files_up", totals.m_llFilesUp)
      .Number("bytes_up", totals.m_llBytesUp)
      .Number("files_down", totals.m_llFilesDown)
      .Number("bytes_down", totals.m_llBytesDown);
  Write(object);
}

void CAccessLog::CutOff(CTraffic& traffic) {
  for (const CTraffic::SLink& link : traffic.EndAll()) {
    for (const auto& [name, running] : link.m_mapRunning) {
      STransferFacts file = running;
      file.m_nResult = name.first ? ERROR_CODE_STOP_SERVICE : ERROR_CODE_SEND_STOPPED;
      Transferred(name.first ? "upload" : "download", file);
    }
    Disconnected(link.m_facts, link.m_totals);
  }
}

void CAccessLog::Transferred(const char* event, const STransferFacts& file) {
  CJsonObject object = Event(event, file);
  AddPath(object, file.m_strPath);
  object.Number("bytes", file.m_llBytes);
  AddSeconds(object, file);
  AddResult(object, file.m_nResult);
  Write(object);
}

void CAccessLog::Listed(const char* event, const STransferFacts& project) {
  CJsonObject object = Event(event, project);
  if (!project.m_strPath.empty()) AddName(object, "project", project.m_strPath);
  Write(object);
}

void CAccessLog::Deleted(const STransferFacts& project) {
  CJsonObject object = Event("delete", project);
  AddName(object, "project", project.m_strPath);
  AddResult(object, project.m_nResult);
  Write(object);
}

void CAccessLog::Refused(const STransferFacts& what, ERefusal refusal) {
  CJsonObject object = Event("refuse", what);
  object.Text("what", RefusedThing(refusal)).Text("why", RefusalReason(refusal));
  if (refusal == ERefusal::kDelete) {
    AddName(object, "project", what.m_strPath);
  } else if (!what.m_strPath.empty()) {
    AddPath(object, what.m_strPath);
  }
  Write(object);
}
