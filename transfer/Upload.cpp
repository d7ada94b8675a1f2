// put: sends directories and files.

#include <algorithm>
#include <deque>
#include <filesystem>
#include <memory>
#include <set>

#include "platform/KQFile.h"
#include "programs/ExitStatus.h"
#include "programs/kqft/Commands.h"
#include "programs/kqft/Interrupt.h"
#include "transfer/LocalFiles.h"
#include "transfer/Names.h"
#include "programs/kqft/Output.h"
#include "transfer/Recording.h"
#include "programs/kqft/Report.h"
#include "programs/kqft/Text.h"
#include "transfer/Transfer.h"
#include "protocol/ResultCodes.h"

namespace fs = std::filesystem;

namespace {

constexpr std::size_t kLongestServerName = 1023;

// How many files are held open at a time, and so the most of one request.
constexpr std::size_t kMostOpen = 128;

const char* const kNoRecording = "its recording did not arrive whole";
const char* const kSizesDiffer = "the file on the server is not as long as this one";

std::int64_t LocalSize(const std::string& path) {
  std::error_code error;
  const std::uintmax_t size = fs::file_size(path, error);
  return error ? -1 : static_cast<std::int64_t>(size);
}

class CUpload : public CTransfer {
 public:
  CUpload(CSession& session, COutput& output, CProgress& progress, int retries,
          const std::vector<STransferItem>& items)
      : CTransfer(session, output, progress, retries), m_items(items) {}

  /// The file that was sent last; "" when none was.
  const std::string& LastSent() const { return m_strLastSent; }

 protected:
  // What is missing of a recording is told behind it: told before, or of one
  // that did not arrive, it would hide what is missing indeed.
  bool GoesLast(const STransferItem& item) override { return IsSideFile(item.m_strLocal); }

  bool Waits(const STransferItem& item) override {
    return IsSideFile(item.m_strLocal) && AnyRecordingOf(item, [](const STransferItem& recording) {
             return !recording.m_bDone && !recording.m_bFinal;
           });
  }

  std::string Prepare(const STransferItem& item) override {
    const bool failed =
        IsSideFile(item.m_strLocal) &&
        AnyRecordingOf(item, [](const STransferItem& recording) { return !recording.m_bDone; });
    return failed ? kNoRecording : "";
  }

  void Ready(Batch& batch) override {
    m_answers.clear();
    OpenFiles(batch);
    AskForRanges(batch);
  }

