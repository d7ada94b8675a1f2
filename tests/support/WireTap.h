#pragma once

#include <string>
#include <thread>

/// Stands between one client and a server on 127.0.0.1, passes every byte on
/// and keeps what went each way. A second connection is refused.
class CWireTap {
 public:
  /// @param from the address that the server sees; "" for 127.0.0.1
  explicit CWireTap(int serverPort, const std::string& from = "");
  CWireTap(const CWireTap&) = delete;
  CWireTap& operator=(const CWireTap&) = delete;
  ~CWireTap();

  int Port() const { return m_nPort; }

  /// Waits until the client has closed; then what it sent and was answered.
  void WaitClosed();
  const std::string& FromClient() const { return m_strFromClient; }
  const std::string& FromServer() const { return m_strFromServer; }

 private:
  void Run(int serverPort, const std::string& from);

  int m_listener = -1;
  int m_nPort = 0;
  std::string m_strFromClient;  // the thread's until WaitClosed
  std::string m_strFromServer;
  std::thread m_thread;
};
