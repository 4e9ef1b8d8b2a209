#include <gtest/gtest.h>

#include <string>

#include "wire/ip_fields.h"

using namespace korvane;
using namespace korvane::modIP;

namespace {

TEST(IPFields, WhatAFieldAcceptsWhileTyping) {
  const std::pair<const char*, bool> rows[] = {{"", true},    {"0", true},   {"255", true}, {"256", false},
                                               {"300", false}, {"1234", false}, {"12a", false}, {"-1", false},
                                               {" 1", false},  {"007", true}};
  for (const auto& [text, accepts] : rows) EXPECT_EQ(OctetAccepts(text), accepts) << text;
}

struct SplitRow {
  const char* text;
  bool whole;
  IPFields fields;
};

TEST(IPFields, AWholeAddressFillsAllFourFields) {
  const SplitRow rows[] = {
      {"192.168.0.1", true, {"192", "168", "0", "1"}},
      {" 10.0.0.255 ", true, {"10", "0", "0", "255"}},
      {"", true, {"", "", "", ""}},
      {"10.0.0", false, {}},
      {"10.0.0.1.5", false, {}},
      {"10..0.1", false, {}},
      {"10.0.0.", false, {}},
      {"300.1.1.1", false, {}},
      {"a.b.c.d", false, {}},
      {"10.0.0.1/24", false, {}},
  };
  for (const SplitRow& row : rows) {
    IPFields fields = {"x", "x", "x", "x"};
    EXPECT_EQ(SplitIPFields(row.text, fields), row.whole) << row.text;
    const IPFields untouched = {"x", "x", "x", "x"};
    EXPECT_EQ(fields, row.whole ? row.fields : untouched) << row.text;
    EXPECT_EQ(DottedAddress(row.text), row.whole && *row.text) << row.text;
  }
}

TEST(IPFields, TheValueIsTheDottedText) {
  EXPECT_EQ(JoinIPFields({"192", "168", "0", "1"}), "192.168.0.1");
  EXPECT_EQ(JoinIPFields({"", "", "", ""}), "");
  // Half typed stays half typed, so that the dialog's check refuses it.
  EXPECT_EQ(JoinIPFields({"192", "168", "", ""}), "192.168..");
  EXPECT_FALSE(DottedAddress(JoinIPFields({"192", "168", "", ""})));
}

}  // namespace
