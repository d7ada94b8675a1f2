// get: fetches a project, or some of its files.

#include <CLI/CLI.hpp>

#include "programs/kqft/Commands.h"
#include "programs/kqft/Interrupt.h"
#include "programs/kqft/Output.h"
#include "programs/kqft/Report.h"
#include "programs/kqft/Text.h"
#include "protocol/ResultCodes.h"
#include "transfer/ProjectClient.h"

namespace {

SGetRequest MakeRequest(const SOptions& options) {
  SGetRequest request;
  request.m_strProject = options.m_strProject;
  request.m_vecFiles = options.m_vecPaths;
  request.m_vecFiles.insert(request.m_vecFiles.end(), options.m_vecNames.begin(),
                            options.m_vecNames.end());
  request.m_bOnlyFiles = options.m_bNames;
  request.m_filter = options.m_filter;
  request.m_strInto = options.m_strInto;
  request.m_bPlanOnly = options.m_bDryRun;
  request.m_bInventory = !options.m_bNoInventory;
  request.m_bChecksum = options.m_bChecksum;
  request.m_bOverwrite = options.m_bOverwrite;
  request.m_nRetries = options.m_nRetries;
  request.m_nRetrySeconds = options.m_nRetrySeconds;
  return request;
}

}  // namespace

void AddGetOptions(CLI::App& command, SOptions& options) {
  command.add_option("FILE", options.m_vecPaths, "as \"kqft files\" names them");
  command.add_option("--into", options.m_strInto, "directory to put the project into")
      ->type_name("DIR")
      ->capture_default_str();
  command.add_flag("-n,--dry-run", options.m_bDryRun, "only say what would be fetched");
  command.add_flag("--checksum", options.m_bChecksum,
                   "compare files that are here by their bytes, too");
  command.add_flag("--overwrite", options.m_bOverwrite,
                   "do not keep files that are replaced as NAME~");
  AddFilterOptions(command, options, true);
  command.add_flag("--no-inventory", options.m_bNoInventory,
                   "do not go by the inventory of the project");
}

std::string WhyNoGet(const SOptions& options) {
  const std::string why = CProjectClient::WhyNoGet(MakeRequest(options));
  return why.empty() ? "" : "--into: " + why;
}

int RunGet(CProjectClient& client, COutput& output, const SOptions& options) {
  STransferResult get;
  {
    const CInterruptScope scope([&client] { client.Cancel(); });
    get = client.Get(MakeRequest(options));
  }
  const bool all = options.m_vecPaths.empty() && !options.m_bNames && get.m_nCode == RESULT_OK;
  if (all && !get.m_strMayHide.empty()) {
    output.Notice(Printable(options.m_strProject) + ": " + get.m_strMayHide);
  }
  return ReportTransfer(output, options, get);
}
