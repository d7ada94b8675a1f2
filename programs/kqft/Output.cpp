// Text and JSON to the standard streams.

#include "programs/kqft/Output.h"

#include <iostream>

#include "programs/Terminal.h"
#include "programs/kqft/Text.h"
#include "protocol/ResultCodes.h"

namespace {

const std::string kEraseLine = "\r\x1b[K";

}  // namespace

COutput::COutput(bool json, bool quiet)
    : m_bJson(json),
      m_bQuiet(quiet),
      m_bLive(!quiet && IsTerminal(json ? EStream::kError : EStream::kOutput)) {}

void COutput::Say(const std::string& text) {
  Print(m_bJson, text);
}

void COutput::Tell(const std::string& text) {
  if (!m_bQuiet) Print(m_bJson, text);
}

void COutput::Notice(const std::string& text) {
  if (!m_bQuiet) Print(true, "kqft: " + text);
}

void COutput::Reply(const std::string& text) {
  Print(true, "kqft: " + text);
}

void COutput::Error(const std::string& text, int code, const std::string& name) {
  std::string line = "kqft: ";
  if (!name.empty()) line += PrintableServerName(name) + ": ";
  Print(true, line + text);
  CJsonObject object("error");
  object.Text("message", text).Number("code", code).Text("code_name", ResultName(code));
  if (!name.empty()) object.Name("name", name);
  Json(object);
}

void COutput::Json(const CJsonObject& object) {
  if (m_bJson) Print(false, object.Line());
}

void COutput::Live(const std::string& text) {
  if (!m_bLive) return;
  const std::lock_guard guard(m_mutex);
  m_strLive = text;
  (m_bJson ? std::cerr : std::cout) << kEraseLine + text << std::flush;
}

void COutput::Print(bool errorStream, const std::string& line) {
  const std::lock_guard guard(m_mutex);
  std::ostream& live = m_bJson ? std::cerr : std::cout;
  if (!m_strLive.empty()) live << kEraseLine << std::flush;
  (errorStream ? std::cerr : std::cout) << line + "\n" << std::flush;
  if (!m_strLive.empty()) live << m_strLive << std::flush;
}
