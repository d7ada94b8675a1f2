// put: sends directories and files.

#include <algorithm>
#include <filesystem>
#include <memory>
#include <set>

#include "programs/ExitStatus.h"
#include "programs/kqft/Commands.h"
#include "programs/kqft/Interrupt.h"
#include "programs/kqft/LocalFiles.h"
#include "programs/kqft/Names.h"
#include "programs/kqft/Output.h"
#include "programs/kqft/Report.h"
#include "programs/kqft/Text.h"
#include "programs/kqft/Transfer.h"
#include "protocol/ResultCodes.h"

namespace fs = std::filesystem;

namespace {

constexpr std::size_t kLongestServerName = 1023;
constexpr char kListSeparator = '|';  // of the question for sizes

const char* const kSizesDiffer = "the file on the server is not as long as this one";

std::int64_t LocalSize(const std::string& path) {
  std::error_code error;
  const std::uintmax_t size = fs::file_size(path, error);
  return error ? -1 : static_cast<std::int64_t>(size);
}

/// How much of a measurement file the server holds, segments and gaps counted.
/// @param missing bytes that a put would send
int AskMissing(CSession& session, const STransferItem& item, std::int64_t localSize,
               std::int64_t& missing) {
  SLostInfo info;
  int result = session.AskLostInfo(item.m_strServer, info);
  if (result != RESULT_OK) return result;
  // Without ranges the library goes on with the first segment, as if it were
  // the only one.
  if (info.m_vecLost.empty()) info.m_vecBounds.clear();

  std::vector<std::string> names;
  for (std::size_t i = 0; i <= info.m_vecBounds.size(); ++i) {
    names.push_back(SegmentName(item.m_strServer, i));
  }
  std::vector<std::int64_t> held;
  result = session.AskSizes(names, held);
  if (result != RESULT_OK) return result;
  missing = 0;
  for (const FILEDATAPOS& range : info.m_vecLost) missing += std::max<std::int64_t>(range.llLen, 0);
  const std::int64_t begin = info.m_vecBounds.empty() ? 0 : info.m_vecBounds.back();
  missing += localSize - begin - held.back();
  // An older segment that is shorter than it should be cannot be filled.
  for (std::size_t i = 0; i + 1 < held.size(); ++i) {
    const std::int64_t start = i == 0 ? 0 : info.m_vecBounds[i - 1];
    missing += std::max<std::int64_t>(info.m_vecBounds[i] - start - held[i], 0);
  }
  return RESULT_OK;
}

class CUpload : public CTransfer {
 public:
  using CTransfer::CTransfer;

  /// The file that was sent last; "" when none was.
  const std::string& LastSent() const { return m_strLastSent; }

 protected:
  int Start(const Batch& batch) override {
    std::vector<Channel_Key_Value> records(batch.size());
    for (std::size_t i = 0; i < batch.size(); ++i) {
      records[i].m_strPath = batch[i]->m_strLocal;
      records[i].m_strName = batch[i]->m_strServer;
    }
    m_strLastSent = batch.front()->m_strServer;
    return m_session.StartUpload(records);
  }

  std::string OpenedFile(const STransferItem& item) const override {
    std::string path = item.m_strLocal;
    std::replace(path.begin(), path.end(), '/', '\\');
    return path;
  }

  bool IsResumable(const STransferItem& item) const override {
    return IsMeasurementFile(item.m_strLocal);
  }

  int Verify(const Batch& ended) override {
    Batch plain;
    for (STransferItem* item : ended) {
      const bool askAlone =
          IsResumable(*item) || item->m_strServer.find(kListSeparator) != std::string::npos;
      if (!askAlone) {
        plain.push_back(item);
      } else if (const int result = VerifyAlone(*item); result != RESULT_OK) {
        return result;
      }
    }
    std::vector<std::string> names;
    for (const STransferItem* item : plain) names.push_back(item->m_strServer);
    std::vector<std::int64_t> sizes;
    const int result = m_session.AskSizes(names, sizes);
    if (result != RESULT_OK) return result;
    for (std::size_t i = 0; i < plain.size(); ++i) {
      Judge(*plain[i], LocalSize(plain[i]->m_strLocal) - sizes[i]);
    }
    return RESULT_OK;
  }

 private:
  int VerifyAlone(STransferItem& item) {
    const std::int64_t size = LocalSize(item.m_strLocal);
    std::int64_t missing = 0;
    int result = RESULT_OK;
    if (item.m_strServer.find(kListSeparator) == std::string::npos) {
      result = AskMissing(m_session, item, size, missing);
    } else {
      std::int64_t held = 0;
      result = m_session.AskHeldSize(item.m_strServer, held);
      missing = size - held;
    }
    if (result == RESULT_OK) Judge(item, missing);
    return result;
  }

