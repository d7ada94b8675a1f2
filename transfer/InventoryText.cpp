// The inventory as text. Whoever can write to the server can write this, so
// whatever is not exactly as it should be is refused.

#include <chrono>
#include <cstdio>

#include "transfer/Inventory.h"
#include "transfer/SealedText.h"

namespace {

using std::chrono::sys_days;
using std::chrono::sys_seconds;

constexpr std::string_view kTitle = "# kqft.inventory 1";
constexpr std::string_view kFile = "# file ";
constexpr std::string_view kBlocks = "# blocks";
const std::string kNoTime = "-";
constexpr std::size_t kBlocksInLine = 16;  // readers take lines of 32 KiB at most
constexpr std::size_t kLongestWord = 1024;
constexpr std::int64_t kHighestGeneration = 1LL << 62;
constexpr int kTimeParts = 6;

bool ParseTime(std::string_view text, std::int64_t& time) {
  const std::string_view whole = text;
  std::int64_t part[kTimeParts] = {};
  for (int i = 0; i < kTimeParts; ++i) {
    if (!ParseNumber(TakeUpTo(text, "--T::Z"[i]), part[i])) return false;
    if (part[i] > 9999) return false;
  }
  const std::chrono::year_month_day date(std::chrono::year(static_cast<int>(part[0])),
                                         std::chrono::month(static_cast<unsigned>(part[1])),
                                         std::chrono::day(static_cast<unsigned>(part[2])));
  if (!date.ok()) return false;
  time = sys_seconds(sys_days(date)).time_since_epoch().count() + 3600 * part[3] + 60 * part[4] +
         part[5];
  return InventoryTime(time) == whole;  // refuses what is no such day or hour
}

std::string HeadText(const SInventoryHead& head) {
  return std::string(kTitle) + "\n# generation " + std::to_string(head.m_llGeneration) +
         "\n# state " + (head.m_bComplete ? "complete" : "planned") + "\n# run " +
         EscapeName(head.m_strRun) + "\n# by " + EscapeName(head.m_strBy) + "\n# at " +
         InventoryTime(head.m_llAlive) + "\n";
}

std::string EntryText(const std::string& path, const SInventoryEntry& entry) {
  const bool byItself = !entry.m_bDigest || path.find('\n') != std::string::npos;
  char mode[16];
  std::snprintf(mode, sizeof mode, "%o", entry.m_facts.m_nMode);
  std::string text = std::string(kFile) + std::to_string(entry.m_facts.m_llSize) + " " +
                     (entry.m_bMixed ? kNoTime : std::to_string(entry.m_facts.m_llTime)) + " " +
                     mode;
  const std::string digest = entry.m_bDigest ? DigestText(entry.m_digest.m_whole) : "";
  if (byItself) text += " " + EscapeName(path) + (digest.empty() ? "" : " ") + digest;
  for (std::size_t i = 0; i < entry.m_digest.m_vecBlocks.size(); ++i) {
    if (i % kBlocksInLine == 0) text.append("\n").append(kBlocks);
    text += " " + DigestText(entry.m_digest.m_vecBlocks[i]);
  }
  return text + (byItself ? "\n" : "\n" + digest + "  " + path + "\n");
}

bool ParseWord(std::string_view& text, std::string_view key, std::string& word) {
  std::string_view line = TakeUpTo(text, '\n');
  return TakeFront(line, key) && UnescapeName(line, word) && word.size() <= kLongestWord;
}

bool ParseHead(std::string_view& text, SInventoryHead& head) {
  std::string generation, state, time;
  if (TakeUpTo(text, '\n') != kTitle || !ParseWord(text, "# generation ", generation)) return false;
  if (!ParseWord(text, "# state ", state) || !ParseWord(text, "# run ", head.m_strRun))
    return false;
  if (!ParseWord(text, "# by ", head.m_strBy) || !ParseWord(text, "# at ", time)) return false;
  head.m_bComplete = state == "complete";
  if (!head.m_bComplete && state != "planned") return false;
  if (!ParseNumber(generation, head.m_llGeneration)) return false;
  return head.m_llGeneration < kHighestGeneration && ParseTime(time, head.m_llAlive);
}

bool ParseBlocks(std::string_view& text, SFileDigest& digest) {
  while (TakeFront(text, kBlocks)) {
    for (std::string_view line = TakeUpTo(text, '\n'); !line.empty();) {
      SDigest& block = digest.m_vecBlocks.emplace_back();
      if (!TakeFront(line, " ") || !ParseDigest(line.substr(0, 32), block)) return false;
      line.remove_prefix(32);
    }
  }
  return true;
}

// One file with all its lines.
bool ParseEntry(std::string_view& text, std::string& path, SInventoryEntry& entry) {
  std::string_view line = TakeUpTo(text, '\n');
  if (!TakeFront(line, kFile)) return false;
  std::int64_t mode = 0;
  if (!ParseNumber(TakeUpTo(line, ' '), entry.m_facts.m_llSize)) return false;
  const std::string_view time = TakeUpTo(line, ' ');
  entry.m_bMixed = time == kNoTime;
  if (!entry.m_bMixed && !ParseNumber(time, entry.m_facts.m_llTime, 10, true)) return false;
  if (!ParseNumber(TakeUpTo(line, ' '), mode, 8) || mode > 0777) return false;
  entry.m_facts.m_nMode = static_cast<unsigned>(mode);
  const bool byItself = !line.empty();
  if (byItself && !UnescapeName(TakeUpTo(line, ' '), path)) return false;
  entry.m_bDigest = !line.empty();
  if (entry.m_bDigest && !ParseDigest(line, entry.m_digest.m_whole)) return false;
  if (!ParseBlocks(text, entry.m_digest) || byItself) return byItself;
  line = TakeUpTo(text, '\n');
  entry.m_bDigest = ParseDigest(TakeUpTo(line, ' '), entry.m_digest.m_whole);
  if (!entry.m_bDigest || !TakeFront(line, " ")) return false;
  path = line;
  return true;
}

}  // namespace

std::string InventoryTime(std::int64_t seconds) {
  const sys_seconds moment{std::chrono::seconds(seconds)};
  const sys_days day = std::chrono::floor<std::chrono::days>(moment);
  const std::chrono::year_month_day date(day);
  const std::chrono::hh_mm_ss clock(moment - day);
  char text[64];
  std::snprintf(text, sizeof text, "%04d-%02u-%02uT%02d:%02d:%02dZ", static_cast<int>(date.year()),
                static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()),
                static_cast<int>(clock.hours().count()), static_cast<int>(clock.minutes().count()),
                static_cast<int>(clock.seconds().count()));
  return text;
}

std::string CInventory::Text() const {
  std::string text = HeadText(m_head);
  for (const auto& [path, entry] : m_mapFiles) text += EntryText(path, entry);
  return Seal(std::move(text));
}

std::string CInventory::Parse(std::string_view text) {
  *this = CInventory();
  CInventory inventory;
  if (text.size() > kMostInventoryBytes) return "it is too long";
  if (!Unseal(text)) return "it is torn or was changed";
  if (!ParseHead(text, inventory.m_head)) return "its head is none that is known";
  while (!text.empty()) {
    std::string path;
    SInventoryEntry entry;
    if (!ParseEntry(text, path, entry)) return "it has a line that means nothing";
    if (inventory.Find(path) != nullptr) return "it names a file twice";
    if (std::string why = inventory.Set(path, entry); !why.empty()) return why;
  }
  *this = std::move(inventory);
  return "";
}
