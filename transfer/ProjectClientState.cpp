// What every put and get begins and ends with.

#include "transfer/ProjectClientState.h"

#include <utility>

#include "protocol/ResultCodes.h"

namespace {

constexpr int kTurnLookMs = 100;

}  // namespace

int CProjectClient::SState::TakeTurn() {
  std::string holder, told;  // of the look before; last told of
  while (!m_turn.Take()) {
    if (m_place.m_eTurn == ETurn::kRefuse) return kServerTaken;
    // Not of one that has only just begun: its name may not stand there yet.
    if (holder == m_turn.Holder() && told != holder) {
      told = holder;
      m_observer.OnWaiting("waiting for " + told + ", which is busy with " + m_place.Text());
    }
    holder = m_turn.Holder();
    m_cancel.Sleep(kTurnLookMs);
    if (m_cancel.IsCancelled()) return ERROR_CODE_CLIENT_CONNECT;
  }
  return RESULT_OK;
}

int CProjectClient::SState::EnsureConnected(CRetry retry) {
  if (m_pSession->IsConnect()) return RESULT_OK;
  int result = TakeTurn();
  while (result == RESULT_OK) {
    result = m_pSession->Reopen();
    if (result == RESULT_OK) return result;
    if (m_pSession->IsHopeless()) retry.ForgoTries();
    const bool isOver = m_cancel.IsCancelled() || m_pSession->IsOtherStorage();
    const int pause = isOver ? -1 : retry.Next(false);
    if (pause < 0) break;
    m_observer.OnRetrying(0, pause, m_pSession->Describe(result));
    m_cancel.Sleep(pause);
    if (!m_cancel.IsCancelled()) result = RESULT_OK;
  }
  EndTurn();
  return result;
}

void CProjectClient::SState::EndTurn() {
  if (!m_pSession->IsConnect()) m_turn.GiveBack();
}

CTransferScope::CTransferScope(CProjectClient::SState& state, const std::string& why, CRetry retry)
    : m_state(state), m_running(state.m_cancel), m_llMovedBefore(state.m_pSession->BytesMoved()) {
  m_result.m_strWhy = why;
  if (why.empty()) Check(state.EnsureConnected(retry));
}

bool CTransferScope::Check(int result) {
  m_result.m_nCode = result;
  m_result.m_strWhy = result == RESULT_OK ? "" : m_state.m_pSession->Describe(result);
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
  m_state.EndTurn();
  return std::move(m_result);
}
