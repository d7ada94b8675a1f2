// Recording: what the server lacks of a measurement file.
//
// The side files there name missing ranges and the segments that a recording
// was cut into. The library sends what they name without a look at what is
// there; a range that is sent behind the end of its file makes a hole in it,
// which no later run would see. So the program looks first.

#include "transfer/Recording.h"

#include <algorithm>

#include "protocol/MeasurementFiles.h"
#include "protocol/ResultCodes.h"
#include "transfer/Names.h"
#include "transfer/Sizes.h"

namespace {

using Positions = std::vector<std::int64_t>;

// A server may claim any number of segments; each costs a question.
constexpr std::size_t kMostSegments = 10000;

const char* const kSizesDoNotStay = "the server tells different sizes from one time to the next";
const char* const kServerHasMore = "the recording on the server is longer than this file";

std::int64_t BeginOf(std::size_t segment, const Positions& bounds) {
  return segment == 0 ? 0 : bounds[segment - 1];
}

// As the library chooses it.
std::size_t SegmentOf(std::int64_t position, const Positions& bounds) {
  const auto end = std::find_if(bounds.begin(), bounds.end(),
                                [position](std::int64_t bound) { return position < bound; });
  return static_cast<std::size_t>(end - bounds.begin());
}

bool AreSegmentsOf(const Positions& bounds, std::int64_t fileSize) {
  return bounds.empty() || (bounds.front() >= 0 && bounds.back() <= fileSize &&
                            std::is_sorted(bounds.begin(), bounds.end()));
}

// The server holds the file cut into segments: every range lies in its
// segment, and the older segments will be whole.
bool FitsSegments(const SLostInfo& lost, const Positions& held, std::int64_t size,
                  std::int64_t& missing) {
  const Positions& bounds = lost.m_vecBounds;
  if (held.size() != bounds.size() + 1 || !AreSegmentsOf(bounds, size)) return false;
  Positions ends = held;
  missing = 0;
  for (const FILEDATAPOS& range : lost.m_vecLost) {
    if (range.llLen < 1) continue;
    if (!IsInFile(range, size)) return false;
    const std::size_t segment = SegmentOf(range.llPos, bounds);
    const std::int64_t at = range.llPos - BeginOf(segment, bounds);
    if (at > held[segment]) return false;
    ends[segment] = std::max(ends[segment], at + range.llLen);
    missing = AddSizes(missing, range.llLen);
  }
  for (std::size_t i = 0; i < bounds.size(); ++i) {
    if (ends[i] != bounds[i] - BeginOf(i, bounds)) return false;
  }
  const std::int64_t rest = size - BeginOf(bounds.size(), bounds) - ends.back();
  missing = AddSizes(missing, rest);
  return rest >= 0;
}

// The server holds the file in one piece, under its own name. Ranges behind
// the end of this file are none of its.
bool FitsOneFile(const std::vector<FILEDATAPOS>& lost, std::int64_t held, std::int64_t size,
                 SRecording& recording) {
  std::string told;
  std::int64_t end = held;
  recording.m_llMissing = 0;
  for (const FILEDATAPOS& range : lost) {
    const bool isOurs = range.llLen >= 1 && range.llPos < size;
    if (isOurs && (!IsInFile(range, size) || range.llPos > held)) return false;
    if (isOurs) end = std::max(end, range.llPos + range.llLen);
    if (isOurs) recording.m_llMissing = AddSizes(recording.m_llMissing, range.llLen);
    told += (told.empty() ? "" : ",") + std::to_string(range.llPos) + "," +
            std::to_string(isOurs ? range.llLen : 0);
  }
  recording.m_llMissing = AddSizes(recording.m_llMissing, size - end);
  recording.m_answer.m_strTold = "0|" + told + "|";
  return true;
}

// Segments that are there and go beyond the end of a file that is more than
// the first of them: sending it whole would put it in the place of more.
bool IsPartOfMore(const Positions& bounds, const Positions& held, std::int64_t size) {
  return held.size() > 1 && held.front() == bounds.front() && size > held.front() &&
         bounds.back() >= 0 && held.back() > 0 && held.back() > size - bounds.back();
}

void Judge(const Positions& held, std::int64_t size, SRecording& recording) {
  recording.m_bWhole = false;
  recording.m_strWhy.clear();
  recording.m_answer.m_strTold = recording.m_answer.m_strSeen;
  if (FitsSegments(recording.m_lost, held, size, recording.m_llMissing)) return;
  recording.m_llMissing = size - held.front();
  recording.m_answer.m_strTold.clear();
  if (held.front() > size) return;  // the library refuses
  if (IsPartOfMore(recording.m_lost.m_vecBounds, held, size)) {
    recording.m_strWhy = kServerHasMore;
    return;
  }
  if (FitsOneFile(recording.m_lost.m_vecLost, held.front(), size, recording)) return;
  recording.m_bWhole = true;
  recording.m_answer.m_strTold.clear();
  recording.m_llMissing = size;
}

// Sizes of the segments and, last, of the side file. A name that the question
// for sizes cannot carry is asked for in another way, alone.
int AskHeld(CSession& session, const std::string& name, const SLostInfo& lost, Positions& held,
            std::string& why) {
  int result = RESULT_OK;
  const bool hasSide = IsAskable(name) && !lost.m_vecLost.empty();
  if (!IsAskable(name)) {
    held.resize(1);
    result = session.AskHeldSize(name, held.front());
  } else {
    std::vector<std::string> names = {name};
    if (hasSide && lost.m_vecBounds.size() <= kMostSegments) {
      for (std::size_t i = 1; i <= lost.m_vecBounds.size(); ++i) {
        names.push_back(SegmentName(name, i));
      }
    }
    if (hasSide) names.push_back(SideFileName(name, kRangesExtension));
    result = session.AskSizes(names, held);
  }
  if (result != RESULT_OK) return result;
  for (const std::int64_t size : held) {
    if (size < 0) why = WhyNoSize(size);
  }
  // It named ranges a moment ago: sizes cannot be told now.
  if (hasSide && held.back() == 0) why = kSizesDoNotStay;
  if (hasSide) held.pop_back();
  return RESULT_OK;
}

}  // namespace

