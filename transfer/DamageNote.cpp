// The damage note: read as warily as an inventory, since it lies beside it.

#include "transfer/DamageNote.h"

#include <filesystem>
#include <fstream>

#include "platform/PathBytes.h"
#include "transfer/ProjectPath.h"
#include "transfer/SealedText.h"

namespace {

constexpr std::string_view kDamageTitle = "# kqft.damaged 1";

std::string NoteText(const CDamageNote::Files& files, bool withBlocks) {
  std::string text = std::string(kDamageTitle) + "\n";
  for (const auto& [path, blocks] : files) {
    text += EscapeName(path);
    if (withBlocks) {
      for (const std::int64_t block : blocks) text += " " + std::to_string(block);
    }
    text += "\n";
  }
  return text;
}

}  // namespace

std::string CDamageNote::Set(const std::string& path, const std::vector<std::int64_t>& blocks) {
  if (std::string why = WhyNoPath(path); !why.empty()) return why;
  for (std::size_t i = 0; i < blocks.size(); ++i) {
    if (blocks[i] < 0 || (i > 0 && blocks[i] <= blocks[i - 1])) return "the blocks do not rise";
  }
  m_mapFiles[path] = blocks;
  return "";
}

std::string CDamageNote::Text() const {
  const std::string text = Seal(NoteText(m_mapFiles, true));
  return text.size() <= kMostDamageBytes ? text : Seal(NoteText(m_mapFiles, false));
}

std::string CDamageNote::Parse(std::string_view text) {
  m_mapFiles.clear();
  CDamageNote note;
  if (text.size() > kMostDamageBytes) return "it is too long";
  if (!Unseal(text)) return "it is torn or was changed";
  if (TakeUpTo(text, '\n') != kDamageTitle) return "its head is none that is known";
  while (!text.empty()) {
    std::string_view line = TakeUpTo(text, '\n');
    std::string path;
    if (!UnescapeName(TakeUpTo(line, ' '), path)) return "it has a line that means nothing";
    if (note.m_mapFiles.count(path) > 0) return "it names a file twice";
    std::vector<std::int64_t> blocks;
    while (!line.empty()) {
      if (!ParseNumber(TakeUpTo(line, ' '), blocks.emplace_back())) {
        return "it has a line that means nothing";
      }
    }
    if (std::string why = note.Set(path, blocks); !why.empty()) return why;
  }
  *this = std::move(note);
  return "";
}

std::string LeaveDamageNote(const std::string& directory, const CDamageNote& note) {
  const std::filesystem::path path = PathOf(directory) / kDamageNoteName;
  if (note.GetFiles().empty()) {
    std::error_code error;
    std::filesystem::remove(path, error);
    return error ? error.message() : "";
  }
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file << note.Text();
  file.close();
  return file ? "" : "cannot write " + BytesOf(path);
}
