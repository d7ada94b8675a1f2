// Command line of kqft.

#include "programs/kqft/CommandLine.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <filesystem>
#include <iostream>
#include <map>

#include "platform/PathBytes.h"
#include "programs/ConfigFile.h"
#include "programs/Directories.h"
#include "programs/ExitStatus.h"
#include "programs/Suggestion.h"
#include "programs/kqft/Commands.h"

namespace {

constexpr int kHighestPort = 65535;
constexpr int kMostRetries = 1000;
constexpr int kMinute = 60;  // seconds
constexpr int kHour = 60 * kMinute;
constexpr int kLongestRetry = 1000 * kHour;
constexpr int kLongestTimeout = 24 * kHour;

const char* const kDescription =
    "Moves measurement projects between this machine and a data server.";

const char* const kFooter =
    "\nExamples:\n"
    "  kqft --server data.example put Run-42         send the directory Run-42 as a project\n"
    "  kqft --server data.example ls                 list the projects of the server\n"
    "  kqft --server data.example get Run-42 --into /data\n"
    "\n"
    "Whatever was interrupted goes on when the same command is given again.\n"
    "The server may also be named by KQFT_SERVER or in ~/.config/kqft.conf (server = HOST:PORT).\n"
    "Exit status: 0 all done, 1 something failed, 2 wrong use, 3 cannot connect, 130 Ctrl-C.";

const std::map<std::string, int> kTimeUnits = {{"s", 1}, {"m", kMinute}, {"h", kHour}};

void AddConnectionOptions(CLI::App& app, SOptions& options, std::string& server) {
  app.add_option("--server", server,
                 "the server; the port is 9999 unless given. Of several servers of one storage, "
                 "a,b,c, one that answers")
      ->type_name("HOST[:PORT][,...]")
      ->envname("KQFT_SERVER");
  app.add_option("--bind", options.m_place.m_strBindAddress, "local address to connect from")
      ->type_name("ADDRESS")
      ->check(CLI::ValidIPV4);
  app.add_option("--timeout", options.m_place.m_nTimeoutSeconds,
                 "how long the server may be silent, as in 20, 5m (default: 10 to connect, 30 for "
                 "the first answer)")
      ->transform(CLI::AsNumberWithUnit(kTimeUnits))
      ->check(CLI::Range(1, kLongestTimeout))
      ->type_name("SECONDS");
  app.add_option("--bwlimit", options.m_place.m_strBandwidth,
                 "bytes a second, both ways together, as in 512k, 10M; or by a timetable, "
                 "\"08:00,512k 19:00,off\"")
      ->type_name("RATE")
      ->expected(1);
}

void AddGlobalOptions(CLI::App& app, SOptions& options, std::string& config) {
  app.add_option("--log-dir", options.m_place.m_strLogDirectory,
                 "directory for log files (default: ~/.local/state/kqft)")
      ->type_name("DIR");
  app.add_option("--log-keep", options.m_nLogDays,
                 "remove log files after so many days; 0 keeps them")
      ->type_name("DAYS")
      ->check(CLI::Range(0, kMostLogDays))
      ->capture_default_str();
  app.add_option("--retries", options.m_nRetries,
                 "how often in a row to try again without any progress")
      ->type_name("N")
      ->check(CLI::Range(0, kMostRetries))
      ->capture_default_str();
  app.add_option("--retry-for", options.m_nRetrySeconds,
                 "go on trying so long without any progress, as in 90s, 10m, 2h")
      ->transform(CLI::AsNumberWithUnit(kTimeUnits))
      ->check(CLI::Range(0, kLongestRetry))
      ->type_name("TIME");
  app.add_flag(
      "--no-wait", [&options](std::int64_t) { options.m_place.m_eTurn = ETurn::kRefuse; },
      "fail when another kqft of this user is busy with the server");
  app.add_flag("-q,--quiet", options.m_bQuiet, "only results and errors");
  app.add_flag("--json", options.m_bJson, "one JSON object a line on the output stream");
  app.add_option("--config", config, "read options from a file (default: ~/.config/kqft.conf)")
      ->type_name("FILE")
      ->configurable(false);
  app.set_version_flag("--version", "kqft " KQFT_VERSION)->configurable(false);
  app.get_help_ptr()->configurable(false);
}

void AddCommands(CLI::App& app, SOptions& options) {
  for (const SCommand& command : Commands()) {
    CLI::App* added = app.add_subcommand(command.m_pName, command.m_pHelp);
    if (command.m_bNeedsProject) added->add_option("PROJECT", options.m_strProject)->required();
    command.m_pAddOptions(*added, options);
    added->fallthrough();
  }
  app.require_subcommand(1);
}

void ApplyConfig(CLI::App& app, const std::string& named) {
  if (!named.empty()) return ApplyConfigFile(app, named);
  const std::string usual = UserConfigFile("kqft.conf");
  if (std::error_code error; !usual.empty() && std::filesystem::exists(PathOf(usual), error)) {
    ApplyConfigFile(app, usual);
  }
}

// Of a word that is neither a command nor an option; "" when there is none.
std::string WhatWasMeant(const CLI::App& app) {
  const std::vector<std::string> left = app.remaining(true);
  if (left.empty()) return "";
  std::string word = left.front().substr(0, left.front().find('='));
  const bool isOption = word.size() > 1 && word[0] == '-';
  const std::vector<CLI::App*> chosen = app.get_subcommands();
  if (!isOption && !chosen.empty()) return "";
  std::vector<std::string> known;
  if (isOption) {
    std::vector<const CLI::Option*> options = app.get_options();
    if (!chosen.empty()) {
      const auto own = static_cast<const CLI::App*>(chosen.front())->get_options();
      options.insert(options.end(), own.begin(), own.end());
    }
    for (const CLI::Option* option : options) {
      if (!option->get_lnames().empty()) known.push_back("--" + option->get_lnames().front());
    }
  } else {
    for (const SCommand& command : Commands()) known.emplace_back(command.m_pName);
  }
  const std::string near = Suggest(word, known);
  return "'" + word + "' is no " + (isOption ? "option" : "command") +
         (near.empty() ? "" : "; did you mean '" + near + "'?");
}

// Several stay as they are; each must make sense.
bool TakeServers(const std::string& text, SServerPlace& place) {
  if (text.find(',') == std::string::npos) {
    return ParseServer(text, place.m_strHost, place.m_nPort);
  }
  for (std::size_t begin = 0; begin <= text.size();) {
    const std::size_t end = std::min(text.find(',', begin), text.size());
    std::string host;
    int port = place.m_nPort;
    if (!ParseServer(text.substr(begin, end - begin), host, port)) return false;
    begin = end + 1;
  }
  place.m_strHost = text;
  return true;
}

void Check(const CLI::App& app, SOptions& options, const std::string& server) {
  options.m_strCommand = app.get_subcommands().front()->get_name();
  if (server.empty()) {
    throw CLI::ValidationError("no server: name one with --server or KQFT_SERVER");
  }
  if (!TakeServers(server, options.m_place)) {
    throw CLI::ValidationError("--server: " + server + " is no HOST or HOST:PORT");
  }
  const std::string& bandwidth = options.m_place.m_strBandwidth;
  if (const std::string why = CProjectClient::WhyNoBandwidth(bandwidth);
      !bandwidth.empty() && !why.empty()) {
    throw CLI::ValidationError("--bwlimit: " + why);
  }
  const bool needsProject = FindCommand(options.m_strCommand).m_bNeedsProject;
  if (!needsProject && options.m_strProject.empty()) return;
  if (const std::string why = CProjectClient::WhyNoProject(options.m_strProject); !why.empty()) {
    throw CLI::ValidationError("project: " + why);
  }
}

}  // namespace

