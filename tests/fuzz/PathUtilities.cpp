// Paths and names: taking them apart loses nothing, and what is called safe
// stays where it belongs.
//
// Input: a separator and a text, then the path.

#include "Fuzz.h"
#include "platform/ExpertUtils.h"
#include "platform/GBKUTF8Transfer.h"
#include "protocol/MeasurementFiles.h"
#include "transfer/Names.h"

namespace {

using EU::CExpertUtils;

void CheckPieces(const std::string& path, const std::string& separator) {
  std::list<std::string> pieces;
  const int count = CExpertUtils::BreakString(path, pieces, separator);
  Require(static_cast<std::size_t>(count) == pieces.size());
  std::string joined;
  for (const std::string& piece : pieces)
    joined += (&piece == &pieces.front() ? "" : separator) + piece;
  Require(joined == path);
}

void CheckParts(const std::string& path) {
  const std::string directory = CExpertUtils::PickDirectory(path);
  const std::string name = CExpertUtils::PickFileName(path);
  Require(path.compare(0, directory.size(), directory) == 0);
  Require(name.find_first_of("\\/") == std::string::npos);
  const std::string extension = CExpertUtils::PickFileExt(path);
  const std::string stem = CExpertUtils::EreaseFileExt(name);
  Require(stem == name || stem + "." + extension == name);
  for (int level = 1; level < 5; ++level) {
    const std::string above = CExpertUtils::PickDirectory(path, level);
    Require(path.compare(0, above.size(), above) == 0);
  }
  Require(GBKUTF8Transfer::StringToWString(path).size() <= path.size());
}

// Names as kqft exchanges them with a server.
void CheckNames(const std::string& name) {
  std::string why;
  const std::vector<std::string> parts = SplitSafely(name, why);
  Require(parts.empty() == !why.empty());
  std::string same = name;
  std::replace(same.begin(), same.end(), '/', '\\');
  Require(parts.empty() || JoinForServer(parts) == same);
  for (const std::string& part : parts) {
    Require(!part.empty() && part != ".." && part.find_first_of("\\/") == std::string::npos);
    Require(part.size() > 255 || PartName(part, 1LL << 62).size() <= 255);
  }
  if (WhyNoProject(name).empty()) Require(parts.size() <= 1);
  if (IsMeasurementFile(name)) {
    Require(IsMeasurementFile(SegmentName(name, 3)));
    Require(CExpertUtils::PickDirectory(SegmentName(name, 3)) == CExpertUtils::PickDirectory(name));
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  CFuzzInput input(data, size);
  const std::string separator = input.Take(input.TakeByte() % 3);
  const std::string text = input.TakeText();
  std::string path = input.Rest();
  CheckPieces(path, separator);
  CheckParts(path);
  CheckNames(path);

  CJail jail;
  const std::string target = jail.Root() + path;
  SFileStatus status;
  if (CExpertUtils::CreateAllDir(target) == 1) {
    const std::string directory = CExpertUtils::PickDirectory(target);
    Require(System().QueryFile(directory, status) == ESystemError::kNone && status.m_bDirectory);
  }
  if (!separator.empty()) {
    CExpertUtils::RelaceString(path, separator, "");
    CExpertUtils::RelaceString(path, text, separator);
  }
  return 0;
}
