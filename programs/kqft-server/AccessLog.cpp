// The access log's lines.

#include "programs/kqft-server/AccessLog.h"

#include <chrono>

#include "programs/kqft-server/Members.h"
#include "protocol/ResultCodes.h"

namespace {

CJsonObject Event(const char* event) {
  CJsonObject object;
  object.Text("time", TimeText(std::chrono::system_clock::now())).Text("event", event);
  return object;
}

CJsonObject Event(const char* event, const STransferFacts& facts) {
  CJsonObject object = Event(event);
  AddAddress(object, facts);
  return object;
}

void AddSeconds(CJsonObject& object, const STransferFacts& facts) {
  object.Seconds("seconds", static_cast<double>(facts.m_llMilliseconds) * kSecondsPerMillisecond);
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
  AddPath(object, m_strDirectory, file.m_strPath);
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
    AddPath(object, m_strDirectory, what.m_strPath);
  }
  Write(object);
}
