// Session: files of the server that are written from memory.
//
// Each is announced, sent and ended before its first answer is waited for, and
// the next one may follow before that: the server answers in order, so that each
// answer belongs to the oldest one that lacks it. Those of a bulk transfer that
// ended early come first.

#include <algorithm>
#include <optional>
#include <utility>

#include "net/LinkInfo.h"
#include "net/NetWorkManageEx.h"
#include "platform/KQEvent.h"
#include "platform/System.h"
#include "protocol/DataPacket.h"
#include "protocol/MessageCodes.h"
#include "protocol/Messages.h"
#include "protocol/ResultCodes.h"
#include "transfer/Names.h"
#include "transfer/Session.h"
#include "transfer/SessionWaits.h"

namespace {}  // namespace

/// A file that was written from memory, and what came of it. Its words are
/// guarded by m_mutex.
struct CSession::SStored {
  bool m_bSent = false;       // with its end
  bool m_bAnswered = false;   // its announcement
  bool m_bOver = false;       // its end was answered
  int m_nResult = RESULT_OK;  // why not, the first reason
  std::int64_t m_llHeld = 0;  // bytes of it when it was announced
};

int CSession::WriteText(const std::string& name, const std::string& text) {
  const auto size = static_cast<std::int64_t>(text.size());
  const bool isAskable = IsAskable(name);
  std::int64_t held = 0;
  int result = Store(name, true, {{0, text}}, isAskable ? &held : nullptr);
  if (result == RESULT_OK && !isAskable) result = AskHeldSize(name, held);
  if (result != RESULT_OK) return result;
  return held == size ? RESULT_OK : static_cast<int>(ERROR_CODE_SERVER_WRITE);
}

int CSession::AskHeldSize(const std::string& name, std::int64_t& size) {
  size = 0;
  return Request(NET_CTS_PREPARETRAN_FILE, [&] {
    const int result = Store(name, false, {});
    size = m_llServerFilePos;
    return result;
  });
}

int CSession::EmptyFile(const std::string& name) {
  return Request(NET_CTS_PREPARETRAN_FILE, [&] { return Store(name, true, {}); });
}

int CSession::WriteParts(const std::string& name, const Parts& parts) {
  return Store(name, false, parts);
}

int CSession::WritePartsAndRead(const std::string& name, const Parts& parts, std::string& text,
                                std::size_t most) {
  const auto once = [&] {
    const std::shared_ptr<SStored> stored = Send(name, false, parts);
    text.clear();
    const int read = ReadFile(name, [&](const char* data, std::size_t size) {
      text.append(data, std::min(size, most - text.size()));
      return true;
    });
    const int written = AwaitStored(*stored);
    return written == RESULT_OK ? read : written;
  };
  return UntilReady(once);
}

void CSession::WriteLater(const std::string& name, bool whole, const Parts& parts) {
  if (m_bJustRead) {
    Store(name, whole, parts);  // it may have to be sent again
  } else {
    Send(name, whole, parts);
  }
}

void CSession::LeaveLater(const std::string& name) {
  const bool answered = m_evReply->Wait(0) != kWaitTimeout && m_evFileEnd->Wait(0) != kWaitTimeout;
  if (answered && IsConnect() && !name.empty()) Send(name, false, {{kLeavingPosition, "x"}});
}

void CSession::AwaitAllStored() {
  std::unique_lock lock(m_mutex);
  AwaitChange(lock, kFileEndWaitMs, [this] { return m_stored.empty() || !IsConnect(); });
}

int CSession::UntilReady(const std::function<int()>& write) {
  int result = write();
  for (int i = 0; i < kReadyTries && result == ERROR_CODE_SERVER_DOWNDATA; ++i) {
    System().Sleep(kReadyPauseMs);
    result = write();
  }
  return result;
}

// @param held where its size then goes, which is asked for with that; null: not wanted
int CSession::Store(const std::string& name, bool whole, const Parts& parts, std::int64_t* held) {
  const int result = UntilReady([&] {
    const std::shared_ptr<SStored> stored = Send(name, whole, parts);
    return held == nullptr ? AwaitStored(*stored) : AwaitStoredAndSize(name, *stored, *held);
  });
  if (result == RESULT_OK) m_bJustRead = false;
  return result;
}

std::shared_ptr<CSession::SStored> CSession::Send(const std::string& name, bool whole,
                                                  const Parts& parts) {
  ForgetAhead();
  auto stored = std::make_shared<SStored>();
  m_nServerErrorCode = RESULT_OK;
  m_nBufTaken = 0;
  m_nBufReleased = 0;
  int sent = name.size() > kMaxNameBytes ? ERROR_CODE_CLIENT_SENDCMD : RESULT_OK;
  if (sent == RESULT_OK) {
    {
      const std::lock_guard guard(m_mutex);
      m_stored.push_back(stored);
    }
    sent = SendParts(name, whole, parts);
  }
  const std::lock_guard guard(m_mutex);
  stored->m_bSent = true;
  if (stored->m_nResult == RESULT_OK) stored->m_nResult = sent;
  if (sent == ERROR_CODE_CLIENT_SENDCMD || sent == ERROR_CODE_CLIENT_CONNECT) {
    stored->m_bOver = true;  // no answer comes
    std::erase(m_stored, stored);
  }
  return stored;
}

