// put: sends directories and files.

#include <CLI/CLI.hpp>

#include "programs/kqft/Commands.h"
#include "programs/kqft/Interrupt.h"
#include "programs/kqft/Output.h"
#include "programs/kqft/Report.h"
#include "transfer/ProjectClient.h"

namespace {

SPutRequest MakeRequest(const SOptions& options) {
  SPutRequest request;
  request.m_vecPaths = options.m_vecPaths;
  request.m_strProject = options.m_strProject;
  request.m_bPlanOnly = options.m_bDryRun;
  request.m_bInventory = !options.m_bNoInventory;
  request.m_bWhole = options.m_bWhole;
  request.m_bChecksum = options.m_bChecksum;
  request.m_nRetries = options.m_nRetries;
  request.m_nRetrySeconds = options.m_nRetrySeconds;
  request.m_bTakeOver = options.m_bTakeOver;
  return request;
}

}  // namespace

void AddPutOptions(CLI::App& command, SOptions& options) {
  command.add_option("PATH", options.m_vecPaths, "a directory becomes the project of its name")
      ->required();
  command.add_option("--project", options.m_strProject, "put everything into this project")
      ->type_name("NAME");
  command.add_flag("-n,--dry-run", options.m_bDryRun, "only say what would be sent");
  command.add_flag("--take-over", options.m_bTakeOver,
                   "go on though another workstation is sending the project");
  command.add_flag("--checksum", options.m_bChecksum,
                   "compare files with the inventory by their bytes, too");
  command.add_flag("--whole", options.m_bWhole, "send every file whole");
  command.add_flag("--no-inventory", options.m_bNoInventory,
                   "neither go by the inventory of the project nor write it; for measuring");
}

std::string WhyNoPut(const SOptions& options) {
  SPutRequest request = MakeRequest(options);
  const std::string why = CProjectClient::WhyNoPut(request);
  request.m_strProject = "any";
  const bool isTheName = !why.empty() && CProjectClient::WhyNoPut(request).empty();
  return isTheName ? why + "; use --project NAME" : why;
}

int RunPut(CProjectClient& client, COutput& output, const SOptions& options) {
  STransferResult put;
  {
    const CInterruptScope scope([&client] { client.Cancel(); });
    put = client.Put(MakeRequest(options));
  }
  if (!put.m_strOther.empty()) put.m_strWhy += "; --take-over goes on";
  return ReportTransfer(output, options, put);
}
