#pragma once

#include <cstddef>
#include <deque>
#include <memory>
#include <vector>

#include "platform/ChannelKeyValue.h"

class CFileHandle;

/// The files that an upload reads next: opened, and being read from the disk,
/// while one before them is sent.
///
/// Threads: one.
class CReadAhead {
 public:
  /// @param records of the upload; outlive the object
  explicit CReadAhead(const std::vector<Channel_Key_Value>& records) : m_records(records) {}

  /// The file of a record. Those behind it follow as a rule.
  /// @return null when it cannot be opened
  std::shared_ptr<CFileHandle> Take(std::size_t record);

 private:
  const std::vector<Channel_Key_Value>& m_records;
  std::size_t m_nFirst = 0;                           // the record of the first one
  std::deque<std::shared_ptr<CFileHandle>> m_opened;  // null: cannot be, or is to be when it is due
};
