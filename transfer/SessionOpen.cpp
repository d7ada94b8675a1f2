// Session: how a connection comes to be, and in words why there is none.

#include <algorithm>

#include "net/NetWorkManageEx.h"
#include "platform/System.h"
#include "protocol/MessageCodes.h"
#include "protocol/ResultCodes.h"
#include "transfer/Session.h"
#include "transfer/WaitNotice.h"

namespace {

constexpr int kSecondMs = 1000;
constexpr int kConnectMs = 10 * kSecondMs;

// A server is silent for about 10 s while it ends what an earlier link left,
// and for some more while it does so for others.
constexpr int kFirstAnswerMs = 30 * kSecondMs;

// A new link begins that wait again: the first answer after one that was
// served is awaited for at least as long.
constexpr int kAnswerAgainMs = 15 * kSecondMs;

// No system makes a file of such a name.
const std::string kNoDirectory(1, '\0');

constexpr int kAtOnceMs = 2 * kSecondMs;

std::string Seconds(int ms) {
  return std::to_string(ms / kSecondMs) + " s";
}

}  // namespace

int CSession::TimeoutMs(int usual) const {
  if (usual == 0 && m_servers.Count() > 1) usual = kFirstAnswerMs;  // others may answer
  return m_place.m_nTimeoutSeconds > 0 ? m_place.m_nTimeoutSeconds * kSecondMs : usual;
}

void CSession::ChooseServer(const std::string& project) {
  if (!IsConnect()) m_servers.Choose(project);
}

int CSession::Open() {
  {
    const CWaitNotice notice(m_observer, "looking up " + m_servers.Text());
    m_servers.LookUp(CNetWorkManageEx::AddressesOf);
  }
  bool isHopeless = true;
  for (std::size_t left = m_servers.Count();; --left) {
    int result = OpenOne();
    if (result == RESULT_OK && m_servers.Count() > 1) result = CheckDirectory();
    isHopeless = isHopeless && m_bHopeless;
    if (result == RESULT_OK || left == 1 || m_bOtherStorage) {
      m_bHopeless = isHopeless || m_bOtherStorage;
      return result;
    }
    Abort();
    const std::string silent = m_servers.Text();
    m_servers.Next();
    m_bMovedOn = true;
    m_observer.OnNotConnected(result, "server " + silent + " does not answer (" + Describe(result) +
                                          "); going on with " + m_servers.Text());
  }
}

// What was begun at one goes on at another one: both must mean the same files.
int CSession::CheckDirectory() {
  std::string directory;
  const int result = AskDirectory(directory);
  if (result != RESULT_OK) return result;
  if (m_strDirectoryOf.empty()) {
    m_strDirectory = directory;
    m_strDirectoryOf = m_servers.Text();
  }
  if (directory == m_strDirectory) return RESULT_OK;
  m_bOtherStorage = true;
  m_strNoLink = "server " + m_servers.Text() + " keeps its projects in " + directory + ", server " +
                m_strDirectoryOf + " in " + m_strDirectory + ": they do not serve one storage";
  Abort();
  return kOtherStorage;
}

int CSession::OpenOne() {
  {
    const std::lock_guard guard(m_mutex);
    m_setAnswered.clear();
    m_setUnknown.clear();
    m_bLostRanges = false;
    m_bStopping = false;
    m_stored.clear();
    m_nAsked = 0;
    m_nUnwanted = 0;
  }
  m_ahead.clear();
  m_bKnowsDirectory = false;
  m_strNoLink.clear();
  m_bHopeless = false;
  const int patience = std::max(TimeoutMs(kFirstAnswerMs), m_bServed ? kAnswerAgainMs : 0);
  m_pNetWork->SetConnectTimeout(TimeoutMs(kConnectMs));
  bool connected = false;
  {
    const CWaitNotice notice(m_observer, "waiting for a connection to " + m_servers.Text());
    if (!Init(m_place.m_bLogs ? m_place.m_strLogDirectory : kNoDirectory))
      return ERROR_CODE_CLIENT_CONNECT;
    connected = Connect(m_servers.Host(), m_servers.Port());
  }
  const std::int64_t since = System().SteadyMilliseconds();
  int result = ERROR_CODE_CLIENT_CONNECT;
  if (connected) {
    const CWaitNotice notice(m_observer,
                             "waiting for " + m_servers.Text() +
                                 ": it has not answered yet; what an earlier connection left "
                                 "may take it up to 10 s");
    result = WaitUntilAnswered(NET_CTS_GETPRJDIR, "", patience);
    m_bKnowsDirectory = result == RESULT_OK;
  }
  m_bServed = m_bServed || result == RESULT_OK;
  if (result != RESULT_OK) {
    Explain(result, patience, System().SteadyMilliseconds() - since <= kAtOnceMs);
  }
  return result;
}

void CSession::Explain(int result, int patienceMs, bool atOnce) {
  ELinkFailure why = m_pNetWork->WhyNoLink();
  if (result == ERROR_CODE_CLIENT_CONNECT && why == ELinkFailure::kNone) {
    why = ELinkFailure::kEnded;  // it broke while something was sent
  }
  m_bHopeless = result == ERROR_CODE_TIMEOUT || why == ELinkFailure::kNoSuchName ||
                why == ELinkFailure::kOnlyIPv6 || why == ELinkFailure::kLocalAddress ||
                why == ELinkFailure::kForeign;
  m_strNoLink = result == ERROR_CODE_TIMEOUT
                    ? "it took the connection, but has said nothing for " + Seconds(patienceMs)
                    : WordsFor(why, atOnce && m_pNetWork->BytesReceived() == 0);
}

std::string CSession::WordsFor(ELinkFailure why, bool atOnce) const {
  switch (why) {
    case ELinkFailure::kNoSuchName:
      return "the name " + m_servers.Host() + " stands for no machine";
    case ELinkFailure::kNoNameService:
      return "the name " + m_servers.Host() + " cannot be looked up: no name server answers";
    case ELinkFailure::kOnlyIPv6:
      return m_servers.Host() +
             " has only IPv6 addresses; kqft connects by IPv4: name an IPv4 address";
    case ELinkFailure::kLocalAddress:
      return m_place.m_strBindAddress + " is no address of this machine";
    case ELinkFailure::kRefused:
      return "connection refused: the machine is there, but no server listens on this port";
    case ELinkFailure::kUnreachable:
      return "no route to it";
    case ELinkFailure::kTimedOut:
      return "nothing came back within " + Seconds(TimeoutMs(kConnectMs)) +
             ": the machine is off, or a firewall drops the connection";
    case ELinkFailure::kForeign:
      return "it does not speak this protocol: another service listens on this port";
    case ELinkFailure::kEnded:
      return atOnce ? "the server ended the link at once: it may be full (100 links) or not allow "
                      "this address"
                    : "the server ended the link before it answered";
    case ELinkFailure::kNone:
    case ELinkFailure::kOther:
      break;
  }
  return DescribeResult(ERROR_CODE_CLIENT_CONNECT);
}

std::string CSession::Describe(int result) const {
  const bool isLink = result == ERROR_CODE_CLIENT_CONNECT || result == ERROR_CODE_TIMEOUT ||
                      result == kOtherStorage;
  return isLink && !m_strNoLink.empty() ? m_strNoLink : DescribeResult(result);
}

int CSession::Reopen() {
  Abort();
  return Open();
}

std::int64_t CSession::Heard() const {
  return m_pNetWork->BytesReceived() + m_llSigns;
}

std::string CSession::SilenceText() const {
  return "the server has said nothing for " + Seconds(TimeoutMs(0)) + " (--timeout)";
}
