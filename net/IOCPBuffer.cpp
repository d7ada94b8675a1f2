// Send buffers, and the defaults of the interfaces around them.

#include "net/IOCPBuffer.h"

#include <cstddef>

#include "net/DealNetData.h"
#include "net/LinkInfo.h"

CIOCPBuffer::CIOCPBuffer(int size, bool, bool, int)
    : m_pBuf(new char[static_cast<std::size_t>(size > 0 ? size : 0)]),
      m_nBufSize(size > 0 ? size : 0) {}

CIOCPBuffer::~CIOCPBuffer() {
  delete[] m_pBuf;
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
