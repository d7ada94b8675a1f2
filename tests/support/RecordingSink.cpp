#include "support/RecordingSink.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <utility>

#include "net/IOCPBuffer.h"
#include "net/NetWorkPackHead.h"

bool CRecordingSink::DealNetMsg(unsigned int ip, int port, int code, int bodyLen, const char* body,
                                int) {
  const SEvent event{ip, port, code,
                     std::string(body == nullptr ? "" : body, static_cast<std::size_t>(bodyLen)),
                     std::this_thread::get_id()};
  std::function<void(const SEvent&)> handler;
  {
    const std::lock_guard<std::mutex> guard(m_mutex);
    m_vecEvents.push_back(event);
    handler = m_onMessage;
    m_condition.notify_all();
  }
  if (handler) handler(event);
  return true;
}

void CRecordingSink::OnMessage(std::function<void(const SEvent&)> handler) {
  const std::lock_guard<std::mutex> guard(m_mutex);
  m_onMessage = std::move(handler);
}

CNetBuffer* CRecordingSink::CreateNetBuffer(unsigned int ip, int port, int, int) {
  const std::lock_guard<std::mutex> guard(m_mutex);
  if (m_bRefuse) return nullptr;
  CNetBuffer* parser = m_pSharedParser;
  if (parser == nullptr) parser = &m_parsers.emplace_back(0, 0);
  parser->m_nLinkIP = ip;
  parser->m_nLinkPort = port;
  parser->m_pOwner = this;
  parser->ClearData();
  return parser;
}

bool CRecordingSink::ReleaseIOCPBuffer(CIOCPBuffer* buf) {
  const std::lock_guard<std::mutex> guard(m_mutex);
  m_vecReleased.push_back(buf);
  m_setReleaseThreads.insert(std::this_thread::get_id());
  m_condition.notify_all();
  return true;
}

bool CRecordingSink::WaitFor(const std::function<bool(const CRecordingSink&)>& done) {
  std::unique_lock<std::mutex> lock(m_mutex);
  return m_condition.wait_for(lock, std::chrono::seconds(20), [&] { return done(*this); });
}

bool CRecordingSink::WaitForCode(int code, std::size_t times) {
  return WaitFor([&](const CRecordingSink& sink) { return sink.Count(code) >= times; });
}

std::size_t CRecordingSink::Count(int code) const {
  std::size_t count = 0;
  for (const SEvent& event : m_vecEvents) count += event.m_nCode == code ? 1U : 0U;
  return count;
}

std::string MakePacket(int code, const std::string& body) {
  CNetWorkPackHead head;
  head.SetCode(static_cast<unsigned>(code));
  head.SetBodyLength(static_cast<unsigned>(body.size()));
  std::string packet(kPackHeadBytes, '\0');
  head.CopyTo(packet.data());
  return packet + body;
}

CRawClient::CRawClient(int port, const std::string& from) {
  const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  if (!from.empty()) {
    inet_pton(AF_INET, from.c_str(), &address.sin_addr);
    if (bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
      close(fd);
      return;
    }
  }
  inet_pton(AF_INET, "127.0.0.1", &address.sin_addr);
  address.sin_port = htons(static_cast<std::uint16_t>(port));
  const timeval limit{20, 0};
  setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
  if (connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0) {
    m_fd = fd;
  } else {
    close(fd);
  }
}

CRawClient::~CRawClient() {
  Close();
}

void CRawClient::Close() {
  if (m_fd >= 0) close(m_fd);
  m_fd = -1;
}

bool CRawClient::Send(const std::string& bytes) {
  std::size_t sent = 0;
  while (sent < bytes.size()) {
    const ssize_t n = send(m_fd, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
    if (n <= 0) return false;
    sent += static_cast<std::size_t>(n);
  }
  return true;
}

std::string CRawClient::Receive(std::size_t bytes) {
  std::string data(bytes, '\0');
  std::size_t received = 0;
  while (received < bytes) {
    const ssize_t n = recv(m_fd, data.data() + received, bytes - received, 0);
    if (n <= 0) break;
    received += static_cast<std::size_t>(n);
  }
  data.resize(received);
  return data;
}

bool CRawClient::WaitClosed() {
  char byte = 0;
  for (;;) {
    const ssize_t n = recv(m_fd, &byte, 1, 0);
    if (n == 0) return true;
    if (n < 0) return errno == ECONNRESET;
  }
}
