// The end of a server within a bound.

#include "server/EndServer.h"

#include "platform/KQEvent.h"
#include "platform/System.h"

bool EndServer(std::unique_ptr<CKQFileTransServiceServer> server, int milliseconds) {
  const auto ended = std::make_shared<CKQEvent>();
  CKQFileTransServiceServer* const ending = server.release();  // the thread's from here on
  const ESystemError error = System().StartThread([ending, ended] {
    ending->Stop();
    delete ending;
    ended->SetKQEvent();
  });
  return error == ESystemError::kNone && ended->Wait(milliseconds) == 0;
}
