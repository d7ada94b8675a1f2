#pragma once

#include "programs/kqft/Options.h"

class COutput;
class CSession;

/// The commands of kqft. Each gets a session that is open and returns the
/// exit status.

int CommandDir(CSession& session, COutput& output);
int CommandLs(CSession& session, COutput& output);
int CommandFiles(CSession& session, COutput& output, const SOptions& options);
int CommandPut(CSession& session, COutput& output, const SOptions& options);
int CommandGet(CSession& session, COutput& output, const SOptions& options);
int CommandRm(CSession& session, COutput& output, const SOptions& options);

/// Why a put or get makes no sense; "" when it does.
std::string WhyNoPut(const SOptions& options);
std::string WhyNoGet(const SOptions& options);

/// Reports a question that got no answer. @return kExitFailed
int FailQuestion(COutput& output, int result);

/// Name of a listed file below its project.
/// @param projectPath how the server spells the project's directory
std::string NameBelowProject(const Channel_Key_Value& file, const std::string& projectPath);