bool IsInFile(const FILEDATAPOS& range, std::int64_t fileSize) {
  return range.llLen >= 1 && range.llPos >= 0 && range.llPos < fileSize &&
         range.llLen <= fileSize - range.llPos;
}

int LookAtRecording(CSession& session, const std::string& serverName, std::int64_t localSize,
                    bool mine, SRecording& recording) {
  recording = SRecording();
  int result = session.AskLostInfo(serverName, recording.m_lost);
  if (result != RESULT_OK) return result;
  recording.m_answer.m_strSeen = recording.m_lost.m_strText;
  SLostInfo lost = mine ? SLostInfo() : recording.m_lost;
  // Without ranges the library goes on with the first segment, as if it were
  // the only one.
  if (lost.m_vecLost.empty()) lost.m_vecBounds.clear();
  Positions held;
  result = AskHeld(session, serverName, lost, held, recording.m_strWhy);
  if (result != RESULT_OK || !recording.m_strWhy.empty()) return result;
  if (lost.m_vecLost.empty()) {
    if (!mine) recording.m_answer.m_strTold = recording.m_answer.m_strSeen;
    recording.m_llMissing = localSize - held.front();
    return RESULT_OK;
  }
  Judge(held, localSize, recording);
  if (!recording.m_bWhole) return RESULT_OK;
  // Before a copy is emptied, the server is asked again.
  Positions again;
  result = AskHeld(session, serverName, lost, again, recording.m_strWhy);
  if (result == RESULT_OK && recording.m_strWhy.empty() && again != held) {
    recording.m_strWhy = kSizesDoNotStay;
  }
  return result;
}
