// The end of a put or get: what was done, and honestly what was not.

#include "programs/kqft/Report.h"

#include <array>
#include <cstdio>

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
  if (item.m_eReason != EReason::kNone) object.Text("reason", ReasonName(item.m_eReason));
  if (!item.m_bDone) object.Text("message", WhyOf(item));
  return object;
}

// Known to be at the server before anything was sent.
bool IsLeft(const STransferItem& item) {
  return item.m_bDone &&
         (item.m_eReason == EReason::kUnchanged || item.m_eReason == EReason::kEqual);
}

// "3 new, 1 changed, 9,996 unchanged", and what else there is to say of a put.
std::string ReasonsText(const STransferResult& put) {
  std::array<std::size_t, kReasons> counts = {};
  for (const STransferItem& item : put.m_vecItems) {
    ++counts[static_cast<std::size_t>(item.m_eReason)];
  }
  std::string text;
  for (std::size_t i = 1; i < kReasons; ++i) {
    const auto reason = static_cast<EReason>(i);
    if (counts[i] == 0) continue;
    text += (text.empty() ? "" : ", ") + FormatCount(counts[i]) + " " + ReasonName(reason);
    if (reason == EReason::kEqual) text += " by length alone";
  }
  if (put.m_nFilesHealed > 0) {
    text += "; healed " + FormatFiles(put.m_nFilesHealed) + " (" +
            std::to_string(put.m_nBlocksHealed) +
            (put.m_nBlocksHealed == 1 ? " block)" : " blocks)");
  }
  if (put.m_nOnlyThere > 0) text += "; " + FormatFiles(put.m_nOnlyThere) + " only on the server";
  return text;
}

// The same of a get, of which only this is known; and of either what its
// filter left out.
std::string RemarksText(const std::string& command, const STransferResult& result) {
  std::string text = command == "put" ? ReasonsText(result) : "";
  if (result.m_nFiltered > 0) {
    text += (text.empty() ? "" : "; ") + FormatCount(result.m_nFiltered) + " left out";
  }
  return text;
}

struct SSum {
  std::size_t m_nLeft = 0;  // of all
  std::int64_t m_llLeft = 0;
  std::size_t m_nDone = 0;
  std::int64_t m_llDone = 0;
  std::int64_t m_llTotal = 0;
};

SSum SumUp(const STransferResult& result) {
  SSum sum;
  for (const STransferItem& item : result.m_vecItems) {
    sum.m_llTotal = AddSizes(sum.m_llTotal, item.m_llSize);
    if (!item.m_bDone) continue;
    if (IsLeft(item)) ++sum.m_nLeft;
    if (IsLeft(item)) sum.m_llLeft = AddSizes(sum.m_llLeft, item.m_llSize);
    ++sum.m_nDone;
    sum.m_llDone = AddSizes(sum.m_llDone, item.m_llSize);
  }
  return sum;
}

int StatusOf(const STransferResult& result) {
  if (result.IsDone()) return kExitDone;
  return IsInterrupted() ? InterruptedStatus() : kExitFailed;
}

void TellJson(COutput& output, const char* type, const std::string& command,
              const STransferResult& result, int status) {
  std::vector<CJsonObject> files;
  for (const STransferItem& item : result.m_vecItems) files.push_back(ItemObject(item));
  const SSum sum = SumUp(result);
  CJsonObject object(type);
  object.Text("command", command).Text("result", WordFor(status)).Number("exit_status", status);
  if (!result.m_strProject.empty()) object.Name("project", result.m_strProject);
  std::vector<CJsonObject> unlisted;
  for (const std::string& project : result.m_vecUnlisted) {
    unlisted.push_back(CJsonObject().Name("name", project));
  }
  if (!unlisted.empty()) object.List("unlisted", unlisted);
  object.Number("files_left_out", static_cast<std::int64_t>(result.m_nFiltered));
  if (command == "put") {
    object.Number("files_healed", static_cast<std::int64_t>(result.m_nFilesHealed))
        .Number("blocks_healed", static_cast<std::int64_t>(result.m_nBlocksHealed))
        .Number("files_only_there", static_cast<std::int64_t>(result.m_nOnlyThere));
  }
  output.Json(object.Number("files_total", static_cast<std::int64_t>(result.m_vecItems.size()))
                  .Number("files_done", static_cast<std::int64_t>(sum.m_nDone))
                  .Number("bytes_total", sum.m_llTotal)
                  .Number("bytes_done", sum.m_llDone)
                  .Number("bytes_moved", result.m_llMoved)
                  .Seconds("seconds", result.m_dSeconds)
                  .List("files", files));
}