  static void Judge(STransferItem& item, std::int64_t missing) {
    item.m_bDone = missing == 0;
    if (missing == 0) return;
    item.m_nCode = 0;
    item.m_strWhy = kSizesDiffer;
  }

  std::string m_strLastSent;
};

// The project that a path becomes.
std::string ProjectOf(const std::string& path, const SOptions& options) {
  if (!options.m_strProject.empty()) return options.m_strProject;
  std::error_code error;
  const fs::path top = fs::canonical(path, error);
  return fs::is_directory(top, error) ? top.filename().string() : "";
}

void AddItem(STransferReport& report, std::set<std::string>& taken, const SLocalFile& file,
             const std::string& serverDirectory, const std::string& project) {
  STransferItem item;
  const std::string below = JoinForServer(file.m_vecComponents);
  item.m_strLocal = file.m_strPath;
  item.m_strServer = serverDirectory + project + "\\" + below;
  item.m_strShown = project + "\\" + below;
  std::replace(item.m_strShown.begin(), item.m_strShown.end(), '\\', '/');
  item.m_llSize = file.m_llSize;
  item.m_strWhy = file.m_strWhyNot;
  if (item.m_strServer.size() > kLongestServerName) item.m_strWhy = "the name is too long";
  if (!taken.insert(item.m_strServer).second) item.m_strWhy = "another file has the same name";
  item.m_bFinal = !item.m_strWhy.empty();
  report.m_vecItems.push_back(std::move(item));
}

void ReportFound(COutput& output, const SLocalFiles& found, STransferReport& report) {
  for (const std::string& path : found.m_vecSkipped) {
    output.Notice("skipped " + Printable(path) + ": neither a file nor a directory of its own");
  }
  for (const std::string& problem : found.m_vecUnreadable) output.Error(Printable(problem));
  report.m_nProblems += found.m_vecUnreadable.size();
}

int Plan(CSession& session, COutput& output, STransferReport& report) {
  std::vector<std::int64_t> bytes;
  for (STransferItem& item : report.m_vecItems) {
    std::int64_t missing = item.m_llSize;
    if (!item.m_bFinal && IsMeasurementFile(item.m_strLocal)) {
      const int result = AskMissing(session, item, item.m_llSize, missing);
      if (result != RESULT_OK) return FailQuestion(output, result);
      item.m_bDone = missing == 0;
    }
    bytes.push_back(missing);
  }
  return ReportPlan(output, report, bytes);
}

}  // namespace

int CommandPut(CSession& session, COutput& output, const SOptions& options) {
  std::string serverDirectory;
  const int asked = session.AskDirectory(serverDirectory);
  if (asked != RESULT_OK) return FailQuestion(output, asked);
  if (serverDirectory.empty()) {
    output.Error("the server has no project directory");
    return kExitFailed;
  }
  STransferReport report;
  report.m_strCommand = "put";
  std::set<std::string> taken;
  for (const std::string& path : options.m_vecPaths) {
    SLocalFiles found;
    CollectFiles(path, found);
    ReportFound(output, found, report);
    const std::string project = ProjectOf(path, options);
    if (options.m_vecPaths.size() == 1 || !options.m_strProject.empty()) {
      report.m_strProject = project;
    }
    for (const SLocalFile& file : found.m_vecFiles) {
      AddItem(report, taken, file, serverDirectory, project);
    }
  }
  if (options.m_bDryRun) return Plan(session, output, report);

  CProgress progress(output, report.m_strCommand);
  CUpload upload(session, output, progress, options.m_nRetries);
  {
    const CInterruptScope scope;
    upload.Run(report.m_vecItems);
    if (!upload.LastSent().empty()) session.Leave(upload.LastSent());
    session.Stop();
    report.m_llMoved = session.BytesMoved();
  }
  return ReportTransfer(output, report);
}

std::string WhyNoPut(const SOptions& options) {
  for (const std::string& path : options.m_vecPaths) {
    std::error_code error;
    if (!fs::exists(path, error)) return path + ": no such file or directory";
    const std::string project = ProjectOf(path, options);
    std::string problem = path;
    if (project.empty()) return problem.append(": a single file needs --project NAME");
    if (const std::string why = WhyNoProject(project); !why.empty()) {
      return problem.append(": cannot become a project: " + why + "; use --project NAME");
    }
  }
  return "";
}
