// The end of a put or get: what was done, and honestly what was not.

#include "programs/kqft/Report.h"

#include "programs/ExitStatus.h"
#include "programs/kqft/Interrupt.h"
#include "programs/kqft/Output.h"
#include "programs/kqft/Text.h"
#include "protocol/ResultCodes.h"
#include "transfer/Sizes.h"

namespace {

const char* const kNotReached = "not reached";

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

SSum SumUp(const STransferResult& result) {
  SSum sum;
  for (const STransferItem& item : result.m_vecItems) {
    sum.m_llTotal = AddSizes(sum.m_llTotal, item.m_llSize);
    if (!item.m_bDone) continue;
    ++sum.m_nDone;
    sum.m_llDone = AddSizes(sum.m_llDone, item.m_llSize);
  }
  return sum;
}

int StatusOf(const STransferResult& result) {
  if (result.IsDone()) return kExitDone;
  return IsInterrupted() ? InterruptedStatus() : kExitFailed;
}

void TellJson(COutput& output, const std::string& command, const STransferResult& result,
              int status) {
  std::vector<CJsonObject> files;
  for (const STransferItem& item : result.m_vecItems) files.push_back(ItemObject(item));
  const SSum sum = SumUp(result);
  CJsonObject object("summary");
  object.Text("command", command).Text("result", WordFor(status)).Number("exit_status", status);
  if (!result.m_strProject.empty()) object.Name("project", result.m_strProject);
  output.Json(object.Number("files_total", static_cast<std::int64_t>(result.m_vecItems.size()))
                  .Number("files_done", static_cast<std::int64_t>(sum.m_nDone))
                  .Number("bytes_total", sum.m_llTotal)
                  .Number("bytes_done", sum.m_llDone)
                  .Number("bytes_moved", result.m_llMoved)
                  .Seconds("seconds", result.m_dSeconds)
                  .List("files", files));
}

int ReportEnd(COutput& output, const std::string& command, const STransferResult& result) {
  const SSum sum = SumUp(result);
  const int status = StatusOf(result);
  // After an interruption most files simply had no turn.
  for (const STransferItem& item : result.m_vecItems) {
    if (item.m_bDone || (result.m_bCancelled && !item.m_bFinal)) continue;
    output.Error(WhyOf(item), item.m_nCode, item.m_strShown);
  }
  if (!result.m_strInventory.empty()) output.Error(result.m_strInventory);
  const bool isPut = command == "put";
  std::string text = isPut ? "sent " : "received ";
  if (sum.m_nDone < result.m_vecItems.size()) text += std::to_string(sum.m_nDone) + " of ";
  text += FormatFiles(result.m_vecItems.size()) + ", " + FormatExactSize(sum.m_llDone);
  if (result.m_llMoved != sum.m_llDone) {
    text += ", " + FormatExactSize(result.m_llMoved) + " over the network";
  }
  char took[32];
  std::snprintf(took, sizeof took, "%.1f s", result.m_dSeconds);
  output.Tell(text + ", in " + took);
  if (status == kExitInterrupted || status == kExitTerminated) {
    output.Notice(
        "interrupted; what has arrived is kept. Run the same command again to go on" +
        std::string(isPut ? " (files that are no measurement files are sent whole again)" : ""));
  }
  TellJson(output, command, result, status);
  return status;
}

int ReportPlan(COutput& output, const std::string& command, const STransferResult& result) {
  std::vector<CJsonObject> files;
  std::int64_t total = 0;
  int status = result.m_nProblems == 0 ? kExitDone : kExitFailed;
  for (const STransferItem& item : result.m_vecItems) {
    if (item.m_bFinal) {
      output.Error(WhyOf(item), item.m_nCode, item.m_strShown);
      status = kExitFailed;
    }
    if (item.m_bFinal || item.m_bDone) continue;
    total = AddSizes(total, item.m_llMissing);
    output.Say(FormatSize(item.m_llMissing) + "\t" + Printable(item.m_strShown));
    files.push_back(CJsonObject()
                        .Name("name", item.m_strShown)
                        .Number("size", item.m_llSize)
                        .Number("bytes", item.m_llMissing));
  }
  const char* const verb = command == "put" ? "would send " : "would receive ";
  output.Tell(verb + FormatFiles(files.size()) + ", " + FormatExactSize(total));
  output.Json(CJsonObject("plan")
                  .Text("command", command)
                  .Number("files_total", static_cast<std::int64_t>(files.size()))
                  .Number("bytes_total", total)
                  .List("files", files));
  return status;
}

}  // namespace

const char* WordFor(int status) {
  if (status == kExitDone) return "done";
  return status == kExitFailed ? "failed" : "interrupted";
}

int ReportTransfer(COutput& output, const SOptions& options, const STransferResult& result) {
  if (result.m_nCode != RESULT_OK) {
    // What is no result of the library is about the project.
    output.Error(result.m_strWhy, result.m_nCode, result.m_nCode == 0 ? options.m_strProject : "");
    return kExitFailed;
  }
  return options.m_bDryRun ? ReportPlan(output, options.m_strCommand, result)
                           : ReportEnd(output, options.m_strCommand, result);
}