void TellSum(COutput& output, const std::string& command, const STransferResult& result) {
  const SSum sum = SumUp(result);
  std::string text = command == "put" ? "sent " : "received ";
  const std::size_t done = sum.m_nDone - sum.m_nLeft;
  const std::size_t meant = result.m_vecItems.size() - sum.m_nLeft;
  if (done < meant) text += std::to_string(done) + " of ";
  text += FormatFiles(meant) + ", " + FormatExactSize(sum.m_llDone - sum.m_llLeft);
  if (result.m_llMoved != sum.m_llDone - sum.m_llLeft) {
    text += ", " + FormatExactSize(result.m_llMoved) + " over the network";
  }
  char took[32];
  std::snprintf(took, sizeof took, "%.1f s", result.m_dSeconds);
  const std::string remarks = RemarksText(command, result);
  output.Tell(text + ", in " + took + (remarks.empty() ? "" : ": ") + remarks);
}

int ReportEnd(COutput& output, const std::string& command, const STransferResult& result) {
  const int status = StatusOf(result);
  // After an interruption most files simply had no turn.
  for (const STransferItem& item : result.m_vecItems) {
    if (item.m_bDone || (result.m_bCancelled && !item.m_bFinal)) continue;
    output.Error(WhyOf(item), item.m_nCode, item.m_strShown);
  }
  if (!result.m_strInventory.empty()) output.Error(result.m_strInventory);
  TellSum(output, command, result);
  for (const std::string& project : result.m_vecUnlisted) {
    output.Notice(Printable(project) +
                  ": the server does not list it, since it shows projects by a file with a suffix "
                  "of its own (.kqsln unless it was told another); files and get know it by name");
  }
  if (IsInterrupted() && status == InterruptedStatus()) {
    output.Notice("interrupted; what has arrived is kept. Run the same command again to go on" +
                  std::string(command == "put"
                                  ? " (files that are no measurement files are sent whole again)"
                                  : ""));
  }
  TellJson(output, "summary", command, result, status);
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
    const std::string reason = ReasonName(item.m_eReason);
    output.Say(FormatSize(item.m_llMissing) + "\t" + reason + (reason.empty() ? "" : "\t") +
               Printable(item.m_strShown));
    CJsonObject& object = files.emplace_back();
    object.Name("name", item.m_strShown)
        .Number("size", item.m_llSize)
        .Number("bytes", item.m_llMissing);
    if (!reason.empty()) object.Text("reason", reason);
  }
  const char* const verb = command == "put" ? "would send " : "would receive ";
  const std::string remarks = RemarksText(command, result);
  output.Tell(verb + FormatFiles(files.size()) + ", " + FormatExactSize(total) +
              (remarks.empty() ? "" : ": ") + remarks);
  output.Json(CJsonObject("plan")
                  .Text("command", command)
                  .Number("files_total", static_cast<std::int64_t>(files.size()))
                  .Number("bytes_total", total)
                  .Number("files_left_out", static_cast<std::int64_t>(result.m_nFiltered))
                  .List("files", files));
  return status;
}

}  // namespace

const char* WordFor(int status) {
  if (status == kExitDone) return "done";
  return status == kExitFailed ? "failed" : "interrupted";
}

void ReportRound(COutput& output, const std::string& command, const STransferResult& round) {
  TellSum(output, command, round);
  TellJson(output, "round", command, round, StatusOf(round));
}

int ReportTransfer(COutput& output, const SOptions& options, const STransferResult& result) {
  if (result.m_nCode != RESULT_OK) {
    // What is no result of the library is about the project.
    const std::string& project =
        options.m_strProject.empty() ? result.m_strProject : options.m_strProject;
    output.Error(result.m_strWhy, result.m_nCode, result.m_nCode == 0 ? project : "");
    return kExitFailed;
  }
  return options.m_bDryRun ? ReportPlan(output, options.m_strCommand, result)
                           : ReportEnd(output, options.m_strCommand, result);
}
