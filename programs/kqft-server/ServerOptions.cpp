// Command line of kqft-server.

#include "programs/kqft-server/ServerOptions.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdint>
#include <iostream>
#include <limits>

#include "programs/ConfigFile.h"
#include "programs/ExitStatus.h"
#include "programs/ProgramStart.h"

namespace {

constexpr std::size_t kMostRateDigits = 6;
constexpr int kSecondMs = 1000;
constexpr int kMinuteMs = 60000;
constexpr int kMostStatusSeconds = 3600;

const char* const kServerDescription =
    "Keeps measurement projects for workstations: receives, lists, sends and deletes them.\n"
    "The protocol knows neither passwords nor encryption: let it be reached from networks\n"
    "that you trust only.";

const char* const kServerFooter =
    "\nExamples:\n"
    "  kqft-server --dir /srv/projects\n"
    "  kqft-server --dir /srv/projects --listen 10.0.0.5 --log-dir /var/log/kqft\n"
    "  kqft-server --dir /srv/projects --allow 10.1.0.0/16 --allow 10.2.7.4 --no-delete\n"
    "  kqft-server --dir /srv/projects --verify Run-42\n"
    "\n"
    "Once ready it says \"listening on ADDRESS:PORT (confined)\" on the error stream, or\n"
    "\"(not confined)\". SIGTERM and Ctrl-C end it; SIGHUP makes it open its access log anew. A "
    "configuration file holds the same options, "
    "one \"key = value\" a line.";

/// What is read as text and understood afterwards.
struct STexts {
  std::string m_strConfigFile;
  std::string m_strNewLinks;
  std::vector<std::string> m_vecAllowed;
};

// "20/s", "100/min".
void TakeRate(const std::string& text, SLinkLimits& limits) {
  if (text.empty()) return;
  const std::size_t digits = std::min(text.find_first_not_of("0123456789"), text.size());
  const std::string unit = text.substr(digits);
  if (digits == 0 || digits > kMostRateDigits || (unit != "/s" && unit != "/min")) {
    throw CLI::ValidationError("--max-new-links", text + ": a rate such as 20/s or 100/min");
  }
  limits.m_nNew = std::stoi(text.substr(0, digits));
  limits.m_nNewMs = unit == "/s" ? kSecondMs : kMinuteMs;
}

void TakeRanges(const std::vector<std::string>& texts, std::vector<CAddressRange>& ranges) {
  for (const std::string& text : texts) {
    const std::string wrong = CAddressRange::Parse(text, ranges.emplace_back());
    if (wrong.empty()) continue;
    std::string message = text;
    throw CLI::ValidationError("--allow", message.append(": ").append(wrong));
  }
}

void AddVerifyOptions(CLI::App& app, SVerifyOptions& options) {
  CLI::Option* const verify =
      app.add_flag("--verify", options.m_bVerify,
                   "serve nobody: compare the projects on this disk with their inventories");
  CLI::Option* const projects =
      app.add_option("PROJECT", options.m_vecProjects, "with --verify: only these projects");
  CLI::Option* const all =
      app.add_flag("--all", options.m_bAll, "with --verify: all projects (default)");
  all->excludes(projects);
  CLI::Option* const json =
      app.add_flag("--json", options.m_bJson, "with --verify: one JSON object a line");
  CLI::Option* const note = app.add_flag(
      "--note", options.m_bNote, "with --verify: leave a note of damage for the next put to heal");
  for (CLI::Option* const option : {projects, all, json, note}) option->needs(verify);
  for (CLI::Option* const option : {verify, projects, all, json, note}) {
    option->configurable(false);
  }
}

void AddLimits(CLI::App& app, SServerOptions& options, STexts& texts) {
  app.add_option("--max-links-per-address", options.m_limits.m_nPerAddress,
                 "most connections from one address at a time; 0: no such limit")
      ->type_name("N")
      ->check(CLI::NonNegativeNumber);
  app.add_option("--max-new-links", texts.m_strNewLinks,
                 "most new connections from all addresses in a time, such as 20/s or 100/min")
      ->type_name("RATE");
  app.add_option("--min-free", options.m_llMinFree,
                 "uploads leave so much of the disk free, such as 20G")
      ->type_name("BYTES")
      ->transform(CLI::AsSizeValue(false))
      ->check(CLI::NonNegativeNumber);
}

void AddStatus(CLI::App& app, SServerOptions& options) {
  app.add_option("--status-dir", options.m_strStatusDirectory,
                 "directory for status.json and kqft.prom, which tell what goes on")
      ->type_name("DIR");
  app.add_option("--status-every", options.m_nStatusSeconds, "write them after so many seconds")
      ->type_name("SECONDS")
      ->check(CLI::Range(1, kMostStatusSeconds))
      ->capture_default_str();
}

void AddOptions(CLI::App& app, SServerOptions& options, STexts& texts) {
  app.add_option("--dir", options.m_strDirectory, "directory that holds the projects (required)")
      ->type_name("DIR");
  app.add_option("--port", options.m_nPort, "TCP port to listen on; 0 picks a free one")
      ->type_name("N")
      ->check(CLI::Range(0, int{std::numeric_limits<std::uint16_t>::max()}))
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
  app.add_option("--access-log", options.m_strAccessLog,
                 "one JSON object a line of what clients do; \"-\": to the output stream")
      ->type_name("FILE");
  app.add_option("--log-keep", options.m_nLogDays,
                 "remove log files after so many days; 0 keeps them")
      ->type_name("DAYS")
      ->check(CLI::Range(0, kMostLogDays))
      ->capture_default_str();
  app.add_option("--allow", texts.m_vecAllowed,
                 "only peers with such an address may connect; repeat it for more ranges")
      ->type_name("CIDR")
      ->expected(1)
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
  app.add_flag("--no-delete", options.m_bNoDelete, "delete no project, whoever asks for it");
  app.add_flag("--durable,!--no-durable", options.m_bDurable,
               "confirm a file only once it lies on the disk (default), or do not wait for it");
  app.add_flag("--shared", options.m_bShared,
               "serve the directory though another server of this machine does, too");
  app.add_flag("--no-confine", options.m_bNoConfine,
               "leave the process free to reach more than the two directories");
  AddStatus(app, options);
  AddLimits(app, options, texts);
  AddVerifyOptions(app, options.m_verify);
  app.add_option("--config", texts.m_strConfigFile, "read options from a file")
      ->type_name("FILE")
      ->configurable(false);
  app.set_version_flag("--version", "kqft-server " KQFT_VERSION)->configurable(false);
  app.get_help_ptr()->configurable(false);
}

}  // namespace

bool ParseServerOptions(int argc, char** argv, SServerOptions& options, int& status) {
  CLI::App app(kServerDescription, "kqft-server");
  app.allow_windows_style_options(false);  // "/a" is a path everywhere
  app.footer(std::string(kServerFooter) + ServiceUsage());
  app.failure_message([](const CLI::App*, const CLI::Error& error) {
    return std::string("kqft-server: ") + error.what() + "\nTry \"kqft-server --help\".\n";
  });
  STexts texts;
  AddOptions(app, options, texts);
  try {
    app.parse(argc, argv);
    if (!texts.m_strConfigFile.empty()) ApplyConfigFile(app, texts.m_strConfigFile);
    TakeRate(texts.m_strNewLinks, options.m_limits);
    TakeRanges(texts.m_vecAllowed, options.m_vecAllowed);
    if (options.m_strDirectory.empty()) throw CLI::RequiredError("--dir");
  } catch (const CLI::ParseError& error) {
    status = app.exit(error) == 0 ? kExitDone : kExitUsage;
    return false;
  }
  return true;
}
