// Session: sizes of files at the server, any number of questions at a time.
//
// Those that are going to be asked next may leave behind something else: then
// nobody waits for their way. Answers name nothing, but come in the order of
// the questions.

#include <algorithm>

#include "net/LinkInfo.h"
#include "net/Pacing.h"
#include "platform/KQEvent.h"
#include "platform/System.h"
#include "protocol/MessageCodes.h"
#include "protocol/Messages.h"
#include "protocol/ResultCodes.h"
#include "transfer/Session.h"
#include "transfer/SessionWaits.h"
#include "transfer/Sizes.h"

namespace {

constexpr int kSizeWaitMs = 30000;
constexpr std::size_t kNamesPerQuestion = 32;  // each at most 1,023 bytes

std::vector<std::string> SingleQuestions(const std::vector<std::string>& names) {
  std::vector<std::string> bodies(names.size());
  for (std::size_t i = 0; i < names.size(); ++i) AddName(bodies[i], names[i]);
  return bodies;
}

std::vector<std::string> JointQuestions(const std::vector<std::string>& names) {
  std::vector<std::string> bodies;
  for (std::size_t i = 0; i < names.size(); ++i) {
    if (i % kNamesPerQuestion == 0) bodies.emplace_back();
    AddName(bodies.back(), names[i]);
  }
  return bodies;
}

}  // namespace

int CSession::AskSizes(const std::vector<std::string>& names, std::vector<std::int64_t>& sizes) {
  sizes.clear();
  if (names.empty()) return RESULT_OK;
  return Request(NET_CTS_REQUEST_SERVERFILESIZE,
                 [&] { return AskSums(SingleQuestions(names), sizes); });
}

int CSession::AskExpectedSizes(const std::vector<std::string>& names,
                               const std::vector<std::int64_t>& expected,
                               std::vector<std::int64_t>& sizes) {
  const std::vector<std::string> bodies = JointQuestions(names);
  std::vector<std::int64_t> sums(bodies.size());
  for (std::size_t i = 0; i < names.size(); ++i) {
    std::int64_t& sum = sums[i / kNamesPerQuestion];
    sum = AddSizes(sum, expected[i]);
  }
  sizes = expected;
  if (names.empty()) return RESULT_OK;
  std::vector<std::int64_t> told;
  int result = Request(NET_CTS_REQUEST_SERVERFILESIZE, [&] { return AskSums(bodies, told); });
  if (result != RESULT_OK) return result;
  std::vector<std::size_t> others;
  std::vector<std::string> otherNames;
  for (std::size_t i = 0; i < names.size(); ++i) {
    if (told[i / kNamesPerQuestion] == sums[i / kNamesPerQuestion]) continue;
    others.push_back(i);
    otherNames.push_back(names[i]);
  }
  result = AskSizes(otherNames, told);
  for (std::size_t i = 0; i < others.size() && result == RESULT_OK; ++i) sizes[others[i]] = told[i];
  return result;
}

void CSession::AskAhead(const std::vector<std::string>& names,
                        const std::vector<std::string>& expected) {
  m_vecToAsk = SingleQuestions(names);
  const std::vector<std::string> joint = JointQuestions(expected);
  if (m_vecToAsk.size() + joint.size() > kQuestionsAtOnce) return;
  m_vecToAsk.insert(m_vecToAsk.end(), joint.begin(), joint.end());
}

void CSession::SendAhead() {
  if (m_vecToAsk.empty()) return;
  ForgetAhead();
  m_ahead.assign(m_vecToAsk.begin(), m_vecToAsk.end());
  m_vecToAsk.clear();
  {
    const std::lock_guard guard(m_mutex);
    m_vecSizes.clear();
    m_nAsked = m_ahead.size();
  }
  bool sent = true;
  for (std::size_t i = 0; i < m_ahead.size() && sent; ++i) {
    sent = SendSizeQuestion(m_ahead[i], i + 1 < m_ahead.size());
  }
}

