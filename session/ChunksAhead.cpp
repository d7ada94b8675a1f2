// Chunks ahead: one write for what has arrived together.
//
// What lies behind the packet that is handled is looked at where it was
// received. The packets come one after the other from there, so a chunk that
// was written ahead is known by its place in memory and in the file.

#include "session/ChunksAhead.h"

#include <string_view>
#include <utility>

#include "net/LayerThread.h"
#include "net/NetWorkPackHead.h"
#include "platform/KQFile.h"
#include "protocol/DataPacket.h"
#include "protocol/MessageCodes.h"
#include "protocol/Messages.h"

namespace {

constexpr std::int64_t kMostRunBytes = 1 << 20;  // as many full packets as there may be parts
constexpr std::int64_t kFarthest = INT64_MAX / 2;

// Where the data of the next packet lies, if it is one of a chunk.
std::uintptr_t PlaceBehind(const char* data, int bytes) {
  return reinterpret_cast<std::uintptr_t>(data) + static_cast<std::uintptr_t>(bytes) + kDataOffset;
}

// The data of the packet at the front of what has arrived, which is taken off
// it; empty unless they go on at `position`.
std::string_view TakeChunk(std::string_view& arrived, std::int64_t position) {
  if (arrived.size() < kPackHeadBytes || !CNetWorkPackHead::IsValid(arrived.data())) return {};
  const unsigned code = CNetWorkPackHead::Code(arrived.data());
  const std::size_t bytes = CNetWorkPackHead::BodyLength(arrived.data());
  arrived.remove_prefix(kPackHeadBytes);
  if (code != NET_CTS_TRANSFILEDATA || bytes > arrived.size()) return {};
  const auto chunk = DecodeBody<SFileData>(arrived.data(), static_cast<int>(bytes));
  arrived.remove_prefix(bytes);
  return chunk && chunk->m_llPosition == position ? chunk->m_strData : std::string_view();
}

}  // namespace

void CChunksAhead::Look(std::int64_t position, const char* data, int bytes) {
  m_nParts = 0;
  m_llReach = 0;
  if (IsWritten(position, data, bytes)) return;
  m_parts[0] = {data, static_cast<std::size_t>(bytes)};
  m_nParts = 1;
  if (bytes == 0 || position < 0 || position > kFarthest) return;
  std::string_view arrived = LayerThread().m_strArrived;
  std::int64_t run = bytes;
  for (std::size_t i = 1; i < kMostParts && run < kMostRunBytes; ++i) {
    const std::string_view chunk = TakeChunk(arrived, position + run);
    if (chunk.empty() || run + static_cast<std::int64_t>(chunk.size()) > kMostRunBytes) break;
    m_parts[i] = {chunk.data(), chunk.size()};
    ++m_nParts;
    m_llReach = std::exchange(run, run + static_cast<std::int64_t>(chunk.size()));
  }
}

bool CChunksAhead::Write(CFileHandle& file, std::int64_t position, const char* data, int bytes) {
  if (m_nParts == 1) return file.WriteAt(position, data, bytes);
  if (m_nParts > 1) {
    const int written = file.WriteAt(position, m_parts.data(), m_nParts);
    if (written < bytes) return false;
    m_llEnd = position + written;
  }
  m_llNext = position + bytes;
  m_ullNext = m_llNext < m_llEnd ? PlaceBehind(data, bytes) : 0;
  return true;
}

bool CChunksAhead::IsWritten(std::int64_t position, const char* data, int bytes) const {
  return reinterpret_cast<std::uintptr_t>(data) == m_ullNext && position == m_llNext &&
         bytes <= m_llEnd - position;
}
