// Configuration files of both programs, read after the command line so that
// the command line and the environment win.

#include "programs/ConfigFile.h"

#include <CLI/CLI.hpp>
#include <set>

void ApplyConfigFile(CLI::App& app, const std::string& path) {
  CLI::ConfigTOML format;
  std::set<const CLI::Option*> inFile;  // a key may come again where an option may
  for (const CLI::ConfigItem& item : format.from_file(path)) {
    CLI::Option* option =
        item.parents.empty() ? app.get_option_no_throw("--" + item.name) : nullptr;
    if (option == nullptr || !option->get_configurable()) {
      throw CLI::ConfigError(path + ": unknown setting " + item.fullname());
    }
    if (option->count() > 0 && inFile.count(option) == 0) continue;
    inFile.insert(option);
    if (option->get_expected_min() == 0) {
      option->add_result(option->get_flag_value(item.name, format.to_flag(item)));
    } else {
      option->add_result(item.inputs);
    }
    option->run_callback();
  }
}
