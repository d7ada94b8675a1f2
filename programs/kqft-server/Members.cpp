// What the access log and the status file tell in the same words.

#include "programs/kqft-server/Members.h"

#include <algorithm>

#include "net/NetWorkManageEx.h"
#include "protocol/ResultCodes.h"

namespace {

// A name may be as long as a packet. This is more than systems take.
constexpr std::size_t kLongestName = 1024;

void AppendDigits(std::string& text, std::int64_t value, int digits, char after) {
  std::int64_t scale = 1;
  while (--digits > 0) scale *= 10;
  for (; scale > 0; scale /= 10) text += static_cast<char>('0' + value / scale % 10);
  text += after;
}

const char* ResultWord(int result) {
  switch (result) {
    case RESULT_OK:
      return "done";
    case ERROR_CODE_STOP_SERVICE:
    case ERROR_CODE_SEND_STOPPED:
      return "cut_off";
    default:
      return "failed";
  }
}

}  // namespace

std::string TimeText(std::chrono::system_clock::time_point moment) {
  using namespace std::chrono;
  const auto now = floor<milliseconds>(moment);
  const auto day = floor<days>(now);
  const year_month_day date(day);
  const hh_mm_ss time(now - day);
  std::string text;
  text.reserve(24);
  AppendDigits(text, static_cast<int>(date.year()), 4, '-');
  AppendDigits(text, static_cast<unsigned>(date.month()), 2, '-');
  AppendDigits(text, static_cast<unsigned>(date.day()), 2, 'T');
  AppendDigits(text, time.hours().count(), 2, ':');
  AppendDigits(text, time.minutes().count(), 2, ':');
  AppendDigits(text, time.seconds().count(), 2, '.');
  AppendDigits(text, time.subseconds().count(), 3, 'Z');
  return text;
}

void AddAddress(CJsonObject& object, const STransferFacts& facts) {
  object.Text("address",
              CNetWorkManageEx::TransIP(facts.m_nIP) + ":" + std::to_string(facts.m_nPort));
}

void AddName(CJsonObject& object, const char* key, const std::string& name) {
  object.Name(key, name.substr(0, kLongestName));
  if (name.size() > kLongestName) {
    object.Number(std::string(key) + "_bytes", static_cast<std::int64_t>(name.size()));
  }
}

std::string WithSlashes(std::string path) {
  std::replace(path.begin(), path.end(), '\\', '/');
  return path;
}

void AddPath(CJsonObject& object, const std::string& directory, const std::string& path) {
  const std::string name = WithSlashes(path);
  const std::size_t end =
      name.starts_with(directory) ? name.find('/', directory.size()) : std::string::npos;
  if (end == std::string::npos) return AddName(object, "name", path);
  AddName(object, "project", name.substr(directory.size(), end - directory.size()));
  AddName(object, "name", name.substr(end + 1));
}

void AddResult(CJsonObject& object, int result) {
  object.Text("result", ResultWord(result))
      .Number("code", result)
      .Text("code_name", ResultName(result));
}
