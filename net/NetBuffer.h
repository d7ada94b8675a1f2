#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "KQFileTransServiceExport.h"

class IDealNetData;

/// Bytes that the unfinished large packets of all parsers that share memory
/// (CNetBuffer::ShareMemory) may take together.
constexpr std::size_t kMostUnfinishedBytes = std::size_t{128} << 20;

/// Cuts the byte stream of one link into packets and delivers each to its
/// owner's DealNetMsg.
///
/// Memory grows with the bytes received, never with the length that a head
/// announces, and all parsers of a process that share memory stay within
/// kMostUnfinishedBytes: one that would need more calls its link broken. A
/// packet that lies whole in the received chunk is delivered from there without
/// a copy.
///
/// Threads: DealNetData on one thread at a time; ClearData and the queries on
/// any thread, also while DealNetData delivers. No lock is held during a
/// delivery.
class KQFT_API CNetBuffer {
 public:
  CNetBuffer(unsigned int ip, int port);
  CNetBuffer(const CNetBuffer&) = delete;
  CNetBuffer& operator=(const CNetBuffer&) = delete;
  virtual ~CNetBuffer();

  /// Takes received bytes and delivers every packet that they complete.
  virtual void DealNetData(const char* data, std::uint64_t length);

 protected:
  /// Delivers the complete packets at the start of `data`.
  /// @return bytes used up; -1 when a head is malformed.
  virtual int ParseBuffer(int length, const char* data);

 public:
  /// Forgets a partial packet, its memory and any malformed head. A DealNetData that runs
  /// meanwhile delivers nothing more.
  virtual void ClearData();

  /// Looks at the head at the start of `data`.
  /// @return length of the whole packet; 0 when `length` is less than a head;
  ///         -1 when the head is malformed.
  virtual int ParseBuffer_Common(int length, const char* data);

  /// True once a malformed head or too much arrived: nothing more can be read from the
  /// link. The layer closes it.
  bool IsBroken() const;

  /// Makes unfinished packets count towards the bound that all such parsers
  /// have together. Call before the first byte.
  void ShareMemory();

  /// For the layer: the serial of the link that it serves with this parser.
  void SetLinkSerial(std::uint64_t serial);
  std::uint64_t LinkSerial() const;

  unsigned int m_nLinkIP;            ///< address of the link served; set before its first byte
  int m_nLinkPort;                   ///< remote port of that link
  IDealNetData* m_pOwner = nullptr;  ///< not owned; receives the packets

 private:
  class CGathered;
  struct SState;
  std::uint64_t CompletePartial(CGathered& partial, const char* data, std::uint64_t length);
  void KeepPartial(CGathered& partial, const char* data, std::uint64_t length);
  void Deliver(const char* packet);
  bool IsCleared() const;

  std::unique_ptr<SState> m_pState;  // constant; every further member goes there (docs/abi.md)
};
