#pragma once

#include <gtest/gtest.h>

#include <string>

#include "platform/ByteOrder.h"
#include "support/Packets.h"

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

/// Sends a request and returns the body of its answer.
inline std::string Ask(const CRawClient& client, int code, const std::string& body) {
  EXPECT_TRUE(client.Send(MakePacket(code, body)));
  const std::string head = client.Receive(20);
  if (head.size() < 20) return "no answer";
  EXPECT_EQ(ReadInt32(head.data() + 4), code);
  return client.Receive(static_cast<std::size_t>(ReadInt32(head.data() + 12)));
}
