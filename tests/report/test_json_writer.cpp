// SPDX-License-Identifier: Apache-2.0
#include "report/json_writer.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <nlohmann/json.hpp>

namespace {

std::string text_of(const std::function<void(JsonWriter&)>& write) {
  std::string text;
  JsonWriter json([&text](std::string_view piece) { text += piece; });
  write(json);
  json.flush();
  return text;
}

std::string string_of(std::string_view value) {
  return text_of([value](JsonWriter& json) { json.text(value); });
}

TEST(JsonWriter, NestsObjectsAndArrays) {
  const std::string text = text_of([](JsonWriter& json) {
    json.begin_object();
    json.member("a", int64_t{1});
    json.key("b");
    json.begin_array();
    json.null();
    json.boolean(true);
    json.begin_object();
    json.end_object();
    json.begin_array();
    json.end_array();
    json.end_array();
    json.member("c", "x");
    json.end_object();
  });
  EXPECT_EQ(nlohmann::json::parse(text), nlohmann::json::parse(R"({"a":1,"b":[null,true,{},[]],"c":"x"})"));
}

TEST(JsonWriter, NumbersReadBackToTheirBits) {
  for (const double value : {0.1, 1.0 / 3.0, 1e300, 5e-324, -0.0, 123456789012345678.0, 1e22}) {
    const std::string text = text_of([value](JsonWriter& json) { json.number(value); });
    EXPECT_EQ(nlohmann::json::parse(text).get<double>(), value) << text;
  }
  EXPECT_EQ(text_of([](JsonWriter& json) { json.number(std::nan("")); }), "null");
  EXPECT_EQ(text_of([](JsonWriter& json) { json.number(-std::numeric_limits<double>::infinity()); }),
            "\"-Inf\"");
}

TEST(JsonWriter, NothingInAStringEndsAScript) {
  for (const std::string text :
       {"</script>", "<!--<script>", "a&b", "\"\\/", "\x01\x1f\x7f", "\xe2\x80\xa8\xe2\x80\xa9"}) {
    const std::string written = string_of(text);
    EXPECT_EQ(nlohmann::json::parse(written).get<std::string>(), text);
    for (const char* dangerous : {"<", ">", "&", "\xe2\x80\xa8"}) {
      EXPECT_EQ(written.find(dangerous), std::string::npos) << written;
    }
  }
}

TEST(JsonWriter, BytesThatAreNoUtf8AreReplaced) {
  const struct {
    std::string bytes;
    std::string text;
  } cases[] = {{"a\xff"
                "b",
                "a\xef\xbf\xbd"
                "b"},
               {"\xc3", "\xef\xbf\xbd"},                                  // cut short
               {"\xc0\xaf", "\xef\xbf\xbd\xef\xbf\xbd"},                  // a longer form of /
               {"\xed\xa0\x80", "\xef\xbf\xbd\xef\xbf\xbd\xef\xbf\xbd"},  // a surrogate
               {"\xf4\x90\x80\x80", "\xef\xbf\xbd\xef\xbf\xbd\xef\xbf\xbd\xef\xbf\xbd"},  // beyond Unicode
               {"\xc3\xa4\xe2\x82\xac\xf0\x9f\xa7\xac", "\xc3\xa4\xe2\x82\xac\xf0\x9f\xa7\xac"}};
  for (const auto& one : cases) {
    EXPECT_EQ(nlohmann::json::parse(string_of(one.bytes)).get<std::string>(), one.text);
  }
}

TEST(JsonWriter, HandsOutLongTextInPieces) {
  int pieces = 0;
  std::string text;
  {
    JsonWriter json([&](std::string_view piece) {
      pieces += piece.empty() ? 0 : 1;
      text += piece;
    });
    json.begin_array();
    for (int i = 0; i < 100000; ++i) {
      json.integer(i);
    }
    json.end_array();
  }
  EXPECT_GT(pieces, 3);
  EXPECT_EQ(nlohmann::json::parse(text).size(), 100000u);
}

}  // namespace
