// Configuration files of both programs, read after the command line so that
// the command line and the environment win.

#include "programs/ConfigFile.h"

#include <CLI/CLI.hpp>

void ApplyConfigFile(CLI::App& app, const std::string& path) {
  CLI::ConfigTOML format;
  for (const CLI::ConfigItem& item : format.from_file(path)) {
    CLI::Option* option =
        item.parents.empty() ? app.get_option_no_throw("--" + item.name) : nullptr;
    if (option == nullptr || !option->get_configurable()) {
      throw CLI::ConfigError(path + ": unknown setting " + item.fullname());
    }
    if (option->count() > 0) continue;
    if (option->get_expected_min() == 0) {
      option->add_result(option->get_flag_value(item.name, format.to_flag(item)));
    } else {
      option->add_result(item.inputs);
    }
    option->run_callback();
  }
}
