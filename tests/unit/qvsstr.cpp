#include "qvsstr/qvsstr.h"

#include "support/zone.h"

#include <gtest/gtest.h>
#include <rapidcheck.h>

#include <array>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

namespace {

using Fields = std::optional<std::vector<std::string>>;

Fields split(const std::string& text, char separator = '.', char quote = '"', std::size_t bufferSize = 1024,
             int maxFields = 3) {
  std::vector<char> buffer(bufferSize);
  std::vector<char*> fields(static_cast<std::size_t>(maxFields), nullptr);
  const int count =
      qvs_parse_text_ex2(text.c_str(), separator, quote, buffer.data(), bufferSize, fields.data(), maxFields);
  if (count < 0) {
    EXPECT_EQ(fields, std::vector<char*>(static_cast<std::size_t>(maxFields), nullptr)) << text;
    return std::nullopt;
  }
  return std::vector<std::string>(fields.begin(), fields.begin() + count);
}

struct SplitCase {
  const char* text;
  Fields fields;
};

TEST(Splitting, SeparatesFieldsOutsideQuotes) {
  const SplitCase cases[] = {
      {"", {{""}}},
      {"orders", {{"orders"}}},
      {"dbo.orders", {{"dbo", "orders"}}},
      {"Sales.dbo.orders", {{"Sales", "dbo", "orders"}}},
      {".", {{"", ""}}},
      {"..", {{"", "", ""}}},
      {"a..b", {{"a", "", "b"}}},
      {"\"my.cat\".dbo.t", {{"my.cat", "dbo", "t"}}},
      {"dbo.\"a\"\"b\"", {{"dbo", "a\"b"}}},
      {"\"\"", {{""}}},
      {"\"\"\"\"", {{"\""}}},
      {"\"\".t", {{"", "t"}}},
      {"a\"b.c\"d.e", {{"ab.cd", "e"}}},
      {" a . b ", {{" a ", " b "}}},
      {"\xC3\xA9t\xC3\xA9.\xFF", {{"\xC3\xA9t\xC3\xA9", "\xFF"}}},
  };
  for (const auto& c : cases)
    EXPECT_EQ(split(c.text), c.fields) << c.text;
}

TEST(Splitting, RefusesTooManyFieldsAndUnclosedQuotes) {
  for (const char* text : {"a.b.c.d", "...", "\"a", "a.\"b", "a\"", "\"a\"\"", "a.b.\"c.d"})
    EXPECT_EQ(split(text), std::nullopt) << text;
}

TEST(Splitting, NeedsRoomForEveryFieldAndItsZero) {
  EXPECT_EQ(split("ab.cd", '.', '"', 6), (Fields{{"ab", "cd"}}));
  EXPECT_EQ(split("ab.cd", '.', '"', 5), std::nullopt);
  EXPECT_EQ(split("", '.', '"', 1), (Fields{{""}}));
  EXPECT_EQ(split("", '.', '"', 0), std::nullopt);
  EXPECT_EQ(split(std::string(1023, 'x'))->front().size(), 1023U);
  EXPECT_EQ(split(std::string(1024, 'x')), std::nullopt);
}

TEST(Splitting, TakesOtherSeparatorsAndQuotes) {
  EXPECT_EQ(split("a;'b;c';d", ';', '\''), (Fields{{"a", "b;c", "d"}}));
  EXPECT_EQ(split("\"a.b", ';', '\''), (Fields{{"\"a.b"}}));
}

TEST(Splitting, LaysFieldsOneAfterTheOther) {
  std::array<char, 16> buffer{};
  std::array<char*, 3> fields{};
  ASSERT_EQ(qvs_parse_text_ex2("a.bc", '.', '"', buffer.data(), buffer.size(), fields.data(), 3), 2);
  EXPECT_EQ(fields[0], buffer.data());
  EXPECT_EQ(fields[1], buffer.data() + 2);
  EXPECT_EQ(std::string(buffer.data(), 5), std::string("a\0bc\0", 5));
  EXPECT_EQ(fields[2], nullptr);
}

TEST(Splitting, GivesBackWhateverWasQuoted) {
  const auto quoted = [](const std::string& field) {
    std::string text = "\"";
    for (const char character : field)
      text += character == '"' ? std::string("\"\"") : std::string(1, character);
    return text + '"';
  };
  EXPECT_TRUE(rc::check([&](const std::vector<std::string>& some) {
    std::vector<std::string> fields = {"first"};
    for (const auto& field : some)
      fields.push_back(field.substr(0, field.find('\0')));
    std::string text;
    for (const auto& field : fields)
      text += (text.empty() ? "" : ".") + quoted(field);
    return split(text, '.', '"', text.size() + 1, static_cast<int>(fields.size())) == Fields(fields);
  }));
}

using Elements = std::array<int, 7>;
constexpr Elements Untouched = {-1, -2, -3, -4, -5, -6, -7};

std::optional<Elements> parse(const char* text, int form = 2) {
  Elements e = Untouched;
  if (qvs_string_to_date_milli(text, &e[0], &e[1], &e[2], &e[3], &e[4], &e[5], &e[6], form))
    return e;
  EXPECT_EQ(e, Untouched) << (text ? text : "(null)");
  return std::nullopt;
}

struct DateCase {
  const char* text;
  Elements elements;
};

TEST(Dates, WithoutAZoneAreTakenAsTheyStand) {
  const Zone zone("America/St_Johns");
  const DateCase cases[] = {
      {"2026-11-21T10:15:30.250", {2026, 11, 21, 10, 15, 30, 250}},
      {"2026-11-21 10:15:30.250", {2026, 11, 21, 10, 15, 30, 250}},
      {"2026-11-21T10:15:30", {2026, 11, 21, 10, 15, 30, 0}},
      {"2026-11-21T10:15", {2026, 11, 21, 10, 15, 0, 0}},
      {"2026-11-21", {2026, 11, 21, 0, 0, 0, 0}},
      {"2026-11-21T10:15:30.2", {2026, 11, 21, 10, 15, 30, 200}},
      {"2026-11-21T10:15:30.02", {2026, 11, 21, 10, 15, 30, 20}},
      {"2026-11-21T10:15:30.9999999999", {2026, 11, 21, 10, 15, 30, 999}},
      {"2024-02-29", {2024, 2, 29, 0, 0, 0, 0}},
      {"2000-02-29", {2000, 2, 29, 0, 0, 0, 0}},
      {"0000-01-01", {0, 1, 1, 0, 0, 0, 0}},
      {"9999-12-31T23:59:59.999", {9999, 12, 31, 23, 59, 59, 999}},
      // an hour that clocks skip here
      {"2026-03-08T02:30:00", {2026, 3, 8, 2, 30, 0, 0}},
  };
  for (const auto& c : cases)
    EXPECT_EQ(parse(c.text), c.elements) << c.text;
}

TEST(Dates, WithAZoneBecomeLocalTimeAcrossSummerTime) {
  const Zone zone("America/St_Johns"); // three and a half hours behind, two and a half in summer
  const DateCase cases[] = {
      {"2026-01-15T12:00:00Z", {2026, 1, 15, 8, 30, 0, 0}},
      {"2026-07-15T12:00:00Z", {2026, 7, 15, 9, 30, 0, 0}},
      {"2026-07-15T12:00Z", {2026, 7, 15, 9, 30, 0, 0}},
      {"2026-07-15 12:00:00.125Z", {2026, 7, 15, 9, 30, 0, 125}},
      {"2026-07-15T12:00:00+02:00", {2026, 7, 15, 7, 30, 0, 0}},
      {"2026-07-15T12:00:00+0200", {2026, 7, 15, 7, 30, 0, 0}},
      {"2026-07-15T12:00:00+02", {2026, 7, 15, 7, 30, 0, 0}},
      {"2026-07-15T12:00:00-02:30", {2026, 7, 15, 12, 0, 0, 0}},
      {"2026-07-15T12:00:00-00:00", {2026, 7, 15, 9, 30, 0, 0}},
      {"2026-01-01T00:00:00.001+05:45", {2025, 12, 31, 14, 45, 0, 1}},
      {"2024-03-01T01:00:00Z", {2024, 2, 29, 21, 30, 0, 0}},
      // clocks go forward at 02:00 on 8 March, 05:30 UTC
      {"2026-03-08T05:29:59Z", {2026, 3, 8, 1, 59, 59, 0}},
      {"2026-03-08T05:30:00Z", {2026, 3, 8, 3, 0, 0, 0}},
      // and back at 02:00 on 1 November, 04:30 UTC
      {"2026-11-01T04:29:59Z", {2026, 11, 1, 1, 59, 59, 0}},
      {"2026-11-01T04:30:00Z", {2026, 11, 1, 1, 0, 0, 0}},
      {"2026-11-01T00:30:00-04:00", {2026, 11, 1, 1, 0, 0, 0}},
  };
  for (const auto& c : cases)
    EXPECT_EQ(parse(c.text), c.elements) << c.text;
}

TEST(Dates, RefuseEverythingElse) {
  for (const char* text : {"",
                           " ",
                           "x",
                           "2026",
                           "2026-11",
                           "2026-1-21",
                           "26-11-21",
                           "2026/11/21",
                           "20261121",
                           "2026-11-21T",
                           "2026-11-21 ",
                           " 2026-11-21",
                           "2026-11-21Z",
                           "2026-11-21+02:00",
                           "2026-11-21T10",
                           "2026-11-21T10:",
                           "2026-11-21T10:1",
                           "2026-11-21T10:15:",
                           "2026-11-21T10:15:3",
                           "2026-11-21T10:15:30.",
                           "2026-11-21T10:15.5",
                           "2026-11-21T10:15:30,5",
                           "2026-11-21T10:15:30.25x",
                           "2026-11-21T10:15:30ZZ",
                           "2026-11-21T10:15:30 Z",
                           "2026-11-21T10:15:30z",
                           "2026-11-21t10:15:30",
                           "2026-11-21T10:15:30+",
                           "2026-11-21T10:15:30+2",
                           "2026-11-21T10:15:30+02:",
                           "2026-11-21T10:15:30+02:0",
                           "2026-11-21T10:15:30+02:00x",
                           "2026-11-21T10:15:30+020",
                           "2026-11-21T10:15:30+24:00",
                           "2026-11-21T10:15:30+02:60",
                           "2026-00-21",
                           "2026-13-21",
                           "2026-11-00",
                           "2026-11-31",
                           "2026-02-29",
                           "1900-02-29",
                           "2026-11-21T24:00:00",
                           "2026-11-21T10:60:00",
                           "2026-11-21T10:15:60",
                           "-2026-11-21",
                           "+2026-11-21",
                           "Sat, 21 Nov 2026 10:15:30 GMT"})
    EXPECT_EQ(parse(text), std::nullopt) << text;
  EXPECT_EQ(parse(nullptr), std::nullopt);
}

TEST(Dates, KnowOneFormOnly) {
  for (const int form : {-1, 0, 1, 3})
    EXPECT_EQ(parse("2026-11-21", form), std::nullopt) << form;
}

} // namespace
