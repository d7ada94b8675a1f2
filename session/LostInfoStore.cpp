// Lost-info store: the side files of a measurement file, written by the
// program that records it. ".li" lists the ranges that never arrived, ".fi"
// the sizes that mark its segments; both lie beside it under its name.
//
// Values pass through as text; only the range that the client has resent is
// rewritten. Runs on the link's delivery thread, while no transfer runs.

#include "platform/FileConfig.h"
#include "platform/KQFile.h"
#include "platform/KQPlatForm.h"
#include "protocol/LostInfoBounds.h"
#include "protocol/MeasurementFiles.h"
#include "protocol/MessageCodes.h"
#include "protocol/Messages.h"
#include "protocol/ResultCodes.h"
#include "protocol/TransferTypes.h"
#include "session/SessionState.h"
#include "session/TransClient.h"

namespace {

constexpr int kFirstRange = 0;  // ranges count from 0 and
constexpr int kFirstSize = 1;   // sizes from 1, kept on purpose
const char kRangeSection[] = "Lost_Pos";
const char kRangeKey[] = "lost_info_";

// Joins the values of the keys stem + number with ","; a missing one is empty.
// False when they would become too long.
bool JoinRecords(QFileConfig& config, const std::string& section, const std::string& stem,
                 int first, int count, std::string& joined) {
  if (count > kMostLostRanges) return false;
  for (int i = 0; i < count; ++i) {
    std::string value;
    config.ReadString(section, stem + std::to_string(first + i), value, true);
    joined += value;
    if (i != count - 1) joined += ',';
    if (joined.size() > kMostLostListBytes) return false;
  }
  return true;
}

// A file that cannot be looked at now must not pass for a record of nothing
// lost: only one that is surely missing does.
int ReadSideFiles(const std::string& lostPath, const std::string& infoPath, std::string& text) {
  if (CKQPlatForm::IsFileMissing(lostPath)) return RESULT_OK;
  QFileConfig lost;
  lost.SetFileName(lostPath);
  lost.ClearLeft();
  if (!lost.ReadConfig()) return ERROR_CODE_LOSTINFO_RECORD;
  int recordCount = 0;
  int headSize = 0;
  lost.ReadInteger(kRangeSection, "nRecordCount", recordCount, true);
  lost.ReadInteger(kRangeSection, "nHeadSize", headSize, true);
  std::string ranges;
  if (!JoinRecords(lost, kRangeSection, kRangeKey, kFirstRange, recordCount, ranges)) {
    return ERROR_CODE_LOSTINFO_ACCESS;
  }
  std::string sizes;
  if (!CKQPlatForm::IsFileMissing(infoPath)) {
    QFileConfig info;
    info.SetFileName(infoPath);
    if (!info.ReadConfig()) return ERROR_CODE_LOSTINFO_RECORD;
    int fileCount = 0;
    info.ReadInteger("FileInfo", "FileCount", fileCount, true);
    if (!JoinRecords(info, "FileInfo", "Size", kFirstSize, fileCount, sizes)) {
      return ERROR_CODE_LOSTINFO_ACCESS;
    }
  }
  text = std::to_string(headSize) + "|" + ranges + "|" + sizes;
  return RESULT_OK;
}

int RewriteRange(const std::string& path, int index, KQLonglong a, KQLonglong b) {
  if (CKQPlatForm::IsFileMissing(path)) return ERROR_CODE_LOSTINFO_NOFILE;
  QFileConfig lost;
  lost.SetFileName(path);
  const bool isOurTurn = lost.TakeTurn();
  if (!lost.ReadConfig()) return ERROR_CODE_LOSTINFO_RECORD;
  if (!isOurTurn) return ERROR_CODE_LOSTINFO_ACCESS;
  // Not compared with the record count: beyond it, a record that no reader visits.
  lost.WriteString(kRangeSection, kRangeKey + std::to_string(index),
                   std::to_string(a) + "," + std::to_string(b), "", true);
  return lost.UpdateFile(true) ? RESULT_OK : ERROR_CODE_LOSTINFO_ACCESS;
}

}  // namespace

