// Insist: one thing that needs the link, repeated until it is done.

#include "transfer/Insist.h"

#include "protocol/ResultCodes.h"
#include "transfer/CancelToken.h"
#include "transfer/Retry.h"
#include "transfer/Session.h"
#include "transfer/Transfer.h"

bool IsRefusal(int code) {
  return code == CREATE_FILE_ERROR || code == ERROR_CODE_SERVER_OPENFILE ||
         code == ERROR_CODE_SERVER_WRITE;
}

int Insist(const STransferTools& tools, const std::function<int()>& act) {
  for (CRetry retry(tools.m_nRetries, tools.m_nRetrySeconds);;) {
    int result = RESULT_OK;
    if (!tools.m_session.IsConnect()) {
      tools.m_observer.OnReconnecting();
      result = tools.m_session.Reopen();
    }
    if (result == RESULT_OK) result = act();
    const bool mayBeHeld = result == CREATE_FILE_ERROR && tools.m_session.HasMovedOn();
    if (result == RESULT_OK || (IsRefusal(result) && !mayBeHeld)) return result;
    if (tools.m_session.IsOtherStorage()) return result;
    tools.m_session.Abort();
    const int pause = retry.Next(false);
    if (pause < 0 || tools.m_cancel.IsCancelled()) return result;
    tools.m_observer.OnRetrying(0, pause, tools.m_session.Describe(result));
    tools.m_cancel.Sleep(pause);
  }
}
