#pragma once

#include <string>
#include <thread>

/// A plain blocking TCP connection to 127.0.0.1 that sends any bytes.
class CRawClient {
 public:
  /// @param from the address that the server sees; "" for any
  explicit CRawClient(int port, const std::string& from = "");
  CRawClient(const CRawClient&) = delete;
  CRawClient& operator=(const CRawClient&) = delete;
  ~CRawClient() { Close(); }

  bool Send(const std::string& bytes) const;

  /// Reads exactly `bytes` bytes, fewer when the connection ends first or
  /// nothing comes for 60 s.
  std::string Receive(std::size_t bytes) const;

  /// Reads until the other side has closed; false when it has not after 60 s.
  bool WaitClosed() const;
  void Close();

 protected:
  int m_fd;
};

/// Stands between one client and a server on 127.0.0.1, passes every byte on
/// and keeps what went each way. A second connection is refused.
class CWireTap : private CRawClient {
 public:
  explicit CWireTap(int serverPort, const std::string& from = "");
  ~CWireTap();

  int Port() const;

  /// Waits until the client has closed; then what it sent and was answered.
  void WaitClosed();
  const std::string& FromClient() const { return m_strFromClient; }
  const std::string& FromServer() const { return m_strFromServer; }

 private:
  void Run();

  const int m_listener;
  std::string m_strFromClient;  // the thread's until WaitClosed
  std::string m_strFromServer;
  std::thread m_thread;
};
