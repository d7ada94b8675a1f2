// Blocks of a file, read into send buffers.

#include "protocol/DataBlock.h"

#include <utility>

#include "platform/KQFile.h"
#include "platform/System.h"

CDataBlock::CDataBlock(Take take, GiveBack giveBack)
    : m_take(std::move(take)), m_giveBack(std::move(giveBack)) {}

CDataBlock::~CDataBlock() {
  for (CIOCPBuffer* buffer : m_buffers) {
    if (buffer != nullptr) m_giveBack(buffer);
  }
}

int CDataBlock::Read(CFileHandle& file, int bytes) {
  m_nNext = 0;
  m_nBytesLeft = 0;
  std::array<SReadPart, kMaxPieces> parts{};
  int count = 0;
  for (int left = bytes; left > 0; left -= NextPieceBytes(left)) {
    CIOCPBuffer*& buffer = m_buffers[static_cast<std::size_t>(count)];
    if (buffer == nullptr) buffer = m_take();
    if (buffer == nullptr) return -1;
    parts[static_cast<std::size_t>(count++)] = {buffer->m_pBuf + kDataOffset,
                                                static_cast<std::size_t>(NextPieceBytes(left))};
  }
  m_nBytesLeft = file.Read(parts.data(), count);
  return m_nBytesLeft;
}

void CDataBlock::ForEachPiece(const std::function<void(const char* data, int bytes)>& show) const {
  int left = m_nBytesLeft;
  for (int i = m_nNext; left > 0; ++i) {
    const int bytes = NextPieceBytes(left);
    show(m_buffers[static_cast<std::size_t>(i)]->m_pBuf + kDataOffset, bytes);
    left -= bytes;
  }
}

CIOCPBuffer* CDataBlock::Next(int messageCode, KQLonglong position) {
  const int bytes = NextBytes();
  CIOCPBuffer* const buffer =
      std::exchange(m_buffers[static_cast<std::size_t>(m_nNext++)], nullptr);
  StartDataPacket(*buffer, messageCode, position, bytes);
  m_nBytesLeft -= bytes;
  return buffer;
}
