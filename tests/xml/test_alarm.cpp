// Alarm reports into ALARM_ITEM records.
#include <gtest/gtest.h>
#include <stddef.h>
#include <string.h>

#include <string>

#include "xml/xmlutil.h"

namespace {

static_assert(sizeof(ALARM_ITEM) == 168, "ALARM_ITEM is 168 bytes");
static_assert(offsetof(ALARM_ITEM, szAlarmData) == 40, "alarm data at 40");

std::string Report(const std::string& param, const std::string& bodyExtra = "") {
  return "<?xml version=\"1.0\" encoding=\"utf-8\" ?>\n<PRIVATE_PROTO>\n"
         "<MESSAGE_HEADER Msg_type=\"ALARM_REPORT_MESSAGE\" Msg_code=\"1\" Msg_flag=\"0\"/>\n"
         "<MESSAGE_BODY>" +
         bodyExtra + "<ALARM_REPORT_PARAM>" + param + "</ALARM_REPORT_PARAM></MESSAGE_BODY>\n</PRIVATE_PROTO>";
}

std::string Item(int second, int code, const std::string& data) {
  return "<ALARM_ITEM><ALARM_TIME Year=\"2024\" Month=\"5\" Day=\"17\" WDay=\"5\" Hour=\"13\" Minute=\"42\" "
         "Second=\"" +
         std::to_string(second) + "\"/><ALARM_INFO Alarm_code=\"" + std::to_string(code) +
         "\" Alarm_flag=\"1\" Alarm_level=\"2\" Alarm_data=\"" + data + "\"/></ALARM_ITEM>";
}

TEST(GetAlarmList, TwoItemsInDocumentOrder) {
  ALARM_ITEM* items = nullptr;
  ASSERT_EQ(2, GetAlarmList(Report(Item(1, 10, "first") + Item(2, 20, "second")).c_str(), &items));
  ASSERT_NE(nullptr, items);
  EXPECT_EQ(2024, items[0].nYear);
  EXPECT_EQ(5, items[0].nMonth);
  EXPECT_EQ(17, items[0].nDay);
  EXPECT_EQ(5, items[0].nWDay);
  EXPECT_EQ(13, items[0].nHour);
  EXPECT_EQ(42, items[0].nMinute);
  EXPECT_EQ(1, items[0].nSecond);
  EXPECT_EQ(10, items[0].nAlarmCode);
  EXPECT_EQ(1, items[0].nAlarmFlag);
  EXPECT_EQ(2, items[0].nAlarmLevel);
  EXPECT_STREQ("first", items[0].szAlarmData);
  EXPECT_EQ(2, items[1].nSecond);
  EXPECT_EQ(20, items[1].nAlarmCode);
  EXPECT_STREQ("second", items[1].szAlarmData);
  delete[] items;
}

TEST(GetAlarmList, InfoWithoutTimeHasZeroTime) {
  ALARM_ITEM* items = nullptr;
  ASSERT_EQ(1, GetAlarmList(Report("<ALARM_ITEM><ALARM_INFO Alarm_code=\"7\" Alarm_data=\"d\"/></ALARM_ITEM>").c_str(),
                            &items));
  EXPECT_EQ(0, items[0].nYear);
  EXPECT_EQ(0, items[0].nMonth);
  EXPECT_EQ(0, items[0].nDay);
  EXPECT_EQ(0, items[0].nWDay);
  EXPECT_EQ(0, items[0].nHour);
  EXPECT_EQ(0, items[0].nMinute);
  EXPECT_EQ(0, items[0].nSecond);
  EXPECT_EQ(7, items[0].nAlarmCode);
  EXPECT_STREQ("d", items[0].szAlarmData);
  delete[] items;
}

TEST(GetAlarmList, OnlyOtherChildrenIsMinusThree) {
  ALARM_ITEM* items = reinterpret_cast<ALARM_ITEM*>(0x1);
  EXPECT_EQ(-3, GetAlarmList(Report("<OTHER/><SRC_INFO Src=\"1\"/>").c_str(), &items));
  EXPECT_EQ(nullptr, items);
  EXPECT_EQ(-3, GetAlarmList(Report("").c_str(), &items));
}

TEST(GetAlarmList, EmptyLevelIsZero) {
  ALARM_ITEM* items = nullptr;
  ASSERT_EQ(1, GetAlarmList(Report("<ALARM_ITEM><ALARM_INFO Alarm_code=\"3\" Alarm_level=\"\" Alarm_flag=\"x\"/>"
                                   "</ALARM_ITEM>")
                                .c_str(),
                            &items));
  EXPECT_EQ(0, items[0].nAlarmLevel);
  EXPECT_EQ(0, items[0].nAlarmFlag);  // not a number
  EXPECT_EQ(3, items[0].nAlarmCode);
  EXPECT_STREQ("", items[0].szAlarmData);
  delete[] items;
}

TEST(GetAlarmList, OtherSiblingsBetweenItemsTakeNoRecord) {
  // Siblings of other names (and a comment) before, between and after the items.
  const std::string param = "<SRC_INFO Src=\"1\" ChannelId=\"2\"/>" + Item(1, 11, "a") + "<X/><!-- note -->" +
                            "<Y>text</Y>" + Item(2, 22, "b") + "<Z/>" + Item(3, 33, "c") + "<W/><W/><W/>";
  ALARM_ITEM* items = nullptr;
  ASSERT_EQ(3, GetAlarmList(Report(param).c_str(), &items));
  EXPECT_EQ(11, items[0].nAlarmCode);
  EXPECT_EQ(22, items[1].nAlarmCode);
  EXPECT_EQ(33, items[2].nAlarmCode);
  EXPECT_STREQ("c", items[2].szAlarmData);
  delete[] items;
}

TEST(GetAlarmList, AlarmDataIsCutToItsField) {
  const std::string longData(300, 'D');
  ALARM_ITEM* items = nullptr;
  ASSERT_EQ(2, GetAlarmList(Report(Item(1, 1, longData) + Item(2, 2, "next")).c_str(), &items));
  EXPECT_EQ(127u, strlen(items[0].szAlarmData));
  EXPECT_EQ(std::string(127, 'D'), items[0].szAlarmData);
  EXPECT_EQ(2024, items[1].nYear);  // the next record is untouched by the long text
  EXPECT_STREQ("next", items[1].szAlarmData);
  delete[] items;
  ASSERT_EQ(1, GetAlarmList(Report(Item(1, 1, std::string(127, 'e'))).c_str(), &items));
  EXPECT_EQ(std::string(127, 'e'), items[0].szAlarmData);
  delete[] items;
}

TEST(GetAlarmList, Failures) {
  ALARM_ITEM* items = nullptr;
  EXPECT_EQ(-1, GetAlarmList("<PRIVATE_PROTO><a></b></PRIVATE_PROTO>", &items));
  EXPECT_EQ(-1, GetAlarmList("", &items));
  EXPECT_EQ(-1, GetAlarmList(nullptr, &items));
  EXPECT_EQ(-2, GetAlarmList("<PRIVATE_PROTO><MESSAGE_HEADER/></PRIVATE_PROTO>", &items));
  EXPECT_EQ(-3, GetAlarmList("<PRIVATE_PROTO><MESSAGE_BODY><OTHER/></MESSAGE_BODY></PRIVATE_PROTO>", &items));
  EXPECT_EQ(nullptr, items);
  EXPECT_EQ(-1, GetAlarmList(Report(Item(1, 1, "a")).c_str(), nullptr));
  // Only the first MESSAGE_BODY is looked at.
  EXPECT_EQ(-3, GetAlarmList(("<P><MESSAGE_BODY/><MESSAGE_BODY><ALARM_REPORT_PARAM>" + Item(1, 1, "a") +
                              "</ALARM_REPORT_PARAM></MESSAGE_BODY></P>")
                                 .c_str(),
                             &items));
}

TEST(GetAlarmListEx, SourceAndChannel) {
  int source = -9, channel = -9;
  ALARM_ITEM* items = nullptr;
  ASSERT_EQ(1, GetAlarmListEx(Report("<SRC_INFO Src=\"4\" ChannelId=\"6\"/>" + Item(1, 5, "x")).c_str(), &items,
                              source, channel));
  EXPECT_EQ(4, source);
  EXPECT_EQ(6, channel);
  EXPECT_EQ(5, items[0].nAlarmCode);
  delete[] items;
}

TEST(GetAlarmListEx, ChannelIdElementGivesZeroAndMissingOnesLeaveOutputs) {
  int source = -9, channel = -9;
  ALARM_ITEM* items = nullptr;
  // The channelid node's own value is its element name, which reads as 0.
  ASSERT_EQ(1, GetAlarmListEx(Report(Item(1, 5, "x"), "<channelid>12</channelid>").c_str(), &items, source,
                              channel));
  EXPECT_EQ(0, channel);
  EXPECT_EQ(-9, source);
  delete[] items;
  source = channel = -9;
  ASSERT_EQ(1, GetAlarmListEx(Report(Item(1, 5, "x")).c_str(), &items, source, channel));
  EXPECT_EQ(-9, source);
  EXPECT_EQ(-9, channel);
  delete[] items;
  // SRC_INFO read even when no item follows.
  EXPECT_EQ(-3, GetAlarmListEx(Report("<SRC_INFO Src=\"1\"/>").c_str(), &items, source, channel));
  EXPECT_EQ(1, source);
  EXPECT_EQ(0, channel);
}

TEST(GetAlarmListEx, MessageBodyMustBeAnElement) {
  int source = 0, channel = 0;
  ALARM_ITEM* items = nullptr;
  // A text node whose value is MESSAGE_BODY is found by the path walk but is no element.
  const char* msg = "<PRIVATE_PROTO>MESSAGE_BODY</PRIVATE_PROTO>";
  EXPECT_EQ(-2, GetAlarmListEx(msg, &items, source, channel));
  EXPECT_EQ(-3, GetAlarmList(msg, &items));
}

}  // namespace
