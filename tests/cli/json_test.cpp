// The --json writer: what it adds to nlohmann's — bytes that are not UTF-8 made valid, whole
// doubles and floats in their short form, absent and non-finite values as null — and a
// document that reads back in the order it was built.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "json.h"

namespace tvx::cli {
namespace {

TEST(Json, ValuesAreWrittenInTheDocumentsForm) {
  const std::string bad = "\xEF\xBF\xBD";   // U+FFFD
  const struct {
    Json value;
    std::string written;
  } cases[] = {
      {"a\"b\\c/\n\x01", R"("a\"b\\c/\n\u0001")"},
      {"\xD0\x9E\xD1\x88 \xF0\x9F\x98\x80", "\"\xD0\x9E\xD1\x88 \xF0\x9F\x98\x80\""},
      // A stray continuation byte, a cut sequence, an overlong form, a surrogate: one U+FFFD
      // a byte.
      {"a\x80z\xD0", "\"a" + bad + "z" + bad + "\""},
      {"\xC0\xAF\xED\xA0\x80", "\"" + bad + bad + bad + bad + bad + "\""},
      {uint64_t{18446744073709551615u}, "18446744073709551615"},
      {1200025000.01, "1200025000.01"},
      {1e7, "10000000"},
      {-2.5e-9, "-2.5e-09"},
      {37.33204f, "37.33204"},
      {std::nan(""), "null"},
      {std::numeric_limits<double>::infinity(), "null"},
      {std::optional<double>{}, "null"},
      {std::optional<float>{41.5f}, "41.5"},
  };
  for (const auto& c : cases) EXPECT_EQ(Dump(c.value), c.written + "\n");
}

TEST(Json, ADocumentReadsBackInTheOrderBuilt) {
  Json doc = Json::object();
  doc["text"] = "say \"hi\"\t\x01";
  AddNulls(doc, {"list", "nothing"});
  Json& list = doc["list"] = Json::array();
  list.emplace_back(1);
  list.emplace_back(Json::object())["inner"] = -0.5;
  const std::string text = Dump(doc);
  EXPECT_EQ(text.substr(0, 34), "{\n  \"text\": \"say \\\"hi\\\"\\t\\u0001\",\n");
  const Json read = Json::parse(text);
  EXPECT_EQ(read, doc);
  std::vector<std::string> keys;
  for (const auto& item : read.items()) keys.push_back(item.key());
  EXPECT_EQ(keys, (std::vector<std::string>{"text", "list", "nothing"}));
}

}  // namespace
}  // namespace tvx::cli
