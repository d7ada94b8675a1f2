// The frame parser alone: bytes a second for chunks of several sizes.

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <string>

#include "net/DealNetData.h"
#include "net/NetBuffer.h"
#include "protocol/DataPacket.h"
#include "protocol/MessageCodes.h"

namespace {

constexpr int kPackets = 512;
constexpr double kSecondsPerSize = 0.5;
constexpr std::size_t kChunks[] = {1, 1448, 64 << 10, 1 << 20};

/// Takes every packet and counts its bytes.
class CCounter : public IDealNetData {
 public:
  bool DealNetMsg(unsigned int, int, int, int bodyLen, const char*, int) override {
    m_llBytes += bodyLen + kPackHeadBytes;
    return true;
  }
  CNetBuffer* CreateNetBuffer(unsigned int, int, int, int) override { return nullptr; }

  KQLonglong m_llBytes = 0;
};

std::string MakeStream() {
  std::string stream;
  CIOCPBuffer buffer(kSendBufferBytes, true, false, 0);
  for (int i = 0; i < kPackets; ++i) {
    StartDataPacket(buffer, NET_CTS_TRANSFILEDATA, 0, kMaxPieceBytes);
    std::fill(buffer.m_pBuf + kDataOffset, buffer.m_pBuf + kSendBufferBytes, 'x');
    stream.append(buffer.m_pBuf, kSendBufferBytes);
  }
  return stream;
}

void Measure(const std::string& stream, std::size_t chunk) {
  using Clock = std::chrono::steady_clock;
  CCounter counter;
  CNetBuffer parser(0, 0);
  parser.m_pOwner = &counter;
  // A pass over the stream may take long in small chunks: stop inside it.
  const auto start = Clock::now();
  double seconds = 0;
  KQLonglong fed = 0;
  while (seconds < kSecondsPerSize) {
    for (std::size_t at = 0; at < stream.size() && seconds < kSecondsPerSize;) {
      const std::size_t end = std::min(at + (std::size_t{1} << 20), stream.size());
      for (; at < end; at += chunk) {
        const std::size_t bytes = std::min(chunk, stream.size() - at);
        parser.DealNetData(stream.data() + at, bytes);
        fed += static_cast<KQLonglong>(bytes);
      }
      seconds = std::chrono::duration<double>(Clock::now() - start).count();
    }
    parser.ClearData();
  }
  std::printf("  chunks of %7zu bytes: %8.3f GB/s\n", chunk,
              static_cast<double>(fed) / seconds / 1e9);
  if (counter.m_llBytes > fed) std::printf("  more delivered than received\n");
}

}  // namespace

int main() {
  const std::string stream = MakeStream();
  std::printf("frame parser, packets of %d bytes\n", kSendBufferBytes);
  for (const std::size_t chunk : kChunks) Measure(stream, chunk);
  return 0;
}
