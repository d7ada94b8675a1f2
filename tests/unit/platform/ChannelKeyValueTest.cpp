// File records as XML text.

#include "platform/ChannelKeyValue.h"

#include "support/TestSystem.h"

namespace {

using Records = std::vector<Channel_Key_Value>;

Records Parse(const std::string& xml) {
  Records records;
  Channel_Key_Value::ConvertXMLToValue(xml, records);
  return records;
}

std::string Print(const Records& records) {
  std::string xml = "replaced";
  Channel_Key_Value::ConverValueToXML(records, xml);
  return xml;
}

TEST(ChannelKeyValue, EveryByteAndEveryNumberSurvivesTheText) {
  Records records(100);
  for (unsigned i = 0; i < records.size(); ++i) {
    records[i].m_strPath = PatternBytes(i, i);
    records[i].m_strName = PatternBytes(i % 31, i + 1000);
    records[i].m_nStatus = i == 0 ? INT32_MIN : INT32_MAX - static_cast<std::int32_t>(i);
    records[i].m_llSize = i == 0 ? INT64_MIN : INT64_MAX - static_cast<std::int64_t>(i);
  }
  records[0].m_strPath = " \t\r\n]]>&amp;<!-- \n ";
  for (int i = 1; i < 256; ++i) records[0].m_strName += static_cast<char>(i);
  const Records back = Parse(Print(records));
  ASSERT_EQ(back.size(), records.size());
  const auto fields = [](const Channel_Key_Value& r) {
    return std::tie(r.m_strPath, r.m_strName, r.m_nStatus, r.m_llSize);
  };
  for (std::size_t i = 0; i < back.size(); ++i) EXPECT_EQ(fields(back[i]), fields(records[i])) << i;
}

TEST(ChannelKeyValue, TheTextFormIsFixed) {
  Channel_Key_Value record;
  record.m_strPath = "a\\b\n'\"<&>";
  record.m_strName = "\xE4\xB8\xAD";
  record.m_nStatus = -26;
  record.m_llSize = 5;
  EXPECT_EQ(Print({record}),
            "<Channel_Key_Values>\n<Channel_Key_Value m_strPath=\"a\\b&#10;&apos;&quot;&lt;&amp;"
            "&gt;\" m_strName=\"\xE4\xB8\xAD\" m_nStatus=\"-26\" m_llSize=\"5\"/>\n"
            "</Channel_Key_Values>\n");
  EXPECT_TRUE(Parse(Print({})).empty());
}

TEST(ChannelKeyValue, ForeignTextIsReadAndWhatIsUnknownKept) {
  const std::string unknown =
      " z='1 &amp; \"2\"' a=\"&#x41;\">\n <Child k=\"1\"><Channel_Key_Value/></Child>"
      "text<!-- </no> --><![CDATA[ <raw> ]]></Channel_Key_Value>\n";
  const Records records = Parse(
      "\xEF\xBB\xBF<?xml version=\"1.0\"?>\r\n<!-- list -->\n"
      "<Channel_Key_Values version='2'><Other><x/></Other>"
      "<Channel_Key_Value m_llSize = '77'\n m_strName='&#20013;&#xe9;' m_strPath=\"p\" "
      "m_nStatus=\"x\"" +
      unknown + "<Channel_Key_Value></Channel_Key_Value ></Channel_Key_Values >\n<!-- end -->");
  ASSERT_EQ(records.size(), 2U);
  EXPECT_EQ(records[0].m_strName, "\xE4\xB8\xAD\xC3\xA9");
  EXPECT_EQ(records[0].m_llSize, 77);
  EXPECT_EQ(records[0].m_nStatus, 0);
  const std::string printed = Print(records);
  EXPECT_NE(printed.find("m_llSize=\"77\"" + unknown), std::string::npos) << printed;
  EXPECT_EQ(Print(Parse(printed)), printed);
}

TEST(ChannelKeyValue, MalformedTextAppendsNothing) {
  const std::string good = "<Channel_Key_Value m_strName=\"a\"/>";
  const std::string open = "<Channel_Key_Values>" + good, close = "</Channel_Key_Values>";
  ASSERT_EQ(Parse(open + close).size(), 1U);
  std::string deep;
  for (int i = 0; i < 100000; ++i) deep += "<d>";
  for (const std::string& bad :
       {std::string(), std::string("garbage"), good, open, open + close + "x", open + deep,
        "<!DOCTYPE l [<!ENTITY e \"x\">]>" + open + close}) {
    EXPECT_TRUE(Parse(bad).empty()) << bad.substr(0, 200);
  }
  for (const char* bad :
       {"</Channel_Key_Value>", "text", "<Channel_Key_Value m_strName=\"a>",
        "<Channel_Key_Value m_strName=a/>", "<Channel_Key_Value a=\"1\"b=\"2\"/>",
        "<Channel_Key_Value a=\"1\" a=\"2\"/>", "<Channel_Key_Value a=\"<\"/>",
        "<Channel_Key_Value a=\"&nbsp;\"/>", "<Channel_Key_Value a=\"&#xD800;\"/>",
        "<Channel_Key_Value a=\"&#99999999;\"/>", "<Channel_Key_Value a=\"\x01\"/>",
        "<Channel_Key_Value><x></y></Channel_Key_Value>"}) {
    EXPECT_TRUE(Parse(open + bad + close).empty()) << bad;
  }
  // Cut anywhere, or with any byte changed: no crash, and only whole records.
  const std::string whole =
      open + "<Channel_Key_Value>&lt;<x a='&#7;'/></Channel_Key_Value>" + close;
  for (std::size_t i = 0; i < whole.size(); ++i) {
    EXPECT_TRUE(Parse(whole.substr(0, i)).empty()) << i;
    std::string changed = whole;
    for (const char byte : {'<', '&', '"', '\0', '>', '/'}) {
      changed[i] = byte;
      EXPECT_LE(Parse(changed).size(), 2U);
    }
  }
}

}  // namespace
