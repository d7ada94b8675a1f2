// File records as XML text.

#include "platform/ChannelKeyValue.h"

#include <gtest/gtest.h>

#include "support/Packets.h"

namespace {

TEST(ChannelKeyValue, TheTextFormIsFixed) {
  Channel_Key_Value record;
  record.m_strPath = "a\\b\n'\"<&>";
  record.m_strName = "\xE4\xB8\xAD";
  record.m_nStatus = -26;
  record.m_llSize = 5000000000;
  EXPECT_EQ(PrintRecords({record}),
            "<Channel_Key_Values>\n<Channel_Key_Value m_strPath=\"a\\b&#10;&apos;&quot;&lt;&amp;"
            "&gt;\" m_strName=\"\xE4\xB8\xAD\" m_nStatus=\"-26\" m_llSize=\"5000000000\"/>\n"
            "</Channel_Key_Values>\n");
  EXPECT_TRUE(ParseRecords(PrintRecords({})).empty());
}

TEST(ChannelKeyValue, ForeignTextIsReadAndWhatIsUnknownKept) {
  const std::string unknown =
      " z='1 &amp; \"2\"' a=\"&#x41;\">\n <Child k=\"1\"><Channel_Key_Value/></Child>"
      "text<!-- </no> --><![CDATA[ <raw> ]]></Channel_Key_Value>\n";
  const std::vector<Channel_Key_Value> records = ParseRecords(
      "\xEF\xBB\xBF<?xml version=\"1.0\"?>\r\n<!-- list -->\n"
      "<Channel_Key_Values version='2'><Other><x/></Other>"
      "<Channel_Key_Value m_llSize = '7700000000'\n m_strName='&#20013;&#xe9;' m_strPath=\"p\" "
      "m_nStatus=\"x\"" +
      unknown + "<Channel_Key_Value></Channel_Key_Value ></Channel_Key_Values >\n<!-- end -->");
  ASSERT_EQ(records.size(), 2U);
  EXPECT_EQ(records[0].m_strName, "\xE4\xB8\xAD\xC3\xA9");
  EXPECT_EQ(records[0].m_llSize, 7700000000);
  EXPECT_EQ(records[0].m_nStatus, 0);
  const std::string printed = PrintRecords(records);
  EXPECT_NE(printed.find("m_llSize=\"7700000000\"" + unknown), std::string::npos) << printed;
  EXPECT_EQ(PrintRecords(ParseRecords(printed)), printed);
}

TEST(ChannelKeyValue, MalformedTextAppendsNothing) {
  const std::string good = "<Channel_Key_Value m_strName=\"a\"/>";
  const std::string open = "<Channel_Key_Values>" + good, close = "</Channel_Key_Values>";
  ASSERT_EQ(ParseRecords(open + close).size(), 1U);
  std::string deep;
  for (int i = 0; i < 100000; ++i) deep += "<d>";
  for (const std::string& bad :
       {std::string(), std::string("garbage"), good, open, open + close + "x", open + deep,
        "<!DOCTYPE l [<!ENTITY e \"x\">]>" + open + close}) {
    EXPECT_TRUE(ParseRecords(bad).empty()) << bad.substr(0, 200);
  }
  for (const char* bad :
       {"</Channel_Key_Value>", "text", "<Channel_Key_Value m_strName=\"a>",
        "<Channel_Key_Value m_strName=a/>", "<Channel_Key_Value a=\"1\"b=\"2\"/>",
        "<Channel_Key_Value a=\"1\" a=\"2\"/>", "<Channel_Key_Value a=\"<\"/>",
        "<Channel_Key_Value a=\"&nbsp;\"/>", "<Channel_Key_Value a=\"&#xD800;\"/>",
        "<Channel_Key_Value a=\"&#99999999;\"/>", "<Channel_Key_Value a=\"\x01\"/>",
        "<Channel_Key_Value><x></y></Channel_Key_Value>"}) {
    EXPECT_TRUE(ParseRecords(open + bad + close).empty()) << bad;
  }
  const std::string whole =
      open + "<Channel_Key_Value>&lt;<x a='&#7;'/></Channel_Key_Value>" + close;
  for (std::size_t i = 0; i < whole.size(); ++i) {
    EXPECT_TRUE(ParseRecords(whole.substr(0, i)).empty()) << i;
  }
}

}  // namespace
