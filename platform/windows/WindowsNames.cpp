// Which names Windows takes, and how it compares them.

#include <windows.h>

#include <algorithm>

#include "platform/LocalNames.h"
#include "platform/PathBytes.h"
#include "platform/UserDirectories.h"
#include "platform/windows/WindowsPath.h"

namespace {

constexpr std::string_view kNeverInNames = "<>:\"|?*/\\";

char UpperLetter(char c) {
  return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
}

// A digit as devices are numbered, the superscripts among them; 0 bytes when
// the text does not begin with one.
std::size_t DeviceDigitBytes(std::string_view text) {
  if (text.empty()) return 0;
  if (text[0] >= '0' && text[0] <= '9') return 1;
  for (const std::string_view raised : {"\xC2\xB9", "\xC2\xB2", "\xC2\xB3"}) {
    if (text.substr(0, raised.size()) == raised) return raised.size();
  }
  return 0;
}

// Windows gives these names to devices in every directory, also when blanks or
// an extension follow.
bool IsDevice(std::string_view name) {
  std::string stem(name.substr(0, name.find('.')));
  while (!stem.empty() && stem.back() == ' ') stem.pop_back();
  std::transform(stem.begin(), stem.end(), stem.begin(), UpperLetter);
  for (const char* const device : {"CON", "PRN", "AUX", "NUL", "CONIN$", "CONOUT$", "CLOCK$"}) {
    if (stem == device) return true;
  }
  const std::string_view kind = std::string_view(stem).substr(0, 3);
  if (kind != "COM" && kind != "LPT") return false;
  const std::string_view number = std::string_view(stem).substr(3);
  return !number.empty() && DeviceDigitBytes(number) == number.size();
}

}  // namespace

std::string WhyNoLocalName(std::string_view name) {
  for (const char c : name) {
    if (static_cast<unsigned char>(c) < 0x20) return "Windows takes no control characters in names";
    if (kNeverInNames.find(c) != std::string_view::npos) {
      return std::string("Windows takes no \"") + c + "\" in names";
    }
  }
  if (!name.empty() && (name.back() == '.' || name.back() == ' ')) {
    return "Windows takes no dot or blank at the end of a name";
  }
  if (IsDevice(name)) return "Windows has a device of this name";
  std::wstring wide;
  if (!ToWide(std::string(name), wide)) return "the name is not UTF-8";
  return "";
}

std::string FoldLocalName(const std::string& name) {
  std::wstring wide;
  if (name.empty() || !ToWide(name, wide)) return name;
  std::wstring folded(wide.size(), L'\0');
  const int size = static_cast<int>(wide.size());
  if (LCMapStringEx(LOCALE_NAME_INVARIANT, LCMAP_UPPERCASE, wide.data(), size, folded.data(), size,
                    nullptr, nullptr, 0) != size) {
    return name;
  }
  return ToUtf8(folded);
}

std::string EnvironmentWord(const char* name) {
  std::wstring wide;
  if (!ToWide(name, wide)) return "";
  std::wstring value(32768, L'\0');  // no word of an environment is longer
  const DWORD length =
      GetEnvironmentVariableW(wide.c_str(), value.data(), static_cast<DWORD>(value.size()));
  value.resize(length < value.size() ? length : 0);
  return ToUtf8(value);
}

std::filesystem::path PathOf(const std::string& bytes) {
  const int size = static_cast<int>(bytes.size());
  const int length = MultiByteToWideChar(CP_UTF8, 0, bytes.data(), size, nullptr, 0);
  std::wstring wide(static_cast<std::size_t>(std::max(length, 0)), L'\0');
  MultiByteToWideChar(CP_UTF8, 0, bytes.data(), size, wide.data(), length);
  return wide;
}

std::string BytesOf(const std::filesystem::path& path) {
  return ToUtf8(path.wstring());
}
