// Names of measurement files, their segments and their side files.

#include "protocol/MeasurementFiles.h"

#include <algorithm>
#include <array>

#include "platform/ExpertUtils.h"

namespace {

using EU::CExpertUtils;

// Stands between a name and the number of its segment.
constexpr char kSegmentMark = '(';

std::string LowerExtension(const std::string& path) {
  std::string extension = CExpertUtils::PickFileExt(path);
  return CExpertUtils::ToLower(extension);
}

std::string WithoutExtension(const std::string& path) {
  return CExpertUtils::PickDirectory(path) +
         CExpertUtils::EreaseFileExt(CExpertUtils::PickFileName(path));
}

}  // namespace

bool IsMeasurementFile(const std::string& path) {
  static constexpr std::array kExtensions = {"tm",  "can",       "gps", "rs422",
                                             "out", "vibstrain", "jump"};
  return std::find(kExtensions.begin(), kExtensions.end(), LowerExtension(path)) !=
         kExtensions.end();
}

std::string SegmentName(const std::string& name, std::size_t segment) {
  if (segment == 0) return name;
  return WithoutExtension(name) + kSegmentMark + std::to_string(segment) + ")." +
         LowerExtension(name);
}

std::string SideFileName(const std::string& name, const char* extension) {
  return WithoutExtension(name) + extension;
}

bool IsSideFile(const std::string& path) {
  const std::string extension = "." + LowerExtension(path);
  return extension == kRangesExtension || extension == kSegmentsExtension;
}

bool IsSideFileOf(const std::string& sideFile, const std::string& recording) {
  const std::string stem = WithoutExtension(sideFile);
  return IsMeasurementFile(recording) && recording.compare(0, stem.size(), stem) == 0 &&
         (recording[stem.size()] == '.' || recording[stem.size()] == kSegmentMark);
}
