// verify: compares what the server holds with the inventory of a project, and
// with a directory of this machine.

#include <CLI/CLI.hpp>

#include "programs/ExitStatus.h"
#include "programs/Verdicts.h"
#include "programs/kqft/Commands.h"
#include "programs/kqft/Interrupt.h"
#include "programs/kqft/Output.h"
#include "programs/kqft/Report.h"
#include "programs/kqft/Text.h"
#include "protocol/ResultCodes.h"
#include "transfer/ProjectClient.h"

namespace {

SVerifyRequest MakeVerifyRequest(const SOptions& options) {
  SVerifyRequest request;
  request.m_strProject = options.m_strProject;
  request.m_strLocal = options.m_strLocal;
  request.m_filter = options.m_filter;
  request.m_nRetries = options.m_nRetries;
  request.m_nRetrySeconds = options.m_nRetrySeconds;
  return request;
}

int StatusOf(const SVerifyResult& verify) {
  if (verify.IsSame()) return kExitDone;
  return IsInterrupted() ? InterruptedStatus() : kExitFailed;
}

}  // namespace

void AddVerifyOptions(CLI::App& command, SOptions& options) {
  command.add_option("DIR", options.m_strLocal, "compare with this directory, too");
  AddFilterOptions(command, options, false);
}

std::string WhyNoVerify(const SOptions& options) {
  return CProjectClient::WhyNoVerify(MakeVerifyRequest(options));
}

int RunVerify(CProjectClient& client, COutput& output, const SOptions& options) {
  SVerifyResult verify;
  {
    const CInterruptScope scope([&client] { client.Cancel(); });
    verify = client.Verify(MakeVerifyRequest(options));
  }
  if (verify.m_nCode != RESULT_OK) {
    output.Error(verify.m_strWhy, verify.m_nCode, options.m_strProject);
    return kExitFailed;
  }
  output.Live("");
  for (const SFileVerdict& file : verify.m_vecFiles) {
    SayVerdict(output, options.m_strProject, file);
  }
  const int status = StatusOf(verify);
  const std::string remark =
      verify.m_bCancelled ? "interrupted: not all of it was compared" : verify.m_strRemark;
  SayVerdicts(output, options.m_strProject, verify.m_counts, verify.m_bCompared, verify.IsSame(),
              remark);
  output.Json(CJsonObject("summary")
                  .Text("command", "verify")
                  .Text("result", WordFor(status))
                  .Number("exit_status", status)
                  .Name("project", options.m_strProject)
                  .Number("bytes_read", verify.m_llRead)
                  .Seconds("seconds", verify.m_dSeconds));
  return status;
}
