#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "KQFileTransServiceExport.h"

/// One file of a transfer request, or one entry of a list.
///
/// Text form: `<Channel_Key_Values>` with one `<Channel_Key_Value .../>`
/// element per record, its attributes spelled as the members. Every byte from
/// 1 to 255 survives: the five special characters and all bytes below 32 are
/// written as references, bytes from 128 on as they are.
class KQFT_API Channel_Key_Value {
 public:
  std::string m_strPath;  ///< local file (upload) or path below the project directory (download)
  std::string m_strName;  ///< the name under which the server knows the file
  std::int32_t m_nStatus = 0;  ///< 1, or the code that the file's transfer ended with
  std::int64_t m_llSize = 0;   ///< bytes

  /// What the text form carried beyond these members, kept as it was.
  std::string m_strOtherAttributes;
  std::string m_strChildren;

  /// Appends the records of a text. A malformed text appends nothing.
  static void ConvertXMLToValue(const std::string& xml, std::vector<Channel_Key_Value>& out);

  /// Replaces `xml` by the text form of the records.
  static void ConverValueToXML(const std::vector<Channel_Key_Value>& in, std::string& xml);
};
