// Record XML: what is read from any text is written so that it is read again,
// and every member survives.
//
// Input: a byte that says what it is; then an XML text, or members.

#include <tuple>

#include "Fuzz.h"
#include "support/Packets.h"

namespace {

using Records = std::vector<Channel_Key_Value>;

bool AreEqual(const Records& left, const Records& right) {
  const auto members = [](const Channel_Key_Value& r) {
    return std::tie(r.m_strPath, r.m_strName, r.m_nStatus, r.m_llSize, r.m_strOtherAttributes,
                    r.m_strChildren);
  };
  return std::equal(left.begin(), left.end(), right.begin(), right.end(),
                    [&](const auto& a, const auto& b) { return members(a) == members(b); });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  CFuzzInput input(data, size);
  Records records;
  if (input.TakeByte() % 2 == 0) {
    records = ParseRecords(input.Rest());
  } else {
    while (!input.AtEnd()) {
      Channel_Key_Value& record = records.emplace_back();
      record.m_strPath = input.TakeText();
      record.m_strName = input.TakeText();
      record.m_nStatus = static_cast<std::int32_t>(input.TakeByte() << 24);
      record.m_llSize = static_cast<std::int64_t>(std::uint64_t{input.TakeByte()} << 56);
      for (std::string* text : {&record.m_strPath, &record.m_strName}) {
        std::replace(text->begin(), text->end(), '\0', '0');  // no text form has it
      }
    }
  }
  const std::string xml = PrintRecords(records);
  const Records again = ParseRecords(xml);
  Require(AreEqual(records, again) && xml == PrintRecords(again));
  return 0;
}
