// What happens while a command runs, as a person reads it.

#include "programs/kqft/ConsoleObserver.h"

#include "programs/kqft/Output.h"
#include "programs/kqft/Text.h"

CConsoleObserver::CConsoleObserver(COutput& output, const std::string& command)
    : m_output(output), m_strCommand(command), m_progress(output, command) {}

void CConsoleObserver::OnLeftOut(const SLeftOut& left) {
  if (left.m_bProblem) {
    m_output.Error(Printable(left.m_strPath + ": " + left.m_strWhy));
  } else {
    m_output.Notice("skipped " + Printable(left.m_strPath) + ": " + left.m_strWhy);
  }
}

void CConsoleObserver::OnProgress(const STransferProgress& progress) {
  m_progress.Show(progress);
}

void CConsoleObserver::OnWaiting(const std::string& why) {
  m_output.Notice(Printable(why));
  if (m_output.IsQuiet()) return;
  m_output.Json(CJsonObject("waiting").Name("message", why).Text("command", m_strCommand));
}

void CConsoleObserver::OnReconnecting() {
  m_output.Notice("connecting again");
}

void CConsoleObserver::OnNotConnected(int, const std::string& why) {
  m_output.Notice(why);
}

void CConsoleObserver::OnRetrying(std::size_t files, int pauseMs, const std::string& why) {
  const std::string left = files == 0 ? "" : FormatFiles(files) + " left, ";
  m_output.Notice(left + "trying again in " + std::to_string(pauseMs / 1000) +
                  " s: " + Printable(why));
}
