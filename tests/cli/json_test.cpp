// The --json writer: strings escaped and made valid UTF-8, numbers that read back, members in the
// order added, and every document readable by a strict reader.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "json.h"
#include "json_read.h"

namespace tvx::cli {
namespace {

TEST(JsonString, EscapesAndRepairsWhatJsonCannotCarry) {
  const struct {
    std::string text, written;
  } cases[] = {
      {"plain", "\"plain\""},
      {"a\"b\\c/", "\"a\\\"b\\\\c/\""},
      {"\n\r\t\b\f\x01\x1f", "\"\\n\\r\\t\\b\\f\\u0001\\u001F\""},
      {"\xD0\x9E\xD1\x88 \xE2\x84\x96 \xF0\x9F\x98\x80", "\"\xD0\x9E\xD1\x88 \xE2\x84\x96 \xF0\x9F\x98\x80\""},
      // A stray continuation byte, a cut sequence, an overlong form, a surrogate.
      {"a\x80z\xD0", "\"a\xEF\xBF\xBDz\xEF\xBF\xBD\""},
      {"\xC0\xAF\xED\xA0\x80", "\"\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\""},
  };
  for (const auto& c : cases) EXPECT_EQ(JsonString(c.text), c.written) << c.text;
}

TEST(Json, NumbersReadBackAndNonFiniteIsNull) {
  const struct {
    Json value;
    std::string written;
  } cases[] = {
      {Json(uint64_t{18446744073709551615u}), "18446744073709551615"},
      {Json(int32_t{-5}), "-5"},
      {Json(1200025000.01), "1200025000.01"},
      {Json(1e7), "10000000"},
      {Json(-2.5e-9), "-2.5e-09"},
      {Json(37.33204f), "37.33204"},
      {Json(std::nan("")), "null"},
      {Json(std::numeric_limits<double>::infinity()), "null"},
      {Json(std::optional<double>{}), "null"},
      {Json(true), "true"},
  };
  for (const auto& c : cases) EXPECT_EQ(c.value.Dump(), c.written + "\n");
}

TEST(Json, ADocumentReadsBackInTheOrderBuilt) {
  Json doc = Json::Object();
  doc["text"] = "say \"hi\"\t\x01";
  AddNulls(doc, {"list", "nothing"});
  Json& list = doc["list"] = Json::Array();
  list.Push(1);
  list.Push(Json::Object())["inner"] = -0.5;
  json_read::Value read;
  ASSERT_TRUE(json_read::Parse(doc.Dump(), &read)) << doc.Dump();
  EXPECT_EQ(read.keys, (std::vector<std::string>{"text", "list", "nothing"}));
  EXPECT_EQ(read["text"].text, "say \"hi\"\t\x01");
  ASSERT_EQ(read["list"].items.size(), 2u);
  EXPECT_EQ(read["list"].items[1]["inner"].number, -0.5);
  EXPECT_EQ(read["nothing"].kind, json_read::Value::kNull);
}

}  // namespace
}  // namespace tvx::cli
