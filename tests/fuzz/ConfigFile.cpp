// Configuration files: unchanged lines stay, set values are read back, and a
// program's file is taken or refused, nothing else.
//
// Input: section, key and value to set, then the file.

#include "Fuzz.h"
#include "platform/FileConfig.h"

#include <CLI/CLI.hpp>

#include "programs/ConfigFile.h"

namespace {

void CheckProgramFile(const std::string& path) {
  CLI::App app;
  std::string text;
  int number = 0;
  bool flag = false;
  app.add_option("--dir", text);
  app.add_option("--port", number)->check(CLI::Range(0, 65535));
  app.add_flag("--json", flag);
  try {
    ApplyConfigFile(app, path);
    Require(number >= 0 && number <= 65535);
  } catch (const CLI::ParseError&) {  // refused, with a reason
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const CTempDirectory directory;
  const std::string path = directory / "file";
  CFuzzInput input(data, size);
  const std::string section = input.TakeText();
  const std::string key = input.TakeText();
  const std::string value = input.TakeText();
  const std::string content = input.Rest();
  WriteWholeFile(path, content);
  CheckProgramFile(path);

  QFileConfig config;
  config.SetFileName(path);
  Require(config.ReadConfig() && config.UpdateFile(true) && ReadWholeFile(path) == content);

  std::string before;
  const int known = config.ReadString(section, key, before, true);
  config.WriteString(section, key, value, "", true);
  std::string set;
  const int taken = config.ReadString(section, key, set, true);
  Require(taken >= known && config.UpdateFile(true));
  std::string again;
  QFileConfig second;
  second.SetFileName(path);
  Require(second.ReadConfig());
  // A name that would be a comment, a heading or another name is not found again.
  const bool plain = section.find_first_of("]\r\n") == std::string::npos &&
                     key.find_first_of("=\r\n") == std::string::npos &&
                     key.find_first_of(";#[") != key.find_first_not_of(" \t");
  if (taken == 1 && plain)
    Require(second.ReadString(section, key, again, true) == 1 && again == set);
  return 0;
}
