// Requests to a service: those to end, and one more event.

#include "programs/ServiceRequests.h"

#include "programs/Termination.h"
#include "programs/windows/Requests.h"

namespace {

HANDLE g_reopen = nullptr;  // constant once HoldServiceRequests has returned

}  // namespace

void HoldServiceRequests() {
  HoldTermination();
  if (g_reopen == nullptr) g_reopen = MakeRequest(L"hangup");
}

EServiceRequest WaitForServiceRequest(int milliseconds) {
  const HANDLE requests[] = {InterruptRequest(), TerminateRequest(), g_reopen};
  switch (WaitForMultipleObjects(3, requests, FALSE, static_cast<DWORD>(milliseconds))) {
    case WAIT_OBJECT_0:
    case WAIT_OBJECT_0 + 1:
      return EServiceRequest::kEnd;
    case WAIT_OBJECT_0 + 2:
      return EServiceRequest::kReopen;
    default:
      return EServiceRequest::kNone;
  }
}
