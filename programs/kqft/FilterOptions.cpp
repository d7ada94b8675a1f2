// --exclude, --include, --exclude-from, --include-from, --files-from.

#include <CLI/CLI.hpp>
#include <fstream>
#include <iostream>

#include "platform/PathBytes.h"
#include "programs/kqft/Commands.h"

namespace {

template <typename TakeLine>
void ReadLines(const std::string& path, const TakeLine& takeLine) {
  std::ifstream file;
  if (path != "-") file.open(PathOf(path), std::ios::binary);
  std::istream& in = path == "-" ? std::cin : file;
  for (std::string line; std::getline(in, line);) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    takeLine(line);
  }
  if (in.bad() || !in.eof()) throw CLI::ValidationError(path + ": cannot be read");
}

// The order counts, also among different options: each acts as it is read.
void AddRuleOption(CLI::App& command, const std::string& name, const std::string& help,
                   const char* type, const std::function<void(const std::string&)>& act) {
  command.add_option_function<std::string>(name, act, help)->type_name(type)->trigger_on_parse();
}

}  // namespace

void AddFilterOptions(CLI::App& command, SOptions& options, bool names) {
  CFilter& filter = options.m_filter;
  for (const bool include : {false, true}) {
    const std::string name = include ? "--include" : "--exclude";
    const auto add = [&filter, name, include](const std::string& rule) {
      const std::string why = filter.Add(rule, include);
      if (!why.empty()) throw CLI::ValidationError(name, why);
    };
    AddRuleOption(command, name,
                  include ? "move what matches in any case, as rsync reads patterns"
                          : "leave out what matches; the first rule that does decides",
                  "PATTERN", add);
    AddRuleOption(command, include ? "--include-from" : "--exclude-from",
                  "read patterns from a file, one a line; - for the input", "FILE",
                  [&filter, include](const std::string& path) {
                    ReadLines(path, [&](const std::string& line) {
                      const std::string why = filter.AddLine(line, include);
                      if (!why.empty()) throw CLI::ValidationError(path, why);
                    });
                  });
  }
  if (!names) return;
  AddRuleOption(command, "--files-from", "move only the files and directories that a file names",
                "FILE", [&options](const std::string& path) {
                  options.m_bNames = true;
                  ReadLines(path, [&](const std::string& line) {
                    const bool isName = !line.empty() && line.front() != '#' && line.front() != ';';
                    if (isName) options.m_vecNames.push_back(line);
                  });
                });
}
