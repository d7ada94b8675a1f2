#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "net/DealNetData.h"
#include "net/NetBuffer.h"
#include "net/NetWorkManageEx.h"
#include "support/BodyPieces.h"

/// A data server that answers as a test plans. Codes without a plan are
/// answered as by a server that holds nothing and stores everything.
class CFakeServer : public IDealNetData {
 public:
  using Plan = std::function<void(const std::string& body)>;
  using Packet = std::pair<int, std::string>;

  CFakeServer();
  CFakeServer(const CFakeServer&) = delete;
  CFakeServer& operator=(const CFakeServer&) = delete;
  ~CFakeServer() override { Stop(); }

  /// No plan runs after it: what plans refer to may die.
  void Stop() { m_manager.Stop(); }

  int Port() const { return m_manager.GetListenPort(); }

  /// From now on `plan` runs for each message of the code, on the delivery
  /// thread of its link; an empty one stays silent.
  void On(int code, Plan plan);
  void Answer(int code, const std::string& body);
  void Silent(int code) { On(code, nullptr); }

  /// Sends on the newest link; closes all links. Both wait for a first one.
  void Send(int code, const std::string& body = "");
  void Drop();

  /// What arrived so far: all packets; the bodies of one code.
  std::vector<Packet> Packets();
  std::vector<std::string> Bodies(int code);

  /// Waits, at most 20 s, until `times` messages of the code have arrived.
  bool WaitFor(int code, std::size_t times = 1);

  bool DealNetMsg(unsigned int ip, int port, int code, int bodyLen, const char* body,
                  int extra) override;
  CNetBuffer* CreateNetBuffer(unsigned int ip, int port, int, int) override;

 private:
  std::mutex m_mutex;  // guards what follows
  std::condition_variable m_changed;
  std::map<int, Plan> m_mapPlans;
  std::vector<Packet> m_vecPackets;
  std::deque<CNetBuffer> m_parsers;
  unsigned int m_nIP = 0;
  int m_nPort = 0;

  CNetWorkManageEx m_manager;
};