bool ParseOptions(int argc, char** argv, SOptions& options, int& status) {
  CLI::App app(kDescription, "kqft");
  app.allow_windows_style_options(false);  // "/a" is a path everywhere
  app.footer(kFooter);
  app.failure_message([](const CLI::App*, const CLI::Error& error) {
    return std::string("kqft: ") + error.what() + "\nTry \"kqft --help\".\n";
  });
  std::string server;
  std::string config;
  AddConnectionOptions(app, options, server);
  AddGlobalOptions(app, options, config);
  AddCommands(app, options);
  try {
    app.parse(argc, argv);
    ApplyConfig(app, config);
    Check(app, options, server);
  } catch (const CLI::ParseError& error) {
    const std::string meant = error.get_exit_code() == 0 ? "" : WhatWasMeant(app);
    if (!meant.empty()) std::cerr << "kqft: " + meant + "\nTry \"kqft --help\".\n";
    status = !meant.empty() || app.exit(error) != 0 ? kExitUsage : kExitDone;
    return false;
  }
  return true;
}

bool ParseServer(const std::string& text, std::string& host, int& port) {
  // Brackets hold an address of IPv6; whoever connects tells that it is of no use.
  const bool bracketed = text.starts_with('[');
  const std::size_t end = std::min(text.find(bracketed ? ']' : ':'), text.size());
  host = text.substr(bracketed ? 1 : 0, end - (bracketed ? 1 : 0));
  const std::string rest = text.substr(std::min(end + (bracketed ? 1 : 0), text.size()));
  if (host.empty() || (bracketed && end == text.size())) return false;
  if (rest.empty()) return true;
  if (rest.front() != ':') return false;
  const std::string digits = rest.substr(1);
  if (digits.empty() || digits.size() > 5 ||
      !std::all_of(digits.begin(), digits.end(), [](char c) { return c >= '0' && c <= '9'; })) {
    return false;
  }
  port = std::stoi(digits);
  return port >= 1 && port <= kHighestPort;
}
