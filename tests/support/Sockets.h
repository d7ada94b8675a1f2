#pragma once

#include <string>

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

  /// Breaks the connection and makes a new one from the same port.
  void Reconnect();
  int LocalPort() const;

 private:
  void Connect(int localPort);

  const int m_nServerPort;
  const std::string m_strFrom;
  int m_fd = -1;
};
