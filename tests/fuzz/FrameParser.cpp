// Frame parser: whatever a peer sends, and however it arrives cut, exactly the
// packets in it are delivered, up to the first malformed head.
//
// Input: seed of the cuts, 2 bytes for the size of a first packet, the bytes.

#include <cstring>
#include <random>

#include "Fuzz.h"
#include "net/AddressLane.h"
#include "net/Link.h"
#include "net/LinkEvents.h"
#include "net/NetWorkCore.h"
#include "net/Sockets.h"
#include "support/RecordingSink.h"

namespace {

class CCuttingSocket : public IStreamSocket {
 public:
  CCuttingSocket(const std::string& bytes, unsigned seed)
      : m_strBytes(bytes),
        m_random(seed),
        m_nLongest(std::max(std::size_t{1} << seed % 21, bytes.size() / 256)) {}

  EIoResult Receive(char* data, std::size_t size, std::size_t& received) override {
    const std::size_t cut = 1 + m_random() % m_nLongest;
    received = std::min({size, cut, m_strBytes.size() - m_nAt});
    std::memcpy(data, m_strBytes.data() + m_nAt, received);
    m_nAt += received;
    return received == 0 ? EIoResult::kClosed : EIoResult::kDone;
  }
  EIoResult Send(const SSlice*, int, std::size_t&) override { return EIoResult::kClosed; }
  void WaitSend(int) override {}
  void Shutdown() override {}
  void SetKeepAlive(int, int, int) override {}
  unsigned int RemoteIP() const override { return 7; }
  int RemotePort() const override { return 9; }

 private:
  const std::string& m_strBytes;
  std::size_t m_nAt = 0;
  std::mt19937 m_random;
  const std::size_t m_nLongest;
};

// What a reader who has all the bytes sees.
std::vector<Packet> PacketsOf(const std::string& bytes) {
  std::vector<Packet> packets{{NET_COMMAND_CONNECT, ""}};
  for (std::size_t at = 0; bytes.size() - at >= 20;) {
    std::uint32_t word[5];
    std::memcpy(word, bytes.data() + at, sizeof word);
    if (bytes.compare(at, 4, "KQFT") != 0 || word[2] != 1) break;
    if (word[3] > bytes.size() - at - 20) break;
    if (word[1] > 1) packets.emplace_back(word[1], bytes.substr(at + 20, word[3]));
    at += 20 + word[3];
  }
  packets.emplace_back(NET_COMMAND_DISCONNECT, "");
  return packets;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  CFuzzInput input(data, size);
  const unsigned seed = input.TakeByte();
  const std::size_t first = (input.TakeByte() << 8 | input.TakeByte()) * std::size_t{24};
  std::string bytes = first > 0 ? MakePacket(2501, std::string(first, 'x')) : "";
  bytes += input.Rest();

  CRecordingSink sink;
  CNetWorkCore core(sink, SNetWorkSettings(), nullptr);
  const auto lane = std::make_shared<CAddressLane>();
  const auto link =
      std::make_shared<CLink>(core, std::make_unique<CCuttingSocket>(bytes, seed), 1, lane);
  link->Deliver(lane->TakeTurn());
  Require(sink.Packets() == PacketsOf(bytes));
  return 0;
}
