#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "platform/System.h"
#include "transfer/CancelToken.h"
#include "transfer/EarlyLook.h"
#include "transfer/ProjectClient.h"
#include "transfer/Retry.h"
#include "transfer/Session.h"
#include "transfer/Turn.h"

/// What a CProjectClient consists of. Used by the client's thread, the token
/// by any.
struct CProjectClient::SState {
  SState(SServerPlace place, ITransferObserver& observer);

  /// Takes the turn and connects, unless a connection stands.
  /// @return 1 or a code
  int EnsureConnected(CRetry retry);

  /// Gives the turn back once the connection has ended.
  void EndTurn();

  const SServerPlace m_place;
  ITransferObserver& m_observer;
  CCancelToken m_cancel;
  CEarlyLook m_early;
  CTurn m_turn;  // given back behind the session's end
  std::unique_ptr<CSession> m_pSession;

 private:
  int TakeTurn();
};

/// One put or get, from its beginning to its result.
class CTransferScope {
 public:
  /// @param why it makes no sense; "" to connect and begin
  /// @param retry for the connection
  CTransferScope(CProjectClient::SState& state, const std::string& why, CRetry retry = {0, 0});

  bool HasBegun() const { return m_result.m_nCode == 1; }
  STransferResult& Result() { return m_result; }

  /// Takes over why a question got no answer. @return whether it did get one
  bool Check(int result);

  STransferResult Refuse(const std::string& why);
  STransferResult End();

 private:
  CProjectClient::SState& m_state;
  const CCancelToken::CScope m_running;
  const std::int64_t m_llStartMs = System().SteadyMilliseconds();
  const std::int64_t m_llMovedBefore;
  STransferResult m_result;
};

/// The files that the server lists of a project, or of a directory of one,
/// with their names below that.
/// @param directory of all projects, as the server spells it
/// @param below     project or directory, "\" separating
int AskFileNames(CSession& session, const std::string& directory, const std::string& below,
                 std::vector<SProjectFile>& files);
