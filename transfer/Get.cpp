// get: fetches a project, or some of its files.

#include <algorithm>
#include <filesystem>
#include <set>

#include "programs/ExitStatus.h"
#include "programs/kqft/Commands.h"
#include "transfer/Download.h"
#include "programs/kqft/Interrupt.h"
#include "transfer/Names.h"
#include "programs/kqft/Output.h"
#include "programs/kqft/Report.h"
#include "programs/kqft/Text.h"
#include "protocol/ResultCodes.h"

namespace fs = std::filesystem;

namespace {

/// A file that the user wants.
struct SWanted {
  std::string m_strServer;  ///< its full name there
  std::string m_strBelow;   ///< its name below the project
};

std::string Slashed(std::string name) {
  std::replace(name.begin(), name.end(), '\\', '/');
  while (!name.empty() && name.back() == '/') name.pop_back();
  return name;
}

// True for the file itself and for what lies in a directory of that name.
bool IsMeant(const std::string& listed, const std::string& argument) {
  return listed.compare(0, argument.size(), argument) == 0 &&
         (listed.size() == argument.size() || listed[argument.size()] == '/');
}

// The server lists no files deep down in a project; they can be had by name.
std::vector<SWanted> Choose(const std::vector<SWanted>& listed, const std::string& projectPath,
                            const std::vector<std::string>& arguments) {
  if (arguments.empty()) return listed;
  std::vector<SWanted> wanted;
  std::set<std::string> taken;  // a file that is named twice is fetched once
  for (const std::string& argument : arguments) {
    const std::string name = Slashed(argument);
    bool isListed = false;
    for (const SWanted& file : listed) {
      if (!IsMeant(Slashed(file.m_strBelow), name)) continue;
      isListed = true;
      if (taken.insert(file.m_strServer).second) wanted.push_back(file);
    }
    if (isListed) continue;
    std::string below = name;
    std::replace(below.begin(), below.end(), '/', '\\');
    std::string full = projectPath;
    full += "\\" + below;
    if (taken.insert(full).second) wanted.push_back({full, below});
  }
  return wanted;
}

STransferItem MakeItem(const SWanted& file, const std::string& project, const std::string& into) {
  STransferItem item;
  item.m_strServer = file.m_strServer;
  item.m_strShown = project + "/" + Slashed(file.m_strBelow);
  fs::path local = fs::path(into) / project;
  for (const std::string& part : SplitSafely(file.m_strBelow, item.m_strWhy)) local /= part;
  item.m_strLocal = local.string();
  if (!IsAskable(item.m_strServer)) {
    item.m_strWhy = "the size of a file with \"|\" in its name cannot be asked for";
  }
  item.m_bFinal = !item.m_strWhy.empty();
  return item;
}

int AskItemSizes(CSession& session, std::vector<STransferItem>& items) {
  std::vector<std::string> names;
  for (const STransferItem& item : items) {
    if (!item.m_bFinal) names.push_back(item.m_strServer);
  }
  std::vector<std::int64_t> sizes;
  const int result = session.AskSizes(names, sizes);
  if (result != RESULT_OK) return result;
  auto size = sizes.begin();
  std::int64_t total = 0;
  for (STransferItem& item : items) {
    if (!item.m_bFinal) TakeSize(item, *size++, total);
  }
  return RESULT_OK;
}

// Two files of the server may not meet in one place here.
void RefuseClashes(std::vector<STransferItem>& items) {
  std::set<std::string> taken;
  for (STransferItem& item : items) {
    if (item.m_bFinal) continue;
    if (taken.insert(item.m_strLocal).second && taken.insert(PartPath(item)).second) continue;
    item.m_strWhy = "another file would get the same place here";
    item.m_bFinal = true;
  }
}

int FindItems(CSession& session, COutput& output, const SOptions& options, const std::string& into,
              std::vector<STransferItem>& items) {
  std::string directory;
  std::vector<Channel_Key_Value> files;
  int result = session.AskDirectory(directory);
  if (result == RESULT_OK) result = session.AskFiles(options.m_strProject, files);
  if (result != RESULT_OK) return FailQuestion(output, result);
  const std::string projectPath = directory + options.m_strProject;
  std::vector<SWanted> listed;
  listed.reserve(files.size());
  for (const Channel_Key_Value& file : files) {
    listed.push_back({file.m_strName, NameBelowProject(file, projectPath)});
  }
  if (listed.empty() && options.m_vecPaths.empty()) {
    output.Error("the server lists no files of this project", 0, options.m_strProject);
    return kExitFailed;
  }
  for (const SWanted& file : Choose(listed, projectPath, options.m_vecPaths)) {
    items.push_back(MakeItem(file, options.m_strProject, into));
  }
  result = AskItemSizes(session, items);
  if (result != RESULT_OK) return FailQuestion(output, result);
  RefuseClashes(items);
  return kExitDone;
}

}  // namespace

int CommandGet(CSession& session, COutput& output, const SOptions& options) {
  std::error_code error;
  const std::string into = fs::absolute(options.m_strInto, error).lexically_normal().string();
  STransferReport report;
  report.m_strCommand = "get";
  report.m_strProject = options.m_strProject;
  const int found = FindItems(session, output, options, into, report.m_vecItems);
  if (found != kExitDone) return found;

  CProgress progress(output, report.m_strCommand);
  CDownload download(session, output, progress, options.m_nRetries, into, report.m_vecItems);
  std::vector<std::int64_t> missing;
  download.Compare(report.m_vecItems, missing);
  if (options.m_bDryRun) return ReportPlan(output, report, missing);
  {
    const CInterruptScope scope;
    download.Run(report.m_vecItems);
  }
  report.m_llMoved = session.BytesMoved();
  return ReportTransfer(output, report);
}

std::string WhyNoGet(const SOptions& options) {
  if (fs::path::preferred_separator != '\\' && options.m_strInto.find('\\') != std::string::npos) {
    return "--into: a name with \"\\\" cannot be used";
  }
  return options.m_strInto.empty() ? "--into: the name is empty" : "";
}
