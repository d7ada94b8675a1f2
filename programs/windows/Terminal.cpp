// The standard streams as consoles.

#include "programs/Terminal.h"

#include <windows.h>

namespace {

HANDLE HandleOf(EStream stream) {
  switch (stream) {
    case EStream::kInput:
      return GetStdHandle(STD_INPUT_HANDLE);
    case EStream::kOutput:
      return GetStdHandle(STD_OUTPUT_HANDLE);
    case EStream::kError:
      return GetStdHandle(STD_ERROR_HANDLE);
  }
  return INVALID_HANDLE_VALUE;
}

}  // namespace

// A console that takes no sequences is none that a line can be redrawn on.
bool IsTerminal(EStream stream) {
  DWORD mode = 0;
  HANDLE const handle = HandleOf(stream);
  if (GetConsoleMode(handle, &mode) == 0) return false;
  return stream == EStream::kInput ||
         SetConsoleMode(handle,
                        mode | ENABLE_PROCESSED_OUTPUT | ENABLE_VIRTUAL_TERMINAL_PROCESSING) != 0;
}

int TerminalWidth() {
  constexpr int kUsualColumns = 80;
  CONSOLE_SCREEN_BUFFER_INFO info = {};
  if (GetConsoleScreenBufferInfo(HandleOf(EStream::kOutput), &info) == 0) return kUsualColumns;
  return info.srWindow.Right - info.srWindow.Left + 1;
}
