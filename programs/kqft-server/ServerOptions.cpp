// Command line of kqft-server.

#include "programs/kqft-server/ServerOptions.h"

#include <CLI/CLI.hpp>
#include <iostream>

#include "programs/ConfigFile.h"
#include "programs/ExitStatus.h"

namespace {

constexpr int kHighestPort = 65535;

const char* const kDescription =
    "Keeps measurement projects for workstations: receives, lists, sends and deletes them.\n"
    "The protocol knows neither passwords nor encryption: let it be reached from networks\n"
    "that you trust only.";

const char* const kFooter =
    "\nExamples:\n"
    "  kqft-server --dir /srv/projects\n"
    "  kqft-server --dir /srv/projects --listen 10.0.0.5 --port 9999 --log-dir /var/log/kqft\n"
    "\n"
    "Once ready it says \"listening on ADDRESS:PORT\" on the error stream. SIGTERM and Ctrl-C\n"
    "end it. A configuration file holds the same options, one \"key = value\" a line.";

void AddOptions(CLI::App& app, SServerOptions& options, std::string& config) {
  app.add_option("--dir", options.m_strDirectory, "directory that holds the projects (required)")
      ->type_name("DIR");
  app.add_option("--port", options.m_nPort, "TCP port to listen on; 0 picks a free one")
      ->type_name("N")
      ->check(CLI::Range(0, kHighestPort))
      ->capture_default_str();
  app.add_option("--listen", options.m_strListenAddress, "local address to listen on")
      ->type_name("ADDRESS")
      ->check(CLI::ValidIPV4)
      ->capture_default_str();
  app.add_option("--suffix", options.m_strSuffix,
                 "a directory with a file that ends so is a project")
      ->type_name("S")
      ->capture_default_str();
  app.add_option("--log-dir", options.m_strLogDirectory,
                 "directory for log files (default: the service manager's, /var/log/kqft or "
                 "the user's own)")
      ->type_name("DIR");
  app.add_option("--config", config, "read options from a file")
      ->type_name("FILE")
      ->configurable(false);
  app.set_version_flag("--version", "kqft-server " KQFT_VERSION)->configurable(false);
  app.get_help_ptr()->configurable(false);
}

}  // namespace

bool ParseServerOptions(int argc, char** argv, SServerOptions& options, int& status) {
  CLI::App app(kDescription, "kqft-server");
  app.footer(kFooter);
  app.failure_message([](const CLI::App*, const CLI::Error& error) {
    return std::string("kqft-server: ") + error.what() + "\nTry \"kqft-server --help\".\n";
  });
  std::string config;
  AddOptions(app, options, config);
  try {
    app.parse(argc, argv);
    if (!config.empty()) ApplyConfigFile(app, config);
    if (options.m_strDirectory.empty()) throw CLI::RequiredError("--dir");
  } catch (const CLI::ParseError& error) {
    status = app.exit(error) == 0 ? kExitDone : kExitUsage;
    return false;
  }
  return true;
}