void CTransClient::AnswerLostInfo(int nLength, const char* data) {
  std::string text;
  const int result = DealGetLostInfo(nLength, data, text);
  SendMsg(NET_CTS_GETLOSTINFO, EncodeBody(SLostRanges{result, text}));
  WriteLog("DealNetMsg NET_CTS_GETLOSTINFO  nErrorCode = " + std::to_string(result) + " \n");
}

int CTransClient::DealGetLostInfo(int nLength, const char* data, std::string& text) {
  if (m_bStopService) {
    WriteLog("CTransClient::DealGetLostInfo m_bStopService = true \n");
    return ERROR_CODE_STOP_SERVICE;
  }
  if (m_nTransType != PROCESS_TYPE_NONE) {
    WriteLog("CTransClient::DealGetLostInfo m_nTransType != PROCESS_TYPE_NONE \n");
    return ERROR_CODE_TRANS_BUSY;
  }
  const int result = ReadLostInfo(std::string(data, static_cast<std::size_t>(nLength)), text);
  if (result != RESULT_OK) {
    WriteLog("CTransClient::DealGetLostInfo read file nErrorCode = " + std::to_string(result) +
             " \n");
  }
  return result;
}

int CTransClient::ReadLostInfo(const std::string& path, std::string& text) {
  m_strLostInfoPath = SideFileName(path, kRangesExtension);
  text.clear();
  try {
    return ReadSideFiles(m_strLostInfoPath, SideFileName(path, kSegmentsExtension), text);
  } catch (...) {
    text.clear();
    return ERROR_CODE_LOSTINFO_ACCESS;
  }
}

void CTransClient::AnswerUpdateLostInfo(int nLength, const char* data) {
  const int result = DealUpdateLostInfo(static_cast<unsigned>(nLength), data);
  SendMsg(NET_CTS_CHANGELOSTINFO, EncodeBody(SResult{result}));
  WriteLog("DealNetMsg NET_CTS_CHANGELOSTINFO  nErrorCode = " + std::to_string(result) + " \n ");
}

int CTransClient::DealUpdateLostInfo(unsigned int nLength, const char* data) {
  if (m_bStopService) {
    WriteLog("CTransClient::DealUpdateLostInfo m_bStopService = true \n");
    return ERROR_CODE_STOP_SERVICE;
  }
  const std::int32_t transType = m_nTransType;
  if (transType != PROCESS_TYPE_NONE) {
    WriteLog("CTransClient::DealUpdateLostInfo m_nTransType = " + std::to_string(transType) +
             " \n");
    return ERROR_CODE_TRANS_BUSY;
  }
  const auto range = DecodeBody<SChangedRange>(data, static_cast<int>(nLength));
  if (!range) {
    WriteLog("CTransClient::DealUpdateLostInfo nLength = " + std::to_string(nLength) + " \n");
    return 0;
  }
  const int result = UpdateLostInfo(range->m_nIndex, range->m_llPosition, range->m_llBytes);
  if (result != RESULT_OK) {
    WriteLog("CTransClient::DealUpdateLostInfo read file nErrorCode = " + std::to_string(result) +
             " \n");
  }
  return result;
}

int CTransClient::UpdateLostInfo(int index, KQLonglong a, KQLonglong b) {
  try {
    m_pTransFile->Close();  // where a link broke it may still be held
    // What was resent must lie on the disk before the record of it shrinks.
    if (!m_pState->m_durable.EndPending()) return ERROR_CODE_LOSTINFO_ACCESS;
    return RewriteRange(m_strLostInfoPath, index, a, b);
  } catch (...) {
    return ERROR_CODE_LOSTINFO_ACCESS;
  }
}
