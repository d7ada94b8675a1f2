// put: sends directories and files.

#include <CLI/CLI.hpp>

#include "programs/kqft/Commands.h"
#include "programs/kqft/Interrupt.h"
#include "programs/kqft/Output.h"
#include "programs/kqft/Report.h"
#include "transfer/ProjectClient.h"

namespace {

constexpr int kLongestSettle = 24 * 60 * 60;  // seconds

}  // namespace

SPutRequest MakePutRequest(const SOptions& options) {
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
  request.m_filter = options.m_filter;
  request.m_vecFiles = options.m_vecNames;
  request.m_bOnlyFiles = options.m_bNames;
  return request;
}

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
  AddFilterOptions(command, options, true);
  CLI::Option* const watch = command.add_flag(
      "--watch", options.m_bWatch, "go on sending what comes into the directory, until stopped");
  command
      .add_option("--settle", options.m_nSettleSeconds,
                  "with --watch: seconds that a file has to be left alone before it is sent")
      ->type_name("SECONDS")
      ->check(CLI::Range(1, kLongestSettle))
      ->capture_default_str()
      ->needs(watch);
  command.add_flag("--no-inventory", options.m_bNoInventory,
                   "neither go by the inventory of the project nor write it; for measuring");
}

std::string WhyNoPut(const SOptions& options) {
  if (options.m_bWatch) return WhyNoWatch(options);
  SPutRequest request = MakePutRequest(options);
  const std::string why = CProjectClient::WhyNoPut(request);
  request.m_strProject = "any";
  const bool isTheName = !why.empty() && CProjectClient::WhyNoPut(request).empty();
  return isTheName ? why + "; use --project NAME" : why;
}

int RunPut(CProjectClient& client, COutput& output, const SOptions& options) {
  STransferResult put;
  {
    const CInterruptScope scope([&client] { client.Cancel(); });
    put = client.Put(MakePutRequest(options));
  }
  if (!put.m_strOther.empty()) put.m_strWhy += "; --take-over goes on";
  return ReportTransfer(output, options, put);
}
