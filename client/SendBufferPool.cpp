// Send buffers: the pool, and file data cut into packets that fill them.
//
// A sender takes a buffer, fills it and hands it to the network layer, which
// gives it back on a thread of its own through ReleaseIOCPBuffer. The shape
// of the map never changes after construction; only its flags do.

#include <algorithm>
#include <cstring>
#include <memory>
#include <new>

#include "client/ClientState.h"
#include "client/KQFileTransServiceClient.h"
#include "client/PositionMath.h"
#include "client/TransferRun.h"
#include "net/IOCPBuffer.h"
#include "net/LinkInfo.h"
#include "net/NetWorkManageEx.h"
#include "net/RateLimit.h"
#include "platform/KQPlatForm.h"
#include "protocol/DataBlock.h"
#include "protocol/MessageCodes.h"

namespace {

constexpr int kRoomWaitMs = 50;

// When this many buffers are out, each packet is followed by a pause. The
// wait for room keeps real links far below it.
constexpr std::int64_t kBrakeBuffers = 300;
constexpr int kBrakePauseMs = 100;

}  // namespace

bool CKQFileTransServiceClient::ReleaseIOCPBuffer(CIOCPBuffer* p) {
  ReleaseBuffer(p);
  return true;
}

CIOCPBuffer* CKQFileTransServiceClient::GetIOCPBuffer() {
  m_nBufTaken += 1;
  for (auto& [buffer, isFree] : m_mapBuffer) {
    if (isFree && isFree.Claim(true, false)) return buffer;
  }
  try {
    return new CIOCPBuffer(kSendBufferBytes, true, false, 0);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

// Counts every buffer, those of SendMessage included, though only pool
// buffers count as taken; kept on purpose, the brake works on the difference.
void CKQFileTransServiceClient::ReleaseBuffer(CIOCPBuffer* p) {
  m_nBufReleased += 1;
  if (p == nullptr) return;
  if (p->m_nBufSize == kSendBufferBytes) {
    const auto entry = m_mapBuffer.find(p);
    if (entry != m_mapBuffer.end()) {
      entry->second = true;
      return;
    }
  }
  delete p;
}

bool CKQFileTransServiceClient::SendData(std::int64_t llFilePos, const char* pData, int nLength) {
  ILinkInfo* const link = m_pLinkInfo;
  if (link == nullptr || !link->IsLink()) return false;
  while (nLength > 0 && !IsSuperseded()) {
    const int bytes = MayMove(link, NextPieceBytes(nLength));
    CIOCPBuffer* const buffer = GetIOCPBuffer();
    if (buffer == nullptr) {  // counts, as every chunk whose send fails
      m_llTransBytes += bytes;
      return false;
    }
    StartDataPacket(*buffer, NET_CTS_TRANSFILEDATA, llFilePos, bytes);
    std::memcpy(buffer->m_pBuf + kDataOffset, pData, static_cast<std::size_t>(bytes));
    if (!SendPiece(link, buffer, bytes)) return false;
    llFilePos = AddPositions(llFilePos, bytes);
    pData += bytes;
    nLength -= bytes;
  }
  return true;
}

bool CKQFileTransServiceClient::SendBlock(ILinkInfo* link, std::int64_t position,
                                          CDataBlock& block) {
  if (m_pState->m_pRateLimit != nullptr) {  // in pieces of its own
    bool sound = true;
    block.ForEachPiece([&](const char* data, int bytes) {
      sound = sound && SendData(position, data, bytes);
      position = AddPositions(position, bytes);
    });
    return sound;
  }
  for (int bytes = block.NextBytes(); bytes > 0 && !IsSuperseded(); bytes = block.NextBytes()) {
    if (!SendPiece(link, block.Next(NET_CTS_TRANSFILEDATA, position), bytes)) return false;
    position = AddPositions(position, bytes);
  }
  return true;
}

void CKQFileTransServiceClient::SetRateLimit(IRateLimit* limit) {
  m_pState->m_pRateLimit = limit;
  m_pNetWork->SetRateLimit(limit);
}

// Waits for the limit, if there is one. What was read goes at once when a
// worker is stopped, as below.
int CKQFileTransServiceClient::MayMove(const ILinkInfo* link, int bytes) const {
  IRateLimit* const limit = m_pState->m_pRateLimit;
  if (limit == nullptr) return bytes;
  const bool ofWorker = CTransferRun::OfThread() != nullptr;
  int granted = 0;
  while (granted == 0 && link->IsLink() && !(ofWorker && IsTransStopped())) {
    granted = limit->Wait(kRoomWaitMs);
  }
  const int moved = granted == 0 ? bytes : std::min(bytes, granted);
  limit->Moved(static_cast<std::size_t>(moved));
  return moved;
}

// A stop ends the wait for room but not the block: what was read is queued,
// so that the file on the server ends where the count says.
bool CKQFileTransServiceClient::SendPiece(ILinkInfo* link, CIOCPBuffer* buffer, int bytes) {
  while (!link->WaitSendRoom(kRoomWaitMs) && !IsTransStopped()) {
  }
  m_llTransBytes += bytes;
  if (!m_pNetWork->DirectSendData(link, buffer)) return false;
  if (m_nBufTaken - m_nBufReleased >= kBrakeBuffers) CKQPlatForm::KQSleep(kBrakePauseMs);
  return true;
}
