#pragma once

#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

#include "net/LinkInfo.h"
#include "net/TransNet.h"
#include "session/TransClient.h"
#include "support/Packets.h"
#include "support/TestSystem.h"

constexpr unsigned int kClientIp = 0x7f000001;
constexpr int kClientPort = 5000;

/// Server and link of one session: writes down what the session sends.
class CFakeTransNet : public ITransNet, public ILinkInfo, public CPacketLog {
 public:
  ILinkInfo* GetLinkInfo(unsigned int, int) override { return this; }
  bool SendText(ILinkInfo* link, CIOCPBuffer* buf) override;
  bool SendText(unsigned int ip, int port, const char* data, int len) override;
  std::string GetFileDir() override { return m_strFileDir; }
  std::string GetPrjSuffix() override { return ".kqsln"; }
  bool IsDurable() override { return m_bDurable; }
  bool IsLink() const override { return true; }
  unsigned int GetIP() const override { return kClientIp; }
  int GetPort() const override { return kClientPort; }
  bool WaitSendRoom(int ms) override;

  std::string LastBody(int code);  ///< "" when none was sent
  std::vector<int> Codes();        ///< of everything but file data

  std::string m_strFileDir;
  bool m_bDurable = false;
  CSharedWord<bool> m_bRoom = true;         ///< the link has room for a packet
  CSharedWord<bool> m_bHold = false;        ///< file data waits while it is being sent
  CSharedWord<bool> m_bHeld = false;        ///< some has begun to wait, or a sender for room
  CSharedWord<bool> m_bRefuseData = false;  ///< file data cannot be sent
};

/// A test of a session on test time, with its inside open and a directory for
/// its files.
class CSessionTest : public testing::Test {
 protected:
  class CSession final : public CTransClient {
   public:
    explicit CSession(ITransNet* net) : CTransClient(net, kClientIp, kClientPort) {}
    using CTransClient::m_strLogFile;
  };

  static void Hand(CTransClient& session, int code, const std::string& body);
  /// Hands over the first of packets that have arrived together. @return the others
  static std::string_view HandFirst(CTransClient& session, std::string_view arrived);
  /// Hands the session a message. @return the body of the last answer to its code
  std::string Ask(int code, const std::string& body = "");
  /// As above: announces a file to receive, or to send, by its name in m_dir.
  std::string AskUpload(bool create, const std::string& name);
  std::string AskDownload(std::int64_t position, const std::string& name);
  void SendChunk(std::int64_t position, const std::string& bytes);
  bool WaitIdle();  ///< until the sender has ended
  std::string Log() { return WithoutTimes(ReadWholeFile(m_session.m_strLogFile)); }

  CScopedSystem m_system{CFaultPlan().ClockFaster(50)};
  CTempDirectory m_dir;
  CFakeTransNet m_net;
  CSession m_session{&m_net};
};
