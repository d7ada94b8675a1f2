#pragma once

#include "KQFileTransServiceExport.h"

/// A send buffer. Belongs to whoever holds it; once handed to
/// CNetWorkManageEx::DirectSendData it belongs to the network layer until
/// that gives it back through IReleaseBuffer::ReleaseIOCPBuffer.
class KQFT_API CIOCPBuffer {
 public:
  /// @param size capacity in bytes; the other arguments are always
  ///             (true, false, 0) and carry no meaning here.
  CIOCPBuffer(int size, bool, bool, int);
  CIOCPBuffer(const CIOCPBuffer&) = delete;
  CIOCPBuffer& operator=(const CIOCPBuffer&) = delete;
  ~CIOCPBuffer();

  char* m_pBuf;        ///< the byte area; not cleared
  int m_nBufSize;      ///< capacity in bytes
  int m_nDataLen = 0;  ///< bytes of m_pBuf to send
};
