// Verdicts as text and as JSON objects.

#include "programs/Verdicts.h"

#include <algorithm>

#include "programs/kqft/Output.h"
#include "programs/kqft/Text.h"
#include "transfer/Digest.h"

namespace {

constexpr std::size_t kMostBlocksSaid = 16;

std::string BlocksText(const std::vector<std::int64_t>& blocks) {
  std::string text = std::to_string(blocks.size()) + " of its blocks of 4 MiB differ:";
  for (std::size_t i = 0; i < std::min(blocks.size(), kMostBlocksSaid); ++i) {
    text += " " + std::to_string(blocks[i]);
  }
  return blocks.size() > kMostBlocksSaid ? text + " ..." : text;
}

}  // namespace

void SayVerdict(COutput& output, const std::string& project, const SFileVerdict& file) {
  CJsonObject object("file");
  object.Name("project", project)
      .Name("name", file.m_strPath)
      .Text("verdict", VerdictName(file.m_eVerdict))
      .Number("size", file.m_llSize);
  std::vector<CJsonObject> blocks;
  for (const std::int64_t block : file.m_vecBlocks) {
    blocks.push_back(
        CJsonObject().Number("index", block).Number("position", block * kDigestBlockBytes));
  }
  if (!blocks.empty()) object.List("blocks", blocks);
  if (!file.m_strWhy.empty()) object.Text("message", file.m_strWhy);
  output.Json(object);
  if (output.IsJson() || file.m_eVerdict == EVerdict::kSame) return;
  std::string line =
      std::string(VerdictName(file.m_eVerdict)) + "\t" + Printable(project + "/" + file.m_strPath);
  if (!file.m_strWhy.empty()) line += ": " + Printable(file.m_strWhy);
  if (!file.m_vecBlocks.empty()) line += ": " + BlocksText(file.m_vecBlocks);
  output.Say(line);
}

void SayVerdicts(COutput& output, const std::string& project, const VerdictCounts& counts,
                 bool counted, bool same, const std::string& why) {
  CJsonObject object("project");
  object.Name("project", project)
      .Text("verdict", same ? "same" : (why.empty() ? "changed" : "unknown"));
  std::string line = Printable(project) + ":";
  for (std::size_t i = 0; i < kVerdicts; ++i) {
    const auto count = static_cast<std::int64_t>(counts[i]);
    const char* const name = VerdictName(static_cast<EVerdict>(i));
    object.Number(name, count);
    if (counted && (count > 0 || i == 0)) {
      line += (i == 0 ? " " : ", ") + std::to_string(count) + " " + name;
    }
  }
  if (!why.empty()) {
    object.Text("message", why);
    line += counted ? "; " + Printable(why) : " unknown: " + why;
  }
  output.Json(object);
  if (!output.IsJson()) output.Say(line);
}
