#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

/// Where the transfer of a client stands, all of it at one moment.
struct STransferState {
  std::size_t m_nRecord = 0;      ///< which record of the request is in hand
  std::string m_strPath;          ///< its m_strPath; "" before the first one
  std::string m_strName;          ///< its m_strName
  std::int64_t m_llFileDone = 0;  ///< bytes of it that are over, kept ones counted
  std::int64_t m_llFileSize = 0;  ///< of a download what the record's m_llSize says
  std::int64_t m_llDone = 0;      ///< bytes of all records that are over
  std::int64_t m_llTotal = 0;     ///< bytes of all records
};
