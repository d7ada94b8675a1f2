#pragma once

#include <cstddef>
#include <string>

#include "KQFileTransServiceExport.h"

/// Names of measurement files, which the server keeps as a chain of segments,
/// and of the side files that tell of them. "\" and "/" both separate.

/// Side files lie beside a recording under its name. kRangesExtension: the
/// ranges that never arrived; kSegmentsExtension: where its segments begin.
constexpr char kRangesExtension[] = ".li";
constexpr char kSegmentsExtension[] = ".fi";

/// True for the kinds of files that the server can go on with.
KQFT_API bool IsMeasurementFile(const std::string& path);

/// The name of a measurement file's n-th segment: "data\Run1.TM", 2 gives
/// "data\Run1(2).tm"; segment 0 is the file itself.
KQFT_API std::string SegmentName(const std::string& name, std::size_t segment);

/// The side file of a recording.
KQFT_API std::string SideFileName(const std::string& name, const char* extension);

/// True for a side file of either kind.
KQFT_API bool IsSideFile(const std::string& path);

/// True for a side file and a recording, or a segment of one, that it tells of.
KQFT_API bool IsSideFileOf(const std::string& sideFile, const std::string& recording);
