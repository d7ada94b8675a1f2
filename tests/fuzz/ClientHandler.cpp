// The client's receive handler: of whatever a server sends, file data is
// stored where it says and counted, and the rest does no harm.
//
// Input: messages, each a byte for the code and a text for the body.

#include "Fuzz.h"
#include "client/KQFileTransServiceClient.h"
#include "platform/KQFile.h"
#include "protocol/MessageCodes.h"
#include "support/Packets.h"

namespace {

constexpr std::size_t kMostBytes = 1 << 20;

class CFuzzClient : public CKQFileTransServiceClient {
 public:
  explicit CFuzzClient(const std::string& directory) {
    m_strLogDir = directory;
    CreateLogFile();
    m_bStop = false;
    m_bStopReceive = false;
    Require(m_pFile->KQOpen(directory + "file", "w+b"));
  }
  using CKQFileTransServiceClient::m_bStop, CKQFileTransServiceClient::m_llTransBytes;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  CJail jail;
  CFuzzClient client(jail.Root());
  std::string stored;
  std::int64_t counted = 0;
  std::int64_t lost = INT64_MAX;  // from here on a chunk is missing; nothing is stored behind it
  for (CFuzzInput input(data, size); !input.AtEnd();) {
    const unsigned choice = input.TakeByte();
    const int code = choice < 2 ? static_cast<int>(choice) : AnyCode(choice);
    std::string body = input.TakeText();
    if (code == NET_STC_TRANSFILEDATA && body.size() >= 8) {
      // The sign and 19 bits of the position, so that the file stays small.
      const bool negative = body[7] < 0;
      const auto low = static_cast<unsigned char>(body[0]) | static_cast<unsigned char>(body[1])
                                                                 << 8;
      body.replace(0, 8, Int64(negative ? -1 - low : 8 * low));
      const std::size_t bytes = body.size() - 8;
      if (negative && !client.m_bStop) lost = 0;
      if (!client.m_bStop && !negative) counted += static_cast<std::int64_t>(bytes);
      const std::size_t position = 8 * static_cast<std::size_t>(low);
      if (!client.m_bStop && !negative && static_cast<std::int64_t>(position) <= lost) {
        if (lost != INT64_MAX) lost = std::max(lost, static_cast<std::int64_t>(position + bytes));
        if (bytes > 0) stored.resize(std::max(stored.size(), position + bytes));
        stored.replace(position < stored.size() ? position : stored.size(), bytes, body, 8);
      }
    }
    const std::vector<char> exact(body.begin(), body.end());
    client.DealNetMsg(0, 0, code, static_cast<int>(exact.size()), exact.data(), 0);
  }
  Require(stored.size() < kMostBytes && client.m_llTransBytes == counted);
  Require(ReadWholeFile(jail.Root() + "file") == stored);
  return 0;
}