// Whatever was refused of it, it is ended: it is open there.
int CSession::SendParts(const std::string& name, bool whole, const Parts& parts) {
  const std::string announcement = EncodeBody(SUploadStart{whole, name});
  if (ILinkInfo* const link = m_pLinkInfo; link != nullptr) link->WaitSendRoom(kRoomWaitMs);
  if (!SendMessage(NET_CTS_PREPARETRAN_FILE, announcement.data(),
                   static_cast<int>(announcement.size()))) {
    return ERROR_CODE_CLIENT_CONNECT;
  }
  int sent = RESULT_OK;
  for (auto part = parts.begin(); part != parts.end() && sent == RESULT_OK; ++part) {
    sent = SendOwn(part->first, part->second);
  }
  if (!SendMessage(NET_CTS_TRANSFILEDATA_END, nullptr, 0)) return ERROR_CODE_CLIENT_CONNECT;
  return sent;
}

// Memory that is no file's.
int CSession::SendOwn(std::int64_t position, const std::string& text) {
  const std::int64_t end = position + static_cast<std::int64_t>(text.size());
  return SendPart(position, end, [&](std::int64_t at, char* data, std::size_t bytes) {
    if (position >= 0) m_llOwn += static_cast<std::int64_t>(bytes);
    return static_cast<std::int64_t>(
        text.copy(data, bytes, static_cast<std::size_t>(at - position)));
  });
}

int CSession::AwaitStored(SStored& stored) {
  std::unique_lock lock(m_mutex);
  const auto isOver = [&] { return stored.m_bOver || !IsConnect(); };
  const bool answered =
      AwaitChange(lock, kAnswerWaitMs, [&] { return stored.m_bAnswered || isOver(); });
  const bool over = answered && AwaitChange(lock, kFileEndWaitMs, isOver);
  int result = answered ? ERROR_CODE_WAIT_TRANSEND : ERROR_CODE_WAIT_SERVERRESPOND;
  if (over) result = stored.m_nResult;
  m_llServerFilePos = stored.m_llHeld;
  lock.unlock();
  if (over) {
    m_evFileEnd->SetKQEvent();  // no end is outstanding
  } else {
    m_evReply->ResetKQEvent();  // who leaves is not to wait once more
  }
  return Checked(result);
}

// A refused file's size is answered as well, and waited for.
int CSession::AwaitStoredAndSize(const std::string& name, SStored& stored, std::int64_t& held) {
  std::string body;
  AddName(body, name);
  std::vector<std::int64_t> sizes;
  std::optional<int> result;
  const int asked = Request(NET_CTS_REQUEST_SERVERFILESIZE, [&] {
    return AskSums({body}, sizes, [&] {
      result = AwaitStored(stored);
      return *result != ERROR_CODE_WAIT_SERVERRESPOND && *result != ERROR_CODE_WAIT_TRANSEND;
    });
  });
  if (!result) result = AwaitStored(stored);  // it does not know the question
  if (!sizes.empty()) held = sizes.front();
  return *result == RESULT_OK ? asked : *result;
}

// Data that comes before an answer may take a limit long. Under the mutex.
bool CSession::AwaitChange(std::unique_lock<std::mutex>& lock, int ms,
                           const std::function<bool()>& isOver) {
  std::int64_t heard = m_pNetWork->BytesReceived();
  while (!System().Wait(m_changed, lock, ms, isOver)) {
    const std::int64_t before = std::exchange(heard, m_pNetWork->BytesReceived());
    if (m_pBandwidth == nullptr || heard == before) return false;
  }
  return true;
}

// False when the answer is none to what was sent from memory.
bool CSession::KeepStored(int code, int length, const char* body) {
  const bool isEnd = code == NET_CTS_TRANSFILEDATA_END;
  if (!isEnd && code != NET_CTS_PREPARETRAN_FILE && code != NET_STC_WRITEDATA_ERROR) return false;
  if (CountOnWay() > 0) return false;
  const std::lock_guard guard(m_mutex);
  if (m_stored.empty()) return false;
  SStored& oldest = *m_stored.front();
  if (isEnd) {
    if (!oldest.m_bAnswered) oldest.m_nResult = ERROR_CODE_WAIT_SERVERRESPOND;
    oldest.m_bOver = true;
    m_stored.pop_front();
    m_changed.notify_all();
    return true;
  }
  const auto answer = DecodeBody<SResult>(body, length);
  if (!answer) return true;
  if (code == NET_CTS_PREPARETRAN_FILE) {
    const auto announced = DecodeBody<SUploadStartAnswer>(body, length);
    if (!announced) return true;
    oldest.m_bAnswered = true;
    oldest.m_llHeld = announced->m_llHeld;
    m_changed.notify_all();
  }
  if (answer->m_nResult == RESULT_OK || oldest.m_nResult != RESULT_OK) return true;
  oldest.m_nResult = answer->m_nResult;
  if (!oldest.m_bSent) m_nServerErrorCode = answer->m_nResult;  // the rest is of no use
  return true;
}