  int Start(const Batch& batch) override {
    std::vector<Channel_Key_Value> records(batch.size());
    for (std::size_t i = 0; i < batch.size(); ++i) {
      records[i].m_strPath = batch[i]->m_strLocal;
      records[i].m_strName = batch[i]->m_strServer;
    }
    m_strLastSent = batch.front()->m_strServer;
    return m_session.StartUpload(records, m_answers);
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
      if (!IsResumable(*item) && IsAskable(item->m_strServer)) {
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
    for (std::size_t i = 0; i < plain.size(); ++i) JudgeBySize(*plain[i], sizes[i]);
    return RESULT_OK;
  }

 private:
  template <typename Condition>
  bool AnyRecordingOf(const STransferItem& side, Condition condition) const {
    return std::any_of(m_items.begin(), m_items.end(), [&](const STransferItem& item) {
      return condition(item) && IsSideFileOf(side.m_strServer, item.m_strServer);
    });
  }

  // The library tells the server to empty a file before it opens its own.
  void OpenFiles(Batch& batch) {
    m_vecOpen.clear();
    if (batch.size() > kMostOpen) batch.resize(kMostOpen);
    for (std::size_t i = 0; i < batch.size(); ++i) {
      m_vecOpen.push_back(std::make_unique<CKQFile>());
      if (m_vecOpen.back()->KQOpen(batch[i]->m_strLocal, "rb")) continue;
      if (i == 0) Fail(*batch[0], ERROR_CODE_CLIENT_OPENFILE);
      batch.resize(i);
    }
  }

  // Few recordings have a side file on the server. One that has and cannot be
  // gone on with goes alone.
  void AskForRanges(Batch& batch) {
    std::vector<std::string> names;
    for (const STransferItem* item : batch) {
      if (IsResumable(*item) && IsAskable(item->m_strServer)) {
        names.push_back(SideFileName(item->m_strServer));
      }
    }
    std::vector<std::int64_t> sizes;
    if (const int result = m_session.AskSizes(names, sizes); result != RESULT_OK) {
      Fail(*batch[0], result);
      batch.clear();
    }
    auto size = sizes.begin();
    for (std::size_t i = 0; i < batch.size(); ++i) {
      if (!IsResumable(*batch[i])) continue;
      SRecording recording;
      const bool hasSide = !IsAskable(batch[i]->m_strServer) || *size++ != 0;
      if (hasSide && !CanGoOn(*batch[i], i == 0, recording)) return batch.resize(i);
      if (recording.m_bWhole && i == 0 && batch.size() > 1) batch.resize(1);
      m_answers.push_back(recording.m_answer);
    }
  }

  // @param isNext false: what is to be done about it waits for its turn
  bool CanGoOn(STransferItem& item, bool isNext, SRecording& recording) {
    int result = LookAtRecording(m_session, item.m_strServer, LocalSize(item.m_strLocal),
                                 item.m_bWhole, recording);
    if (result == RESULT_OK && recording.m_strWhy.empty() && !recording.m_bWhole) return true;
    if (!isNext) return false;
    if (result == RESULT_OK && recording.m_bWhole && recording.m_strWhy.empty()) {
      result = m_session.EmptyFile(item.m_strServer);
      item.m_bWhole = result == RESULT_OK;
      if (item.m_bWhole) return true;
    }
    if (result != RESULT_OK) {
      Fail(item, result);
    } else {
      item.m_nCode = 0;
      item.m_strWhy = recording.m_strWhy;
    }
    return false;
  }

  int VerifyAlone(STransferItem& item) {
    if (!IsResumable(item)) {
      std::int64_t held = 0;
      const int result = m_session.AskHeldSize(item.m_strServer, held);
      if (result == RESULT_OK) JudgeBySize(item, held);
      return result;
    }
    SRecording recording;
    int result = LookAtRecording(m_session, item.m_strServer, LocalSize(item.m_strLocal),
                                 item.m_bWhole, recording);
    if (result != RESULT_OK) return result;
    if (item.m_bWhole && recording.m_llMissing == 0) result = ReportFilled(item, recording);
    if (result == RESULT_OK) Judge(item, recording.m_llMissing, recording.m_strWhy);
    return result;
  }

  // All of the file has just been sent: the server need not miss ranges of it.
  int ReportFilled(const STransferItem& item, const SRecording& recording) {
    const std::vector<FILEDATAPOS>& lost = recording.m_lost.m_vecLost;
    int result = RESULT_OK;
    for (std::size_t i = 0; i < lost.size() && result == RESULT_OK && !IsInterrupted(); ++i) {
      if (!IsInFile(lost[i], item.m_llSize)) continue;
      result = m_session.ReportFilled(static_cast<int>(i), lost[i]);
    }
    return result;
  }

  static void JudgeBySize(STransferItem& item, std::int64_t held) {
    const bool possible = held >= 0;
    Judge(item, possible ? LocalSize(item.m_strLocal) - held : -1, possible ? "" : WhyNoSize(held));
  }

  static void Judge(STransferItem& item, std::int64_t missing, const std::string& why) {
    item.m_bDone = missing == 0 && why.empty();
    if (item.m_bDone) return;
    item.m_nCode = 0;
    item.m_strWhy = why.empty() ? kSizesDiffer : why;
  }

  const std::vector<STransferItem>& m_items;
  std::vector<std::unique_ptr<CKQFile>> m_vecOpen;  // those of the batch
  std::deque<SLostAnswer> m_answers;                // of its recordings
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
    if (!item.m_bFinal && IsMeasurementFile(item.m_strLocal) && IsAskable(item.m_strServer)) {
      SRecording recording;
      const int result =
          LookAtRecording(session, item.m_strServer, item.m_llSize, false, recording);
      if (result != RESULT_OK) return FailQuestion(output, result);
      missing = recording.m_llMissing;
      item.m_strWhy = recording.m_strWhy;
      if (missing < 0) item.m_strWhy = kSizesDiffer;
      item.m_bFinal = !item.m_strWhy.empty();
      item.m_bDone = missing == 0 && !item.m_bFinal;
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
  CUpload upload(session, output, progress, options.m_nRetries, report.m_vecItems);
  {
    const CInterruptScope scope;
    upload.Run(report.m_vecItems);
    if (!upload.LastSent().empty() && upload.IsLinkClean())
      session.CloseCourteously(upload.LastSent());
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
