// The standard streams by file descriptor.

#include "programs/Terminal.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

bool IsTerminal(EStream stream) {
  switch (stream) {
    case EStream::kInput:
      return isatty(STDIN_FILENO) == 1;
    case EStream::kOutput:
      return isatty(STDOUT_FILENO) == 1;
    case EStream::kError:
      return isatty(STDERR_FILENO) == 1;
  }
  return false;
}

int TerminalWidth() {
  constexpr int kUsualColumns = 80;
  winsize size = {};
  if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_col == 0) return kUsualColumns;
  return size.ws_col;
}

CErrorStreamMute::CErrorStreamMute() : m_nSaved(fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3)) {
  if (m_nSaved < 0) return;
  const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
  if (nowhere < 0) return;
  dup2(nowhere, STDERR_FILENO);
  close(nowhere);
}

CErrorStreamMute::~CErrorStreamMute() {
  if (m_nSaved < 0) return;
  dup2(m_nSaved, STDERR_FILENO);
  close(m_nSaved);
}
