#pragma once

#include "net/IOCPBuffer.h"
#include "net/NetWorkPackHead.h"
#include "platform/ByteOrder.h"
#include "platform/FileDataPos.h"

/// File data travels as packets that fill one send buffer exactly: head,
/// int64 file position, at most kMaxPieceBytes data bytes.

constexpr int kPositionBytes = 8;
constexpr int kSendBufferBytes = 65536;
constexpr int kDataOffset = kPackHeadBytes + kPositionBytes;
constexpr int kMaxPieceBytes = kSendBufferBytes - kDataOffset;
static_assert(kMaxPieceBytes == 65508);

/// Bytes read from a file at a time by either sender.
constexpr int kReadBlockBytes = 1048576;

/// Length of the next packet's data when `remaining` bytes are left.
constexpr int NextPieceBytes(KQLonglong remaining) {
  return remaining < kMaxPieceBytes ? static_cast<int>(remaining) : kMaxPieceBytes;
}

/// Writes head and position into a send buffer and sets its length; the
/// caller fills `pieceBytes` data bytes from kDataOffset on.
inline void StartDataPacket(CIOCPBuffer& buffer, int messageCode, KQLonglong position,
                            int pieceBytes) {
  CNetWorkPackHead head;
  head.SetCode(static_cast<unsigned>(messageCode));
  head.SetBodyLength(static_cast<unsigned>(pieceBytes + kPositionBytes));
  head.CopyTo(buffer.m_pBuf);
  WriteInt64(buffer.m_pBuf + kPackHeadBytes, position);
  buffer.m_nDataLen = pieceBytes + kDataOffset;
}
