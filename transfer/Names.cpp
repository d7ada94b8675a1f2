// Names: which are safe, and how one is made from another.

#include "transfer/Names.h"

#include <algorithm>

#include "platform/LocalNames.h"
#include "platform/TextHash.h"
#include "protocol/Messages.h"

namespace {

constexpr std::size_t kLongestFileName = 255;
constexpr std::size_t kKeptOfLongName = 180;

bool IsSeparator(char c) {
  return c == '\\' || c == '/';
}

// The first `limit` bytes, without a part of a UTF-8 character at the end.
std::string CutName(const std::string& name, std::size_t limit) {
  while (limit > 0 && (static_cast<unsigned char>(name[limit]) & 0xC0U) == 0x80U) --limit;
  return name.substr(0, limit);
}

}  // namespace

std::string WhyNoProject(const std::string& project) {
  if (project.empty()) return "the name is empty";
  if (project == "." || project == "..") return "the name stands for a directory";
  if (std::any_of(project.begin(), project.end(), IsSeparator)) {
    return "the name holds a separator";
  }
  if (project.find_first_of(std::string("\0\n", 2)) != std::string::npos) {
    return "the name holds a line end or a zero byte";
  }
  return "";
}

std::vector<std::string> SplitSafely(const std::string& name, std::string& why) {
  why.clear();
  std::vector<std::string> components(1);
  for (const char c : name) {
    if (IsSeparator(c)) {
      components.emplace_back();
    } else {
      components.back() += c;
    }
  }
  for (const std::string& component : components) {
    if (component.empty()) why = "the name has an empty part";
    if (component == "." || component == "..") why = "the name leads elsewhere";
    if (component.find('\0') != std::string::npos) why = "the name holds a zero byte";
    if (const std::string here = WhyNoLocalName(component); why.empty()) why = here;
  }
  const std::string& first = components.front();
  if (first.size() > 1 && first[1] == ':') why = "the name begins with a drive";
  if (!why.empty()) components.clear();
  return components;
}

std::string JoinForServer(const std::vector<std::string>& components) {
  std::string name;
  for (const std::string& component : components) name += (name.empty() ? "" : "\\") + component;
  return name;
}

std::string PartName(const std::string& fileName, std::int64_t wholeSize) {
  const std::string ending = "." + std::to_string(wholeSize) + ".part";
  if (fileName.size() + ending.size() <= kLongestFileName) return fileName + ending;
  return CutName(fileName, kKeptOfLongName) + "~" + std::to_string(TextHash(fileName)) + ending;
}

bool IsAskable(const std::string& name) {
  return name.find(kNameEnd) == std::string::npos;
}
