// kqft-server --verify: what a check of the projects finds, said to people or
// to programs.

#include "programs/kqft-server/Verify.h"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <iostream>
#include <thread>

#include "platform/PathBytes.h"
#include "programs/ExitStatus.h"
#include "programs/Verdicts.h"
#include "programs/kqft/Output.h"
#include "programs/kqft/Text.h"
#include "transfer/ProjectCheck.h"
#include "transfer/ProjectClient.h"

namespace fs = std::filesystem;

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds kRedrawInterval(100);
void Complain(const std::string& message) {
  std::cerr << "kqft-server: " + message + "\n";
}

class CVerification {
 public:
  explicit CVerification(const SVerifyOptions& options)
      : m_options(options), m_output(options.m_bJson, false) {}

  // True when all of it is the same.
  bool Check(const fs::path& directory) {
    m_strProject = BytesOf(directory.filename());
    SCheckCalls calls;
    calls.m_onFile = [this](const SFileVerdict& file) { SayVerdict(m_output, m_strProject, file); };
    calls.m_onBytes = [this](std::int64_t done, std::int64_t total) { return Show(done, total); };
    const auto threads = static_cast<int>(std::max(1U, std::thread::hardware_concurrency()));
    const SProjectVerdict verdict = CheckProject(BytesOf(directory), threads, calls);
    m_output.Live("");
    Say(verdict);
    bool same = verdict.IsSame();
    if (same) ++m_nSame;
    ++m_nProjects;
    if (m_options.m_bNote && verdict.m_strWhy.empty() && !verdict.m_bMeanwhile) {
      const std::string why = LeaveDamageNote(BytesOf(directory), verdict.m_damage);
      if (!why.empty()) {
        Complain(Printable(m_strProject) + ": no note: " + why);
        same = false;
      }
    }
    return same;
  }

  void Miss(const std::string& name) {
    ++m_nProjects;
    Complain(Printable(name) + ": no such project");
    m_output.Json(CJsonObject("error").Text("message", "no such project").Name("name", name));
  }

  int End(bool same) {
    const int status = same ? kExitDone : kExitFailed;
    m_output.Json(CJsonObject("summary")
                      .Text("command", "verify")
                      .Text("result", same ? "done" : "failed")
                      .Number("exit_status", status)
                      .Number("projects_total", static_cast<std::int64_t>(m_nProjects))
                      .Number("projects_same", static_cast<std::int64_t>(m_nSame)));
    return status;
  }

 private:
  void Say(const SProjectVerdict& verdict) {
    std::string why = verdict.m_strWhy;
    const bool counted = why.empty();
    if (verdict.m_bMeanwhile) why = "it was sent anew meanwhile; check it again";
    if (why.empty() && !verdict.m_head.m_bComplete) why = WhoIsSending(verdict.m_head);
    SayVerdicts(m_output, m_strProject, verdict.m_counts, counted, verdict.IsSame(), why);
  }

  bool Show(std::int64_t done, std::int64_t total) {
    const Clock::time_point now = Clock::now();
    if (!m_output.IsLive() || now < m_next) return true;
    m_next = now + kRedrawInterval;
    m_output.Live(Printable(m_strProject) + ": " + FormatSize(done) + " of " + FormatSize(total));
    return true;
  }

  const SVerifyOptions& m_options;
  COutput m_output;
  std::string m_strProject;  // constant while a project is checked
  Clock::time_point m_next;  // used by the call in hand
  std::size_t m_nProjects = 0;
  std::size_t m_nSame = 0;
};

// Every directory, but for the one that file systems make for themselves.
std::vector<std::string> AllProjects(const std::string& directory, std::error_code& error) {
  std::vector<std::string> names;
  for (fs::directory_iterator entry(PathOf(directory), error), end; !error && entry != end;
       entry.increment(error)) {
    std::error_code ignored;
    const std::string name = BytesOf(entry->path().filename());
    if (entry->is_directory(ignored) && name != "lost+found") names.push_back(name);
  }
  std::sort(names.begin(), names.end());
  return names;
}

}  // namespace

int VerifyProjects(const std::string& directory, const SVerifyOptions& options) {
  std::vector<std::string> names = options.m_vecProjects;
  for (const std::string& name : names) {
    if (const std::string why = CProjectClient::WhyNoProject(name); !why.empty()) {
      Complain(Printable(name) + ": " + why);
      return kExitUsage;
    }
  }
  std::error_code error;
  if (names.empty()) names = AllProjects(directory, error);
  if (error) {
    Complain("project directory " + directory + ": " + error.message());
    return kExitFailed;
  }
  CVerification verification(options);
  bool same = true;
  for (const std::string& name : names) {
    const fs::path project = PathOf(directory) / PathOf(name);
    if (fs::is_directory(project, error)) {
      same = verification.Check(project) && same;
    } else {
      verification.Miss(name);
      same = false;
    }
  }
  return verification.End(same);
}
