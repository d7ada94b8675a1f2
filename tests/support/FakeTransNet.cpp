// The world of one session, written down.

#include "support/FakeTransNet.h"

#include <algorithm>
#include <chrono>
#include <functional>
#include <memory>
#include <thread>

#include "net/IOCPBuffer.h"
#include "net/NetWorkPackHead.h"
#include "protocol/MessageCodes.h"
#include "protocol/TransferTypes.h"

namespace {

constexpr std::chrono::seconds kPatience(20);

bool WaitUntil(const std::function<bool()>& done) {
  const auto end = std::chrono::steady_clock::now() + kPatience;
  while (!done() && std::chrono::steady_clock::now() < end) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return done();
}

}  // namespace

bool CFakeTransNet::SendText(ILinkInfo*, CIOCPBuffer* buf) {
  const std::unique_ptr<CIOCPBuffer> own(buf);
  m_bHeld = true;
  if (m_bRefuseData || !WaitUntil([this] { return !m_bHold; })) return false;
  Record(buf->m_pBuf, buf->m_nDataLen);
  return true;
}

bool CFakeTransNet::SendText(unsigned int, int, const char* data, int len) {
  Record(data, len);
  return true;
}

bool CFakeTransNet::WaitSendRoom(int ms) {
  if (!m_bRoom) std::this_thread::sleep_for(std::chrono::milliseconds(ms / 10));
  return m_bRoom;
}

void CFakeTransNet::Record(const char* packet, int len) {
  const bool whole =
      CNetWorkPackHead::BodyLength(packet) == static_cast<unsigned>(len - kPackHeadBytes);
  const int code = whole ? static_cast<int>(CNetWorkPackHead::Code(packet)) : -1;
  const std::lock_guard<std::mutex> lock(m_mutex);
  m_vecSent.emplace_back(code, std::string(packet + kPackHeadBytes, packet + len));
}

bool CFakeTransNet::WaitFor(int code, std::size_t times) {
  return WaitUntil([&] { return Bodies(code).size() >= times; });
}

std::vector<std::string> CFakeTransNet::Bodies(int code) {
  const std::lock_guard<std::mutex> lock(m_mutex);
  std::vector<std::string> bodies;
  for (const auto& [sent, body] : m_vecSent) {
    if (sent == code) bodies.push_back(body);
  }
  return bodies;
}

std::string CFakeTransNet::LastBody(int code) {
  const std::vector<std::string> bodies = Bodies(code);
  return bodies.empty() ? "" : bodies.back();
}

std::vector<int> CFakeTransNet::Codes() {
  const std::lock_guard<std::mutex> lock(m_mutex);
  std::vector<int> codes;
  for (const auto& [code, body] : m_vecSent) {
    if (code != NET_STC_TRANSFILEDATA) codes.push_back(code);
  }
  return codes;
}

std::string SSessionBench::Ask(int code, const std::string& body) {
  const std::vector<char> exact(body.begin(), body.end());  // nothing to read behind its end
  m_session.DealNetMsg(0, 0, code, static_cast<int>(exact.size()), exact.data(), 0);
  return m_net.LastBody(code);
}

std::string SSessionBench::AskUpload(bool create, const std::string& name) {
  return Ask(NET_CTS_PREPARETRAN_FILE, std::string(1, create ? '\1' : '\0') + (m_dir / name));
}

std::string SSessionBench::AskDownload(std::int64_t position, const std::string& name) {
  return Ask(NET_CTS_PREPARETRANS_FILE, Int64(position) + (m_dir / name));
}

void SSessionBench::SendChunk(std::int64_t position, const std::string& bytes) {
  Ask(NET_CTS_TRANSFILEDATA, Int64(position) + bytes);
}

bool SSessionBench::WaitIdle() {
  return WaitUntil([this] { return m_session.m_nTransType == PROCESS_TYPE_NONE; });
}