// What the server held may be another thing by now.
void CSession::ForgetAhead() {
  m_ahead.clear();
  const std::lock_guard guard(m_mutex);
  m_nUnwanted += m_nAsked - std::min(m_nAsked, m_vecSizes.size());
  m_nAsked = 0;
  m_vecSizes.clear();
}

bool CSession::WasAskedAhead(const std::vector<std::string>& bodies) const {
  return bodies.size() <= m_ahead.size() &&
         std::equal(bodies.begin(), bodies.end(), m_ahead.begin());
}

// Several of them leave in one call.
bool CSession::SendSizeQuestion(const std::string& body, bool moreFollow) {
  ILinkInfo* const link = m_pLinkInfo;
  if (link != nullptr && moreFollow) link->WaitSendRoom(kMomentMs);
  return SendMessage(NET_CTS_REQUEST_SERVERFILESIZE, body.data(), static_cast<int>(body.size()));
}

// One answer for each body; what those name is added up by the server.
// @param awaitEarlier for a single one: waits for what is answered before it; false when
//                     that does not come
int CSession::AskSums(const std::vector<std::string>& bodies, std::vector<std::int64_t>& sums,
                      const std::function<bool()>& awaitEarlier) {
  const bool ahead = WasAskedAhead(bodies);
  if (!ahead) ForgetAhead();
  std::size_t asked = ahead ? bodies.size() : 0;
  std::unique_lock lock(m_mutex);
  if (!ahead) m_nAsked = bodies.size();
  int result = RESULT_OK;
  while (m_vecSizes.size() < bodies.size() && result == RESULT_OK) {
    const std::size_t before = m_vecSizes.size();
    const std::size_t last = std::min(bodies.size(), before + kQuestionsAtOnce);
    // The next ones go out together, while the server has some left.
    m_nWanted = last == bodies.size() ? last : before + kQuestionsAtOnce / 2;
    lock.unlock();
    bool sent = true;
    for (; sent && asked < last; ++asked) sent = SendSizeQuestion(bodies[asked], asked + 1 < last);
    const bool silent = sent && awaitEarlier && !awaitEarlier();
    lock.lock();
    const auto moved = [&] { return m_vecSizes.size() >= m_nWanted || !IsConnect(); };
    if (!sent || !IsConnect()) {
      result = ERROR_CODE_CLIENT_CONNECT;
    } else if (silent || (!System().Wait(m_changed, lock, TimeoutMs(kSizeWaitMs), moved) &&
                          m_vecSizes.size() == before)) {
      result = ERROR_CODE_WAIT_FILESIZE;
      m_evReply->ResetKQEvent();  // Leave is not to wait once more
    }
  }
  sums.clear();
  if (result != RESULT_OK) {
    m_nAsked = 0;
    m_ahead.clear();
    return result;
  }
  m_evReply->SetKQEvent();  // none that was asked for now is outstanding
  const auto count = static_cast<std::ptrdiff_t>(bodies.size());
  sums.assign(m_vecSizes.begin(), m_vecSizes.begin() + count);
  m_vecSizes.erase(m_vecSizes.begin(), m_vecSizes.begin() + count);
  m_nAsked -= bodies.size();
  if (ahead) m_ahead.erase(m_ahead.begin(), m_ahead.begin() + count);
  return result;
}

// False when the answer is none to AskSizes: the library's then.
bool CSession::KeepSize(int length, const char* body) {
  const auto total = DecodeBody<STotalSize>(body, length);
  const std::lock_guard guard(m_mutex);
  if (!total) return false;
  if (m_nUnwanted > 0) {
    --m_nUnwanted;
    return true;
  }
  if (m_vecSizes.size() >= m_nAsked) return false;
  m_vecSizes.push_back(total->m_llBytes);
  if (m_vecSizes.size() >= m_nWanted) m_changed.notify_all();
  return true;
}
