#pragma once

#include <array>
#include <cstdint>
#include <functional>

#include "protocol/DataPacket.h"

class CFileHandle;

/// One block of a file on its way into packets: read in one call, straight
/// into the send buffers that carry it.
///
/// Owns the buffers it took until Next hands one out; gives the others back
/// when it is destroyed. Threads: one.
class CDataBlock {
 public:
  using Take = std::function<CIOCPBuffer*()>;
  using GiveBack = std::function<void(CIOCPBuffer*)>;

  /// @param take     returns an empty buffer of kSendBufferBytes; null or an
  ///                 exception when memory is short
  /// @param giveBack takes a buffer that was not sent
  CDataBlock(Take take, GiveBack giveBack);
  CDataBlock(const CDataBlock&) = delete;
  CDataBlock& operator=(const CDataBlock&) = delete;
  ~CDataBlock();

  /// Makes the block what `file` holds next, at most `bytes` of it, 0 to
  /// kReadBlockBytes. What was left of the block before is dropped.
  /// @return bytes read, as CFileHandle::Read does; -1 when a buffer lacks.
  int Read(CFileHandle& file, int bytes);

  /// Shows what was read and not handed out yet, piece by piece.
  void ForEachPiece(const std::function<void(const char* data, int bytes)>& show) const;

  /// Bytes of the next packet's data; 0 when the block is used up.
  int NextBytes() const { return NextPieceBytes(m_nBytesLeft); }

  /// Makes the next packet and hands it over. Needs NextBytes() > 0.
  CIOCPBuffer* Next(int messageCode, KQLonglong position);

 private:
  static constexpr int kMaxPieces = (kReadBlockBytes + kMaxPieceBytes - 1) / kMaxPieceBytes;

  const Take m_take;
  const GiveBack m_giveBack;
  std::array<CIOCPBuffer*, kMaxPieces> m_buffers{};  // null where none was taken
  int m_nNext = 0;                                   // index of the next packet's buffer
  int m_nBytesLeft = 0;                              // of the block
};
