#pragma once

#include <cstdint>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "platform/ChannelKeyValue.h"

/// Pieces of message bodies, to be joined with "+".
std::string Int32(std::int32_t value);
std::string Int64(std::int64_t value);

/// A whole packet as it travels.
std::string MakePacket(int code, const std::string& body = "");

/// The records of an XML text, and the text of records.
std::vector<Channel_Key_Value> ParseRecords(const std::string& xml);
std::string PrintRecords(const std::vector<Channel_Key_Value>& records);

/// Code and body.
using Packet = std::pair<int, std::string>;

/// Packets that any threads write down, and those that look at them.
class CPacketLog {
 public:
  void Add(int code, const std::string& body);
  void Clear();
  std::vector<Packet> Packets() const;
  std::vector<std::string> Bodies(int code) const;
  std::size_t Count(int code) const;

  /// Waits, at most 60 s, until `times` packets of the code are there.
  bool WaitFor(int code, std::size_t times = 1) const;

 private:
  mutable std::mutex m_mutex;
  std::vector<Packet> m_vecPackets;  // guarded by m_mutex
};
