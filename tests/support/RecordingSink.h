#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "net/DealNetData.h"
#include "net/NetBuffer.h"

/// A handler that writes down everything that a network layer calls it with.
class CRecordingSink : public IDealNetData {
 public:
  struct SEvent {
    unsigned int m_nIP;
    int m_nPort;
    int m_nCode;
    std::string m_strBody;
    std::thread::id m_thread;
  };

  bool DealNetMsg(unsigned int ip, int port, int code, int bodyLen, const char* body,
                  int extra) override;
  CNetBuffer* CreateNetBuffer(unsigned int ip, int port, int, int) override;
  bool ReleaseIOCPBuffer(CIOCPBuffer* buf) override;

  /// Waits, at most 20 s, until what was recorded satisfies the test.
  bool WaitFor(const std::function<bool(const CRecordingSink&)>& done);
  bool WaitForCode(int code, std::size_t times = 1);

  // For use inside WaitFor, and after Stop.
  std::size_t Count(int code) const;
  const std::vector<SEvent>& Events() const { return m_vecEvents; }
  const std::vector<CIOCPBuffer*>& Released() const { return m_vecReleased; }
  const std::set<std::thread::id>& ReleaseThreads() const { return m_setReleaseThreads; }

  /// `handler` runs inside DealNetMsg from now on, after the event was
  /// written down.
  void OnMessage(std::function<void(const SEvent&)> handler);

  /// When set, every link gets this one parser.
  CNetBuffer* m_pSharedParser = nullptr;
  bool m_bRefuse = false;  // CreateNetBuffer answers null

 private:
  std::mutex m_mutex;
  std::condition_variable m_condition;
  std::function<void(const SEvent&)> m_onMessage;
  std::vector<SEvent> m_vecEvents;
  std::vector<CIOCPBuffer*> m_vecReleased;
  std::set<std::thread::id> m_setReleaseThreads;
  std::deque<CNetBuffer> m_parsers;
};

/// A whole packet as it travels.
std::string MakePacket(int code, const std::string& body);

/// A plain blocking TCP client on 127.0.0.0/8 that sends any bytes.
class CRawClient {
 public:
  explicit CRawClient(int port, const std::string& from = "");
  CRawClient(const CRawClient&) = delete;
  CRawClient& operator=(const CRawClient&) = delete;
  ~CRawClient();

  bool IsOpen() const { return m_fd >= 0; }
  bool Send(const std::string& bytes);

  /// Reads exactly `bytes` bytes, fewer when the connection ends first.
  std::string Receive(std::size_t bytes);

  /// True once the other side has closed; waits at most 20 s.
  bool WaitClosed();
  void Close();

 private:
  int m_fd = -1;
};
