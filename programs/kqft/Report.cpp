// The end of a put or get: what was done, and honestly what was not.

#include "programs/kqft/Report.h"

#include "programs/ExitStatus.h"
#include "programs/kqft/Interrupt.h"
#include "programs/kqft/Output.h"
#include "programs/kqft/Text.h"
#include "protocol/ResultCodes.h"

namespace {

const char* const kNotReached = "not reached";

double SecondsSince(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

std::string WhyOf(const STransferItem& item) {
  return item.m_strWhy.empty() ? kNotReached : item.m_strWhy;
}

CJsonObject ItemObject(const STransferItem& item) {
  CJsonObject object;
  object.Name("name", item.m_strShown)
      .Number("size", item.m_llSize)
      .Number("code", item.m_bDone ? RESULT_OK : item.m_nCode)
      .Text("code_name", ResultName(item.m_bDone ? RESULT_OK : item.m_nCode));
  if (!item.m_bDone) object.Text("message", WhyOf(item));
  return object;
}

struct SSum {
  std::size_t m_nDone = 0;
  std::int64_t m_llDone = 0;
  std::int64_t m_llTotal = 0;
};

SSum SumUp(const STransferReport& report) {
  SSum sum;
  for (const STransferItem& item : report.m_vecItems) {
    sum.m_llTotal = AddSizes(sum.m_llTotal, item.m_llSize);
    if (!item.m_bDone) continue;
    ++sum.m_nDone;
    sum.m_llDone = AddSizes(sum.m_llDone, item.m_llSize);
  }
  return sum;
}

int StatusOf(const STransferReport& report, const SSum& sum) {
  if (sum.m_nDone == report.m_vecItems.size() && report.m_nProblems == 0) return kExitDone;
  return IsInterrupted() ? InterruptedStatus() : kExitFailed;
}

void TellJson(COutput& output, const STransferReport& report, const SSum& sum, int status) {
  std::vector<CJsonObject> files;
  for (const STransferItem& item : report.m_vecItems) files.push_back(ItemObject(item));
  const char* const result =
      status == kExitDone ? "done" : (status == kExitFailed ? "failed" : "interrupted");
  CJsonObject object("summary");
  object.Text("command", report.m_strCommand).Text("result", result).Number("exit_status", status);
  if (!report.m_strProject.empty()) object.Name("project", report.m_strProject);
  output.Json(object.Number("files_total", static_cast<std::int64_t>(report.m_vecItems.size()))
                  .Number("files_done", static_cast<std::int64_t>(sum.m_nDone))
                  .Number("bytes_total", sum.m_llTotal)
                  .Number("bytes_done", sum.m_llDone)
                  .Number("bytes_moved", report.m_llMoved)
                  .Seconds("seconds", SecondsSince(report.m_started))
                  .List("files", files));
}

}  // namespace

int ReportTransfer(COutput& output, const STransferReport& report) {
  const SSum sum = SumUp(report);
  const int status = StatusOf(report, sum);
  // After an interruption most files simply had no turn.
  for (const STransferItem& item : report.m_vecItems) {
    if (item.m_bDone || (IsInterrupted() && !item.m_bFinal)) continue;
    output.Error(WhyOf(item), item.m_nCode, item.m_strShown);
  }
  const bool isPut = report.m_strCommand == "put";
  const double seconds = SecondsSince(report.m_started);
  std::string text = isPut ? "sent " : "received ";
  if (sum.m_nDone < report.m_vecItems.size()) text += std::to_string(sum.m_nDone) + " of ";
  text += FormatFiles(report.m_vecItems.size()) + ", " + FormatExactSize(sum.m_llDone);
  if (report.m_llMoved != sum.m_llDone) {
    text += ", " + FormatExactSize(report.m_llMoved) + " over the network";
  }
  char took[32];
  std::snprintf(took, sizeof took, "%.1f s", seconds);
  output.Tell(text + ", in " + took);
  if (status == kExitInterrupted || status == kExitTerminated) {
    output.Notice(
        "interrupted; what has arrived is kept. Run the same command again to go on" +
        std::string(isPut ? " (files that are no measurement files are sent whole again)" : ""));
  }
  TellJson(output, report, sum, status);
  return status;
}

int ReportPlan(COutput& output, const STransferReport& report,
               const std::vector<std::int64_t>& bytes) {
  std::vector<CJsonObject> files;
  std::int64_t total = 0;
  std::size_t count = 0;
  for (std::size_t i = 0; i < report.m_vecItems.size(); ++i) {
    const STransferItem& item = report.m_vecItems[i];
    if (item.m_bFinal) {
      output.Error(WhyOf(item), item.m_nCode, item.m_strShown);
      continue;
    }
    if (item.m_bDone) continue;
    total = AddSizes(total, bytes[i]);
    ++count;
    output.Say(FormatSize(bytes[i]) + "\t" + Printable(item.m_strShown));
    files.push_back(CJsonObject()
                        .Name("name", item.m_strShown)
                        .Number("size", item.m_llSize)
                        .Number("bytes", bytes[i]));
  }
  const char* const verb = report.m_strCommand == "put" ? "would send " : "would receive ";
  output.Tell(verb + FormatFiles(count) + ", " + FormatExactSize(total));
  output.Json(CJsonObject("plan")
                  .Text("command", report.m_strCommand)
                  .Number("files_total", static_cast<std::int64_t>(count))
                  .Number("bytes_total", total)
                  .List("files", files));
  for (const STransferItem& item : report.m_vecItems) {
    if (item.m_bFinal) return kExitFailed;
  }
  return report.m_nProblems == 0 ? kExitDone : kExitFailed;
}
