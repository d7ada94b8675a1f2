// Resume: sends again what the server lost of a measurement file.
//
// The server keeps such a file as a chain of segments. It names the missing
// ranges in positions of the local file; each is sent into the segment that
// holds it, and reported. The upload then continues the newest segment.
// Runs on the upload worker.

#include <algorithm>
#include <limits>
#include <list>
#include <memory>

#include "client/KQFileTransServiceClient.h"
#include "client/PositionMath.h"
#include "client/TransferRun.h"
#include "platform/ExpertUtils.h"
#include "platform/KQEvent.h"
#include "platform/KQFile.h"
#include "platform/KQPlatForm.h"
#include "platform/ThreadLock.h"
#include "protocol/MeasurementFiles.h"
#include "protocol/MessageCodes.h"
#include "protocol/Messages.h"
#include "protocol/ResultCodes.h"

namespace {

constexpr int kReportWaitMs = 10000;
constexpr int kLostInfoFields = 3;

int ParseInt(const std::string& text) {
  using Limits = std::numeric_limits<int>;
  return static_cast<int>(
      std::clamp<std::int64_t>(CKQPlatForm::KQToLONGLONG(text), Limits::min(), Limits::max()));
}

std::list<std::string> Numbers(const std::string& field) {
  std::list<std::string> numbers;
  EU::CExpertUtils::BreakString(field, numbers, ",");
  return numbers;
}

// The first segment that ends behind the position. One that starts exactly on
// a boundary belongs to the later segment. Not a binary search: the order of
// the boundaries is the server's word only.
std::size_t SegmentOf(std::int64_t position, const std::vector<std::int64_t>& bounds) {
  const auto end = std::find_if(bounds.begin(), bounds.end(),
                                [position](std::int64_t bound) { return position < bound; });
  return static_cast<std::size_t>(end - bounds.begin());
}

}  // namespace

int CKQFileTransServiceClient::GetServerLostInfo(const std::string& name,
                                                 std::vector<FILEDATAPOS>& lost,
                                                 std::vector<std::int64_t>& bounds) {
  {
    const CScopedLock lock(m_pLock);
    m_strLostInfo.clear();
  }
  const int result =
      SendAndWaitPre(NET_CTS_GETLOSTINFO, name.data(), static_cast<int>(name.size()));
  if (result != RESULT_OK) return ERROR_CODE_GETLOSTINFO;

  const std::string text = GuardedCopy(m_strLostInfo);
  if (text.empty()) return RESULT_OK;
  std::list<std::string> fields;
  if (EU::CExpertUtils::BreakString(text, fields, "|") != kLostInfoFields) {
    return ERROR_CODE_LOSTINFO_CONTENT;
  }
  const int head = ParseInt(fields.front());
  const std::list<std::string> ranges = Numbers(*std::next(fields.begin()));
  if (ranges.size() % 2 != 0) return ERROR_CODE_LOSTINFO_CONTENT;

  lost.clear();
  for (auto number = ranges.begin(); number != ranges.end(); ++number) {
    FILEDATAPOS range;
    range.llPos = AddPositions(CKQPlatForm::KQToLONGLONG(*number), head);
    range.llLen = CKQPlatForm::KQToLONGLONG(*++number);
    lost.push_back(range);
  }
  bounds.clear();
  for (const std::string& number : Numbers(fields.back())) {
    bounds.push_back(CKQPlatForm::KQToLONGLONG(number));
  }
  return RESULT_OK;
}

int CKQFileTransServiceClient::RebackAllLostInfo(Channel_Key_Value& rec, std::string& name,
                                                 std::int64_t& skip) {
  std::vector<FILEDATAPOS> lost;
  std::vector<std::int64_t> bounds;
  int result = GetServerLostInfo(rec.m_strName, lost, bounds);
  if (result != RESULT_OK) return result;
  // Boundaries alone change nothing: the upload goes on under the file's own
  // name. Kept on purpose.
  if (lost.empty()) return RESULT_OK;
  if (!UseFile(CFileHandle::Open(rec.m_strPath, "rb"), rec.m_strPath)) {
    return ERROR_CODE_CLIENT_OPENFILE;
  }

  skip = 0;
  for (std::size_t i = 0; i < lost.size() && result == RESULT_OK && !IsSuperseded(); ++i) {
    if (lost[i].llLen < 1) continue;
    result = SendLostRange(rec, static_cast<int>(i), lost[i], bounds);
  }
  if (!bounds.empty()) {
    name = SegmentName(rec.m_strName, bounds.size());
    skip = bounds.back();
  }
  LeaveFile();
  rec.m_nStatus = result;
  return result;
}

int CKQFileTransServiceClient::SendLostRange(Channel_Key_Value& rec, int index,
                                             const FILEDATAPOS& range,
                                             const std::vector<std::int64_t>& bounds) {
  const std::size_t segment = SegmentOf(range.llPos, bounds);
  const std::int64_t position =
      segment == 0 ? range.llPos : SubtractPositions(range.llPos, bounds[segment - 1]);
  int result = PrepareTransFile(SegmentName(rec.m_strName, segment), false);
  if (result != RESULT_OK) return result;
  std::int64_t done = 0;
  result = SendSingleFileRange(rec, range.llPos, range.llLen, position, done);
  if (result != RESULT_OK || done == 0 || IsSuperseded()) return result;
  return ReportRange(index, range, done);
}

// Tells the server what is still missing of a range. The answer carries no
// result of its own: m_nErrorCode is that of the 2500 before.
int CKQFileTransServiceClient::ReportRange(int index, const FILEDATAPOS& range, std::int64_t done) {
  const SChangedRange left{index, AddPositions(range.llPos, done), range.llLen - done};
  m_evReply->ResetKQEvent();
  if (!SendText(NET_CTS_CHANGELOSTINFO, EncodeBody(left))) return ERROR_CODE_CLIENT_SENDCMD;
  if (!AwaitReply(kReportWaitMs)) return ERROR_CODE_WAIT_SERVERRESPOND;
  return m_nErrorCode;
}
