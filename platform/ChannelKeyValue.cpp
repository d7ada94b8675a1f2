// File records as XML text and back.

#include "platform/ChannelKeyValue.h"

#include <algorithm>
#include <iterator>
#include <limits>
#include <string_view>
#include <utility>

#include "platform/GBKUTF8Transfer.h"
#include "platform/KQPlatForm.h"
#include "platform/XmlScanner.h"

namespace {

constexpr std::string_view kListElement = "Channel_Key_Values";
constexpr std::string_view kRecordElement = "Channel_Key_Value";

std::int32_t ToInt32(const std::string& text) {
  using Limits = std::numeric_limits<std::int32_t>;
  return static_cast<std::int32_t>(
      std::clamp<std::int64_t>(CKQPlatForm::KQToLONGLONG(text), Limits::min(), Limits::max()));
}

void SetMember(Channel_Key_Value& record, SXmlAttribute& attribute) {
  if (attribute.m_strName == "m_strPath") {
    record.m_strPath = std::move(attribute.m_strValue);
  } else if (attribute.m_strName == "m_strName") {
    record.m_strName = std::move(attribute.m_strValue);
  } else if (attribute.m_strName == "m_nStatus") {
    record.m_nStatus = ToInt32(attribute.m_strValue);
  } else if (attribute.m_strName == "m_llSize") {
    record.m_llSize = CKQPlatForm::KQToLONGLONG(attribute.m_strValue);
  } else {
    record.m_strOtherAttributes.append(1, ' ').append(attribute.m_strSource);
  }
}

// The attributes of a record and what it holds.
bool ParseRecord(CXmlScanner& scanner, Channel_Key_Value& record) {
  std::vector<std::string_view> names;
  SXmlAttribute attribute;
  EXmlTagEnd end = EXmlTagEnd::kBad;
  while ((end = scanner.TakeTagEnd()) == EXmlTagEnd::kMore) {
    if (!scanner.TakeAttribute(attribute)) return false;
    names.push_back(attribute.m_strName);
    SetMember(record, attribute);
  }
  if (end == EXmlTagEnd::kBad) return false;
  std::sort(names.begin(), names.end());
  if (std::adjacent_find(names.begin(), names.end()) != names.end()) return false;
  if (end == EXmlTagEnd::kEmpty) return true;
  std::string_view children;
  if (!scanner.TakeContent(kRecordElement, children)) return false;
  record.m_strChildren = children;
  return true;
}

// The elements of the list through its end tag; those that are no records
// are passed over.
bool ParseRecords(CXmlScanner& scanner, std::vector<Channel_Key_Value>& records) {
  for (;;) {
    if (!scanner.SkipMisc()) return false;
    if (scanner.Take("</"))
      return scanner.Take(kListElement) && scanner.SkipMisc() && scanner.Take(">");
    std::string_view name;
    if (!scanner.TakeStartTag(name)) return false;
    if (name == kRecordElement) {
      if (!ParseRecord(scanner, records.emplace_back())) return false;
      continue;
    }
    EXmlTagEnd end = EXmlTagEnd::kBad;
    std::string_view ignored;
    if (!scanner.SkipAttributes(end)) return false;
    if (end == EXmlTagEnd::kOpen && !scanner.TakeContent(name, ignored)) return false;
  }
}

bool HoldsForbiddenBytes(std::string_view text) {
  return std::any_of(text.begin(), text.end(), [](char c) {
    return static_cast<unsigned char>(c) < 0x20 && c != '\t' && c != '\n' && c != '\r';
  });
}

bool ParseList(const std::string& xml, std::vector<Channel_Key_Value>& records) {
  if (HoldsForbiddenBytes(xml)) return false;
  CXmlScanner scanner(xml);
  scanner.Take(kUtf8ByteOrderMark);
  std::string_view name;
  EXmlTagEnd end = EXmlTagEnd::kBad;
  if (!scanner.SkipMisc() || !scanner.TakeStartTag(name) || name != kListElement) return false;
  if (!scanner.SkipAttributes(end)) return false;
  if (end == EXmlTagEnd::kOpen && !ParseRecords(scanner, records)) return false;
  return scanner.SkipMisc() && scanner.AtEnd();
}

void AppendAttribute(std::string& xml, std::string_view name, std::string_view value) {
  xml.append(1, ' ').append(name).append("=\"");
  AppendXmlEscaped(xml, value);
  xml += '"';
}

}  // namespace

void Channel_Key_Value::ConvertXMLToValue(const std::string& xml,
                                          std::vector<Channel_Key_Value>& out) {
  std::vector<Channel_Key_Value> records;
  if (!ParseList(xml, records)) return;
  out.insert(out.end(), std::make_move_iterator(records.begin()),
             std::make_move_iterator(records.end()));
}

void Channel_Key_Value::ConverValueToXML(const std::vector<Channel_Key_Value>& in,
                                         std::string& xml) {
  xml.clear();
  xml.append("<").append(kListElement).append(">\n");
  for (const Channel_Key_Value& record : in) {
    xml.append("<").append(kRecordElement);
    AppendAttribute(xml, "m_strPath", record.m_strPath);
    AppendAttribute(xml, "m_strName", record.m_strName);
    AppendAttribute(xml, "m_nStatus", std::to_string(record.m_nStatus));
    AppendAttribute(xml, "m_llSize", std::to_string(record.m_llSize));
    xml += record.m_strOtherAttributes;
    if (record.m_strChildren.empty()) {
      xml += "/>\n";
    } else {
      xml.append(">")
          .append(record.m_strChildren)
          .append("</")
          .append(kRecordElement)
          .append(">\n");
    }
  }
  xml.append("</").append(kListElement).append(">\n");
}
