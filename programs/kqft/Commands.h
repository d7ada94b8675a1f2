#pragma once

#include <string>
#include <vector>

#include "programs/kqft/Options.h"

namespace CLI {
class App;
}

class COutput;
class CProjectClient;
struct SPutRequest;

/// One command of kqft: all that the rest of the program knows of it.
struct SCommand {
  const char* m_pName;
  const char* m_pHelp;
  bool m_bNeedsProject;  ///< takes the name of one, which is checked before anything is asked

  /// Adds what stands behind the command's name.
  void (*m_pAddOptions)(CLI::App& command, SOptions& options);

  /// What can be known to be wrong before the server is asked; "" when
  /// nothing.
  std::string (*m_pWhyNot)(const SOptions& options);

  /// Carries it out on a client that is connected. @return the exit status
  int (*m_pRun)(CProjectClient& client, COutput& output, const SOptions& options);
};

/// In the order in which --help shows them.
const std::vector<SCommand>& Commands();

/// Throws std::logic_error for a name that is none of theirs.
const SCommand& FindCommand(const std::string& name);

// What the table consists of, where a command has a file of its own.
void AddPutOptions(CLI::App& command, SOptions& options);
std::string WhyNoPut(const SOptions& options);
int RunPut(CProjectClient& client, COutput& output, const SOptions& options);
void AddGetOptions(CLI::App& command, SOptions& options);
std::string WhyNoGet(const SOptions& options);
int RunGet(CProjectClient& client, COutput& output, const SOptions& options);
void AddVerifyOptions(CLI::App& command, SOptions& options);
std::string WhyNoVerify(const SOptions& options);
int RunVerify(CProjectClient& client, COutput& output, const SOptions& options);
void AddLsOptions(CLI::App& command, SOptions& options);
std::string WhyNoLs(const SOptions& options);
int RunLs(CProjectClient& client, COutput& output, const SOptions& options);
void AddFilesOptions(CLI::App& command, SOptions& options);
int RunFiles(CProjectClient& client, COutput& output, const SOptions& options);
void AddRmOptions(CLI::App& command, SOptions& options);
std::string WhyNoRm(const SOptions& options);
int RunRm(CProjectClient& client, COutput& output, const SOptions& options);

/// --exclude and its kin, for put, get and verify; --files-from for the first two.
void AddFilterOptions(CLI::App& command, SOptions& options, bool names);

/// Carries out put --watch, which makes its connections itself.
/// @return the exit status
std::string WhyNoWatch(const SOptions& options);
int RunWatch(COutput& output, const SOptions& options);

/// What a put is asked to do.
SPutRequest MakePutRequest(const SOptions& options);

/// Reports a question that got no answer. @return kExitFailed
int FailQuestion(COutput& output, int result);
