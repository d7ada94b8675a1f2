// The standard streams by file descriptor.

#include "programs/Terminal.h"

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
