#pragma once

#include <string>

#include "net/TransferFacts.h"
#include "programs/kqft-server/LineLog.h"
#include "programs/kqft-server/Traffic.h"

class CJsonObject;

/// Who did what at a server, one JSON object a line; docs/json.md describes
/// them. Never the content of a file.
///
/// Threads: every operation from any thread.
class CAccessLog {
 public:
  /// @param path      of the log; "-": the output stream
  /// @param directory of the projects, as the server has it
  CAccessLog(const std::string& path, const std::string& directory);

  CLineLog& Lines() { return m_lines; }

  void Connected(const STransferFacts& link);
  void Disconnected(const STransferFacts& link, const SLinkTotals& totals);

  /// @param event "upload" or "download"
  void Transferred(const char* event, const STransferFacts& file);

  /// Every link of these and what it was at, as the server's end finds them.
  void CutOff(CTraffic& traffic);

  /// @param event "list_projects" or "list_files"
  void Listed(const char* event, const STransferFacts& project);
  void Deleted(const STransferFacts& project);
  void Refused(const STransferFacts& what, ERefusal refusal);

 private:
  void Write(const CJsonObject& object) { m_lines.Add(ToText(object)); }
  static std::string ToText(const CJsonObject& object);

  const std::string m_strDirectory;  // "/" separating
  CLineLog m_lines;
};

/// What was refused, and why, as single words.
const char* RefusedThing(ERefusal refusal);
const char* RefusalReason(ERefusal refusal);
