#pragma once

#include <mutex>
#include <string>

#include "programs/kqft/JsonObject.h"

/// Everything that kqft says. Results go to the output stream and messages to
/// the error stream; with --json the output stream carries JSON objects only,
/// and all text goes to the error stream.
///
/// Threads: every operation from any thread.
class COutput {
 public:
  COutput(bool json, bool quiet);

  bool IsJson() const { return m_bJson; }
  bool IsQuiet() const { return m_bQuiet; }

  /// True when a person watches the text as it comes.
  bool IsLive() const { return m_bLive; }

  /// A line of a result that was asked for.
  void Say(const std::string& text);

  /// A line about what was done; --quiet leaves it out.
  void Tell(const std::string& text);

  /// A message, after the program's name; --quiet leaves it out.
  void Notice(const std::string& text);

  /// What somebody has asked for just now, whatever the options say.
  void Reply(const std::string& text);

  /// Something failed.
  /// @param code result of the library; 0 when it was none of its
  /// @param name the file or project that it is about; "" for none
  void Error(const std::string& text, int code = 0, const std::string& name = "");

  /// Nothing without --json.
  void Json(const CJsonObject& object);

  /// Replaces the line that is redrawn; "" takes it away. Other lines appear
  /// above it. Nothing unless IsLive.
  void Live(const std::string& text);

 private:
  void Print(bool errorStream, const std::string& line);

  const bool m_bJson;
  const bool m_bQuiet;
  const bool m_bLive;
  std::mutex m_mutex;
  std::string m_strLive;  // guarded by m_mutex; what the terminal shows of it
};
