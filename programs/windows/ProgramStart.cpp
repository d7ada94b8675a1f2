// Arguments and consoles of Windows, as UTF-8.

#include "programs/ProgramStart.h"

#include <windows.h>

#include <fcntl.h>
#include <io.h>
#include <shellapi.h>

#include <cstdio>
#include <string>
#include <vector>

#include "platform/windows/WindowsPath.h"
#include "programs/windows/Arguments.h"

std::vector<std::string> CommandLineArguments() {
  std::vector<std::string> arguments;
  int count = 0;
  wchar_t** const words = CommandLineToArgvW(GetCommandLineW(), &count);
  for (int i = 0; i < count && words != nullptr; ++i) arguments.push_back(ToUtf8(words[i]));
  LocalFree(words);
  return arguments;
}

int RunBody(std::vector<std::string> arguments, int (*body)(int argc, char** argv)) {
  std::vector<char*> words;
  for (std::string& argument : arguments) words.push_back(argument.data());
  words.push_back(nullptr);
  return body(static_cast<int>(arguments.size()), words.data());
}

int StartProgram(int, char**, int (*body)(int argc, char** argv)) {
  SetConsoleOutputCP(CP_UTF8);
  for (std::FILE* const stream : {stdout, stderr}) _setmode(_fileno(stream), _O_BINARY);
  return RunBody(CommandLineArguments(), body);
}
