#include "qvxbase/qvbstring.h"

#include "support/textio.h"

#include <gmock/gmock.h>
#include <rapidcheck.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdio>
#include <limits>
#include <new>
#include <thread>
#include <unordered_set>
#include <utility>
#include <vector>

namespace {

using namespace std::string_view_literals;

// Texts over a few characters, so that searches hit and cases differ.
rc::Gen<std::string> words() {
  return rc::gen::container<std::string>(rc::gen::element('a', 'b', 'A', 'B', ' ', '\t', '\0', 'Z', '\xe9'));
}

std::string lowered(std::string bytes) {
  for (char& c : bytes)
    c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  return bytes;
}

int signOf(int value) { return (value > 0) - (value < 0); }

TEST(QvbString, FitsInTwoRegisters) { EXPECT_LE(sizeof(QvbString), 16U); }

TEST(QvbString, StartsNullAndReadsAsEmptyText) {
  const QvbString null;
  EXPECT_TRUE(null.isNull());
  EXPECT_TRUE(null.isEmpty());
  EXPECT_EQ(null.length(), 0);
  EXPECT_EQ(null.cStrSize(), 1U);
  EXPECT_STREQ(null.asCstr(), "");
  EXPECT_NE(null.view().data(), nullptr);
}

TEST(QvbString, TellsNullFromEmptyByIsNullAlone) {
  const QvbString null;
  const QvbString empty("");
  EXPECT_FALSE(empty.isNull());
  EXPECT_TRUE(empty.isEmpty());
  EXPECT_EQ(null.compare(empty), 0);
  EXPECT_EQ(null, empty);
  EXPECT_FALSE(null < empty);
  EXPECT_FALSE(empty < null);
  EXPECT_LT(null, QvbString("a"));
}

TEST(QvbString, IsNullFromANullPointerAndNeverFromAView) {
  EXPECT_TRUE(QvbString(static_cast<const char*>(nullptr)).isNull());
  EXPECT_TRUE(QvbString(nullptr, 0).isNull());
  EXPECT_FALSE(QvbString(std::string_view()).isNull());
  EXPECT_FALSE(QvbString("", 0).isNull());
}

TEST(QvbString, KeepsEmbeddedZeroBytes) {
  const QvbString bytes("a\0b", 3);
  EXPECT_EQ(bytes.length(), 3);
  EXPECT_EQ(bytes.cStrSize(), 4U);
  EXPECT_EQ(bytes.view(), "a\0b"sv);
  EXPECT_STREQ(bytes.asCstr(), "a");
}

TEST(QvbString, CopiesShareTheBytesUntilOneChanges) {
  QvbString original("Shared");
  QvbString copy = original;
  EXPECT_EQ(static_cast<const void*>(copy.asCstr()), original.asCstr());
  copy.lowercase();
  EXPECT_EQ(original, QvbString("Shared"));
  EXPECT_EQ(copy, QvbString("shared"));
  QvbString appended = original;
  appended.append("!");
  EXPECT_EQ(original, QvbString("Shared"));
  EXPECT_EQ(appended, QvbString("Shared!"));
}

TEST(QvbString, IsNullWhenMovedFrom) {
  QvbString source("text");
  QvbString taken = std::move(source);
  EXPECT_TRUE(source.isNull()); // NOLINT: the state is promised
  QvbString assigned("old");
  assigned = std::move(taken);
  EXPECT_TRUE(taken.isNull()); // NOLINT: as before
  EXPECT_EQ(assigned, QvbString("text"));
}

TEST(QvbString, SurvivesAssignmentToItself) {
  QvbString value("text");
  QvbString& alias = value;
  value = alias;
  EXPECT_EQ(value, QvbString("text"));
  value = std::move(alias);
  EXPECT_EQ(value, QvbString("text"));
  value.assign(value);
  EXPECT_EQ(value, QvbString("text"));
  value.assign(value.asCstr() + 2);
  EXPECT_EQ(value, QvbString("xt"));
}

TEST(QvbString, AssignsDecimalText) {
  const std::vector<std::pair<int, const char*>> table = {{0, "0"},
                                                          {-7, "-7"},
                                                          {std::numeric_limits<int>::max(), "2147483647"},
                                                          {std::numeric_limits<int>::min(), "-2147483648"}};
  for (const auto& [number, expected] : table) {
    QvbString value("old");
    EXPECT_EQ(value.assign(number), QvbString(expected));
  }
}

TEST(QvbString, AssignsNullFromANullPointer) {
  QvbString value("old");
  EXPECT_TRUE(value.assign(static_cast<const char*>(nullptr)).isNull());
}

TEST(QvbString, BecomesNonNullByAppendingNothing) {
  QvbString fromPointer;
  bool ok = false;
  fromPointer.append(static_cast<const char*>(nullptr), &ok);
  EXPECT_FALSE(fromPointer.isNull());
  EXPECT_TRUE(ok);
  QvbString fromNull;
  ok = false;
  fromNull.append(QvbString(), &ok);
  EXPECT_FALSE(fromNull.isNull());
  EXPECT_TRUE(ok);
  EXPECT_FALSE(QvbString().append(""sv).isNull());
  EXPECT_FALSE(QvbString().append(QvbString("")).isNull());
}

TEST(QvbString, AppendsItsOwnBytes) {
  QvbString whole("abc");
  whole.append(whole);
  EXPECT_EQ(whole, QvbString("abcabc"));
  for (int i = 0; i < 8; ++i)
    whole.append(whole.view().substr(1));
  QvbString part("abc");
  part.append(part.asCstr() + 1);
  EXPECT_EQ(part, QvbString("abcbc"));
  QvbString zeroIncluded("ab");
  zeroIncluded.append(std::string_view(zeroIncluded.asCstr(), zeroIncluded.cStrSize()));
  EXPECT_EQ(zeroIncluded.view(), "abab\0"sv);
  zeroIncluded.append(std::string_view(zeroIncluded.asCstr(), zeroIncluded.cStrSize()));
  EXPECT_EQ(zeroIncluded.view(), "abab\0abab\0\0"sv);
}

TEST(QvbString, GrowsByFewAllocationsWhenAppendedTo) {
  QvbString value;
  const void* last = value.asCstr();
  int moves = 0;
  for (int i = 0; i < 100'000; ++i) {
    value.append("x");
    moves += last != value.asCstr();
    last = value.asCstr();
  }
  EXPECT_EQ(value.length(), 100'000);
  EXPECT_LT(moves, 64);
}

TEST(QvbString, StaysWhereItIsAsFarAsThereIsRoom) {
  QvbString value("text");
  const QvbString copy = value;
  value.reserve(1'000);
  const char* const place = value.asCstr();
  EXPECT_EQ(value.reserve(1'000).asCstr(), place);
  while (value.length() < 1'000)
    value.append("x").reserve(10);
  EXPECT_EQ(value.asCstr(), place);
  EXPECT_EQ(value, text("text" + std::string(996, 'x')));
  EXPECT_EQ(copy, QvbString("text"));
  value.reserve(2'000);
  EXPECT_EQ(value, text("text" + std::string(996, 'x')));
  EXPECT_THROW(value.reserve(static_cast<std::size_t>(std::numeric_limits<std::ptrdiff_t>::max())),
               std::bad_alloc);
  EXPECT_EQ(value.length(), 1'000);
  QvbString null;
  EXPECT_TRUE(null.reserve(0).isEmpty());
}

TEST(QvbString, IsJoinedOfPieces) {
  const std::vector<std::vector<std::string_view>> rows{
      {}, {""}, {"", ""}, {"a"}, {"", "ab"sv, "", "c\0d"sv, ""}};
  for (const auto& pieces : rows) {
    std::string expected;
    for (const auto piece : pieces)
      expected += piece;
    EXPECT_EQ(QvbString::joined(pieces).view(), expected);
    EXPECT_FALSE(QvbString::joined(pieces).isNull());
  }
  constexpr auto tooMuch = static_cast<std::size_t>(std::numeric_limits<std::ptrdiff_t>::max());
  const std::string_view huge[] = {"a", std::string_view("b", tooMuch)};
  EXPECT_THROW(QvbString::joined(huge), std::bad_alloc);
}

TEST(QvbString, TellsWhatIsACopyOfIt) {
  QvbString value("text");
  const QvbString copy = value;
  EXPECT_TRUE(value.isSharedWith(copy));
  EXPECT_FALSE(value.isSharedWith("text"));
  EXPECT_FALSE(QvbString().isSharedWith(""));
  value.append("!");
  EXPECT_FALSE(value.isSharedWith(copy));
}

TEST(QvbString, LeavesTheTextAsItWasWhenMemoryCannotBeHad) {
  QvbString value("text");
  constexpr auto tooMuch = static_cast<std::size_t>(std::numeric_limits<std::ptrdiff_t>::max());
  EXPECT_THROW(value.append(std::string_view(value.asCstr(), tooMuch)), std::bad_alloc);
  EXPECT_EQ(value, QvbString("text"));
  EXPECT_THROW(QvbString("text", tooMuch), std::bad_alloc);
}

TEST(QvbString, ReadsTheLongestIntegerPrefix) {
  struct Case {
    std::string_view text;
    int value;
    bool ok;
  };
  const std::vector<Case> table = {
      {"0", 0, true},
      {"42", 42, true},
      {"-42", -42, true},
      {"+42", 42, true},
      {"007", 7, true},
      {" \t\n42", 42, true},
      {"42 ", 42, false},
      {"42x", 42, false},
      {"12.7", 12, false},
      {"0x10", 0, false},
      {"x42", 0, false},
      {"", 0, false},
      {" ", 0, false},
      {"-", 0, false},
      {"+", 0, false},
      {"+-5", 0, false},
      {"-+5", 0, false},
      {"--5", 0, false},
      {"- 5", 0, false},
      {"5\0"sv, 5, false},
      {"2147483647", 2147483647, true},
      {"2147483648", std::numeric_limits<int>::max(), false},
      {"-2147483648", std::numeric_limits<int>::min(), true},
      {"-2147483649", std::numeric_limits<int>::min(), false},
      {"99999999999999999999999", std::numeric_limits<int>::max(), false},
  };
  for (const auto& row : table) {
    SCOPED_TRACE(row.text);
    bool ok = !row.ok;
    EXPECT_EQ(QvbString(row.text).asInt(&ok), row.value);
    EXPECT_EQ(ok, row.ok);
  }
  EXPECT_EQ(QvbString().asInt(), 0);
}

TEST(QvbString, ReadsTheLongestRealPrefix) {
  constexpr double largest = std::numeric_limits<double>::max();
  struct Case {
    std::string_view text;
    double value;
    bool ok;
  };
  const std::vector<Case> table = {
      {"0", 0, true},
      {"2.5", 2.5, true},
      {"-2.5", -2.5, true},
      {"+2.5", 2.5, true},
      {" \t2.5", 2.5, true},
      {"2.5 ", 2.5, false},
      {".5", 0.5, true},
      {"5.", 5, true},
      {"1e3", 1000, true},
      {"1E-2", 0.01, true},
      {"1e", 1, false},
      {"1,5", 1, false},
      {"0x10", 0, false},
      {"", 0, false},
      {".", 0, false},
      {"-", 0, false},
      {"+-1", 0, false},
      {"inf", 0, false},
      {"-inf", 0, false},
      {"nan", 0, false},
      {"information", 0, false},
      {"1e999", largest, false},
      {"-1e999", -largest, false},
      {"1e-999", 0, false},
      {"1e999x", largest, false},
      {"4.9e-324", 4.9e-324, true},
  };
  for (const auto& row : table) {
    SCOPED_TRACE(row.text);
    bool ok = !row.ok;
    EXPECT_EQ(QvbString(row.text).asDouble(&ok), row.value);
    EXPECT_EQ(ok, row.ok);
  }
}

TEST(QvbString, CutsPartsToItsRange) {
  struct Case {
    QvbString::Index start;
    QvbString::Index count;
    const char* expected;
  };
  constexpr auto least = std::numeric_limits<QvbString::Index>::min();
  constexpr auto most = std::numeric_limits<QvbString::Index>::max();
  const std::vector<Case> table = {
      {0, -1, "abcdef"},  {2, -1, "cdef"},      {2, 2, "cd"},     {2, 0, ""},         {4, 9, "ef"},
      {6, -1, ""},        {9, 3, ""},           {-2, 4, "ab"},    {-2, -1, "abcdef"}, {-4, 2, ""},
      {1, -2, ""},        {least, most, ""},    {most, most, ""}, {1, most, "bcdef"}, {most, least, ""},
      {least, least, ""}, {-1, most, "abcdef"},
  };
  const QvbString value("abcdef");
  for (const auto& row : table) {
    SCOPED_TRACE(std::to_string(row.start) + ", " + std::to_string(row.count));
    EXPECT_EQ(value.mid(row.start, row.count), QvbString(row.expected));
    EXPECT_FALSE(value.mid(row.start, row.count).isNull());
    EXPECT_FALSE(QvbString().mid(row.start, row.count).isNull());
  }
}

TEST(QvbString, CutsFromTheRight) {
  const QvbString value("abcdef");
  EXPECT_EQ(value.right(2), QvbString("ef"));
  EXPECT_EQ(value.right(0), QvbString(""));
  EXPECT_EQ(value.right(-3), QvbString(""));
  EXPECT_EQ(value.right(9), value);
  EXPECT_FALSE(QvbString().right(3).isNull());
  EXPECT_FALSE(value.right(0).isNull());
}

TEST(QvbString, FindsNothingAsMinusOne) {
  const QvbString value("a.b.c");
  EXPECT_EQ(value.find("."), 1);
  EXPECT_EQ(value.find(".", 2), 3);
  EXPECT_EQ(value.find(".", -5), 1);
  EXPECT_EQ(value.find(".", 99), -1);
  EXPECT_EQ(value.find("x"), -1);
  EXPECT_EQ(value.rfind("."), 3);
  EXPECT_EQ(value.rfind("x"), -1);
  EXPECT_EQ(QvbString().find("x"), -1);
  EXPECT_EQ(QvbString().rfind("x"), -1);
  EXPECT_EQ(value.find(QvbString()), 0);
  EXPECT_EQ(value.find(static_cast<const char*>(nullptr), 2), 2);
  EXPECT_EQ(value.rfind(QvbString()), 5);
}

TEST(QvbString, TrimsWhiteSpaceOnTheSidesAskedFor) {
  const QvbString value(" \t\r\n\v\fa b\f\v\n\r\t ");
  QvbString both = value;
  EXPECT_EQ(both.trim(), QvbString("a b"));
  QvbString left = value;
  EXPECT_EQ(left.trim(true, false), QvbString("a b\f\v\n\r\t "));
  QvbString right = value;
  EXPECT_EQ(right.trim(false, true), QvbString(" \t\r\n\v\fa b"));
  QvbString neither = value;
  EXPECT_EQ(neither.trim(false, false), value);
  QvbString blank(" \t ");
  EXPECT_TRUE(blank.trim().isEmpty());
  EXPECT_FALSE(blank.isNull());
  EXPECT_TRUE(QvbString().trim().isNull());
  QvbString wide("\xa0"
                 "a");
  EXPECT_EQ(wide.trim(), QvbString("\xa0"
                                   "a"));
}

TEST(QvbString, TrimsOneCharacterOnTheSidesAskedFor) {
  const QvbString value("//a/b//");
  EXPECT_EQ(QvbString(value).trimChar('/', true, true), QvbString("a/b"));
  EXPECT_EQ(QvbString(value).trimChar('/', true, false), QvbString("a/b//"));
  EXPECT_EQ(QvbString(value).trimChar('/', false, true), QvbString("//a/b"));
  EXPECT_EQ(QvbString(value).trimChar('x', true, true), value);
  EXPECT_EQ(QvbString("///").trimChar('/', true, true), QvbString(""));
  EXPECT_TRUE(QvbString().trimChar('/', true, true).isNull());
}

TEST(QvbString, FoldsAsciiLettersOnly) {
  QvbString value("AZ@[az\xc4\xd6");
  EXPECT_EQ(value.lowercase(), QvbString("az@[az\xc4\xd6"));
  EXPECT_TRUE(QvbString().lowercase().isNull());
  EXPECT_EQ(QvbString("AZ").compare("az", true), 0);
  EXPECT_NE(QvbString("AZ").compare("az"), 0);
  EXPECT_NE(QvbString("\xc4").compare("\xe4", true), 0);
  EXPECT_NE(QvbString("@").compare("`", true), 0);
  EXPECT_NE(QvbString("[").compare("{", true), 0);
}

TEST(QvbString, OrdersBytesAsUnsignedNumbers) {
  EXPECT_LT(QvbString("z").compare("\xe9"), 0);
  EXPECT_LT(QvbString("z").compare("\xe9", true), 0);
  EXPECT_LT(QvbString("z"), QvbString("\xe9"));
  EXPECT_LT(QvbString("a").compare("ab", true), 0);
  EXPECT_GT(QvbString("ab").compare("a", true), 0);
  // Folded letters count as lower-case ones, so "_" stands before them.
  EXPECT_GT(QvbString("A").compare("_", true), 0);
  EXPECT_LT(QvbString("A").compare("_"), 0);
  EXPECT_EQ(QvbString().compare(static_cast<const char*>(nullptr)), 0);
}

TEST(QvbString, BehavesAsABytesSequenceUnderAnyChanges) {
  EXPECT_TRUE(rc::check([] {
    const auto bytes = *rc::gen::container<std::vector<std::string>>(words());
    const auto steps = *rc::gen::container<std::vector<int>>(rc::gen::inRange(0, 7));
    std::string model;
    QvbString value("");
    std::vector<std::pair<QvbString, std::string>> copies;
    for (std::size_t i = 0; i < steps.size(); ++i) {
      const std::string& other = bytes.empty() ? model : bytes[i % bytes.size()];
      switch (steps[i]) {
      case 0:
        value.append(std::string_view(other));
        model += other;
        break;
      case 1:
        value.append(value);
        model += std::string(model);
        break;
      case 2:
        value.lowercase();
        model = lowered(model);
        break;
      case 3:
        value = text(other);
        model = other;
        break;
      case 4:
        value.trimChar('a', true, true);
        model.erase(0, std::min(model.find_first_not_of('a'), model.size()));
        model.erase(model.find_last_not_of('a') + 1);
        break;
      case 5:
        value = value.mid(1, 5);
        model = model.empty() ? model : model.substr(1, 5);
        break;
      default:
        copies.emplace_back(value, model);
      }
      RC_ASSERT(value.view() == model);
      RC_ASSERT(value.asCstr()[model.size()] == '\0');
    }
    for (const auto& [copy, bytesThen] : copies)
      RC_ASSERT(copy.view() == bytesThen);
  }));
}

TEST(QvbString, ComparesAndSearchesLikeABytesSequence) {
  EXPECT_TRUE(rc::check([] {
    const std::string a = *words();
    const std::string b = *words();
    const auto start = *rc::gen::inRange<std::size_t>(0, 12);
    const auto index = [](std::size_t found) {
      return found == std::string::npos ? -1 : static_cast<QvbString::Index>(found);
    };
    RC_ASSERT(signOf(text(a).compare(text(b))) == signOf(a.compare(b)));
    RC_ASSERT(signOf(text(a).compare(text(b), true)) == signOf(lowered(a).compare(lowered(b))));
    RC_ASSERT((text(a) < text(b)) == (a < b));
    RC_ASSERT((text(a) == text(b)) == (a == b));
    RC_ASSERT(text(a).find(text(b), static_cast<QvbString::Index>(start)) == index(a.find(b, start)));
    RC_ASSERT(text(a).rfind(text(b)) == index(a.rfind(b)));
  }));
}

TEST(QvbString, ReadsEveryNumberItPrints) {
  EXPECT_TRUE(rc::check([](int number) {
    bool ok = false;
    RC_ASSERT(QvbString().assign(number).asInt(&ok) == number);
    RC_ASSERT(ok);
  }));
  EXPECT_TRUE(rc::check([](double number) {
    char digits[64];
    std::snprintf(digits, sizeof digits, "%.17g", number);
    bool ok = false;
    RC_ASSERT(QvbString(digits).asDouble(&ok) == number);
    RC_ASSERT(ok);
  }));
}

TEST(QvbString, HashesAlikeWhatComparesAsEqualWithoutCase) {
  EXPECT_TRUE(rc::check([] {
    const std::string bytes = *rc::gen::arbitrary<std::string>();
    RC_ASSERT(qvbHashIgnoreCase(bytes) == qvbHashIgnoreCase(lowered(bytes)));
  }));
  for (int code = 0; code < 256; ++code) {
    const std::string one(9, static_cast<char>(code));
    EXPECT_EQ(qvbHashIgnoreCase(one), qvbHashIgnoreCase(lowered(one))) << code;
    EXPECT_NE(qvbHashIgnoreCase(one), qvbHashIgnoreCase(std::string(8, static_cast<char>(code)))) << code;
  }
  EXPECT_NE(qvbHashIgnoreCase("@"), qvbHashIgnoreCase("`"));
  EXPECT_NE(qvbHashIgnoreCase("["), qvbHashIgnoreCase("{"));
  EXPECT_NE(qvbHashIgnoreCase("\xc4"), qvbHashIgnoreCase("\xe4"));
}

TEST(QvbString, KnowsItsHashAfterEveryChange) {
  EXPECT_TRUE(rc::check([](const std::string& first, const std::vector<std::string>& more) {
    QvbString value = text(first);
    for (const std::string& next : more) {
      const QvbString copy = value;
      RC_ASSERT(value.hashIgnoreCase() == qvbHashIgnoreCase(value.view()));
      RC_ASSERT(copy.hashIgnoreCase() == value.hashIgnoreCase());
      value.append(next).append(next);
      RC_ASSERT(value.hashIgnoreCase() == qvbHashIgnoreCase(value.view()));
      value.lowercase().trim();
      RC_ASSERT(value.hashIgnoreCase() == qvbHashIgnoreCase(value.view()));
      value.append(next);
    }
    RC_ASSERT(value.hashIgnoreCase() == qvbHashIgnoreCase(value.view()));
  }));
  EXPECT_EQ(QvbString().hashIgnoreCase(), QvbString("").hashIgnoreCase());
}

// Texts of every length and alignment, alike but for the case of letters and at most one byte.
TEST(QvbString, ComparesWithoutCaseLikeTheLowerCaseTexts) {
  EXPECT_TRUE(rc::check([] {
    const std::string bytes = *rc::gen::oneOf(words(), rc::gen::arbitrary<std::string>());
    std::string other = bytes;
    for (char& c : other)
      if (std::isalpha(static_cast<unsigned char>(c)) && *rc::gen::arbitrary<bool>())
        c = static_cast<char>(c ^ 0x20);
    if (!other.empty() && *rc::gen::arbitrary<bool>())
      other[*rc::gen::inRange<std::size_t>(0, other.size())] = *rc::gen::arbitrary<char>();
    const auto a = std::string_view(bytes).substr(*rc::gen::inRange<std::size_t>(0, bytes.size() + 1));
    const auto b = std::string_view(other).substr(bytes.size() - a.size());
    const auto cut = b.substr(0, *rc::gen::inRange<std::size_t>(0, b.size() + 1));
    for (const std::string_view second : {b, cut, a}) {
      const int order = signOf(lowered(std::string(a)).compare(lowered(std::string(second))));
      RC_ASSERT(signOf(QvbString(a).compare(second, true)) == order);
      RC_ASSERT(signOf(QvbString(second).compare(a, true)) == -order);
      RC_ASSERT(qvbEqualsIgnoreCase(a, second) == (order == 0));
      RC_ASSERT(order != 0 || qvbHashIgnoreCase(a) == qvbHashIgnoreCase(second));
    }
    RC_ASSERT(signOf(QvbString(a).compare(a.substr(0, cut.size()), true)) == (cut.size() < a.size()));
  }));
}

TEST(QvbString, EqualsWithoutCaseExactlyWhatComparesAsEqual) {
  EXPECT_TRUE(rc::check([] {
    const std::string a = *words();
    const std::string b = *rc::gen::oneOf(words(), rc::gen::just(lowered(a)));
    RC_ASSERT(qvbEqualsIgnoreCase(a, b) == (lowered(a) == lowered(b)));
    RC_ASSERT(QvbEqualIgnoreCase()(text(a), text(b)) == qvbEqualsIgnoreCase(a, b));
    RC_ASSERT(QvbHashIgnoreCase()(text(a)) == qvbHashIgnoreCase(a));
  }));
  EXPECT_TRUE(qvbEqualsIgnoreCase({}, ""));
  EXPECT_FALSE(qvbEqualsIgnoreCase("a", "ab"));
  EXPECT_FALSE(qvbEqualsIgnoreCase("Ab"sv, "aB\0"sv));
}

TEST(QvbString, FindsTheKeyOfAHashTableInAnyCase) {
  std::unordered_set<QvbString, QvbHashIgnoreCase, QvbEqualIgnoreCase> keys{"Sales", "", "sales.dbo"};
  EXPECT_TRUE(keys.contains("SALES"));
  EXPECT_TRUE(keys.contains(QvbString()));
  EXPECT_FALSE(keys.contains("sale"));
  EXPECT_FALSE(keys.insert("Sales.DBO").second);
}

TEST(QvbString, IsSharedSafelyBetweenThreads) {
  const QvbString original("The Shared Text");
  std::array<bool, 4> intact{};
  std::array<std::thread, intact.size()> threads;
  for (std::size_t t = 0; t < threads.size(); ++t)
    threads[t] = std::thread([copy = original, &result = intact[t]]() mutable {
      result = true;
      for (int i = 0; i < 5'000; ++i) {
        QvbString mine = copy;
        mine.append("!").lowercase();
        result = result && mine == QvbString("the shared text!") && copy == QvbString("The Shared Text");
        QvbString empty("");
        copy = QvbString(copy);
        result = result && empty.isEmpty();
      }
    });
  for (auto& thread : threads)
    thread.join();
  EXPECT_THAT(intact, testing::Each(true));
  EXPECT_EQ(original, QvbString("The Shared Text"));
}

} // namespace
