// Send buffers, and the defaults of the interfaces around them.

#include "net/IOCPBuffer.h"

#include <cstddef>
#include <mutex>

#include "net/DealNetData.h"
#include "net/LinkInfo.h"

namespace {

// The size that file data travels in, made and destroyed once a packet.
constexpr int kDataBufferBytes = 65536;

/// Byte areas of destroyed data buffers, for the next ones: the allocator
/// would give such areas back to the system and fault them in again. The one
/// freed last is handed out first, while it is still in a cache.
class CSpareAreas {
 public:
  char* Take() {
    {
      const std::lock_guard<std::mutex> guard(m_mutex);
      if (m_nSpare > 0) return m_spare[--m_nSpare];
    }
    return new char[kDataBufferBytes];
  }

  void Give(char* area) {
    {
      const std::lock_guard<std::mutex> guard(m_mutex);
      if (m_nSpare < kMost) {
        m_spare[m_nSpare++] = area;
        return;
      }
    }
    delete[] area;
  }

 private:
  static constexpr int kMost = 64;

  std::mutex m_mutex;
  char* m_spare[kMost] = {};  // guarded by m_mutex
  int m_nSpare = 0;           // guarded by m_mutex
};

// Never destroyed: a detached thread may free its last buffer at any time.
CSpareAreas& SpareAreas() {
  static auto* const areas = new CSpareAreas;
  return *areas;
}

char* MakeArea(int size) {
  if (size == kDataBufferBytes) return SpareAreas().Take();
  return new char[static_cast<std::size_t>(size > 0 ? size : 0)];
}

}  // namespace

CIOCPBuffer::CIOCPBuffer(int size, bool, bool, int)
    : m_pBuf(MakeArea(size)), m_nBufSize(size > 0 ? size : 0) {}

CIOCPBuffer::~CIOCPBuffer() {
  if (m_nBufSize == kDataBufferBytes) {
    SpareAreas().Give(m_pBuf);
  } else {
    delete[] m_pBuf;
  }
}

bool IReleaseBuffer::ReleaseIOCPBuffer(CIOCPBuffer* buf) {
  delete buf;
  return true;
}

bool IDealNetData::GetExternalBuffer(unsigned int, int, int, char*&, int&, int) {
  return false;
}

bool ILinkInfo::WaitSendRoom(int) {
  return true;
}
