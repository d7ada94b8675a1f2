// What every put and get begins and ends with.

#include "transfer/ProjectClientState.h"

#include <utility>

#include "protocol/ResultCodes.h"

CTransferScope::CTransferScope(CProjectClient::SState& state, const std::string& why)
    : m_state(state), m_running(state.m_cancel), m_llMovedBefore(state.m_pSession->BytesMoved()) {
  m_result.m_strWhy = why;
  if (why.empty()) Check(state.EnsureConnected());
}

bool CTransferScope::Check(int result) {
  m_result.m_nCode = result;
  m_result.m_strWhy = result == RESULT_OK ? "" : DescribeResult(result);
  return result == RESULT_OK;
}

STransferResult CTransferScope::Refuse(const std::string& why) {
  m_result.m_nCode = 0;
  m_result.m_strWhy = why;
  return End();
}

STransferResult CTransferScope::End() {
  m_result.m_bCancelled = m_state.m_cancel.IsCancelled();
  m_result.m_llMoved = m_state.m_pSession->BytesMoved() - m_llMovedBefore;
  m_result.m_dSeconds = static_cast<double>(System().SteadyMilliseconds() - m_llStartMs) / 1000;
  return std::move(m_result);
}
