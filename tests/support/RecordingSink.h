#pragma once

#include <gtest/gtest.h>

#include <deque>
#include <functional>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "net/DealNetData.h"
#include "net/IOCPBuffer.h"
#include "net/NetBuffer.h"
#include "platform/SharedWord.h"
#include "support/Packets.h"

/// A handler that writes down what a network layer calls it with, and does
/// what a test plans.
class CRecordingSink : public IDealNetData, public CPacketLog {
 public:
  using Plan = std::function<void(const std::string& body)>;

  /// From now on `plan` runs for each event of the code, after that was
  /// written down, on the delivery thread of its link.
  void On(int code, Plan plan);

  bool DealNetMsg(unsigned int ip, int port, int code, int bodyLen, const char* body,
                  int extra) override;
  CNetBuffer* CreateNetBuffer(unsigned int ip, int port, int, int) override;

  /// Keeps the buffer until the end; fails when it comes a second time, or on
  /// the thread that made the sink, which is the one that sends.
  bool ReleaseIOCPBuffer(CIOCPBuffer* buf) override;
  std::size_t Released() const;

  CSharedWord<unsigned int> m_nIP = 0;  ///< of the link with the latest event
  CSharedWord<int> m_nPort = 0;
  CSharedWord<bool> m_bRefuse = false;    ///< CreateNetBuffer answers null
  CNetBuffer* m_pSharedParser = nullptr;  ///< when set, every link gets this one

 private:
  const std::thread::id m_creator = std::this_thread::get_id();
  mutable std::mutex m_mutex;  // guards what follows
  std::map<int, Plan> m_mapPlans;
  std::map<CIOCPBuffer*, std::unique_ptr<CIOCPBuffer>> m_mapReleased;
  std::deque<CNetBuffer> m_parsers;
};
