#include "qvxbase/qvbformat.h"

#include "support/textio.h"

#include <gtest/gtest.h>
#include <rapidcheck.h>

#include <array>
#include <climits>
#include <cstdio>
#include <limits>
#include <string>
#include <tuple>
#include <vector>

namespace {

using namespace std::string_literals;
using namespace std::string_view_literals;

// What the C library makes of the same format and argument.
template<class Value>
std::string expected(const std::string& format, Value value) {
  std::string text(static_cast<std::size_t>(std::snprintf(nullptr, 0, format.c_str(), value)), '\0');
  std::snprintf(text.data(), text.size() + 1, format.c_str(), value);
  return text;
}

// "%" with any flags, width and precision.
rc::Gen<std::string> conversionHead() {
  return rc::gen::apply(
      [](const std::string& flags, int width, int precision) {
        std::string head = "%" + flags;
        head += width > 0 ? std::to_string(width) : "";
        head += precision == -1 ? "." : precision >= 0 ? "." + std::to_string(precision) : "";
        return head;
      },
      rc::gen::container<std::string>(rc::gen::element('-', '+', ' ', '#', '0')), rc::gen::inRange(0, 40),
      rc::gen::inRange(-8, 24));
}

void expectAsInC(const std::string& format, auto value) {
  RC_LOG() << format;
  RC_ASSERT(str(qvbStringFormat(format.c_str(), value)) == expected(format, value));
}

TEST(Format, PrintsEveryArgumentByItsConversion) {
  const QvbString name("name");
  EXPECT_EQ(qvbStringFormat("%d %i %u %x %X %o %c", -1, 2, 3U, 255, 255, 8, 'c'),
            QvbString("-1 2 3 ff FF 10 c"));
  EXPECT_EQ(qvbStringFormat("%s|%s|%S", "text", name, &name), QvbString("text|name|name"));
  EXPECT_EQ(qvbStringFormat("%.2f %e %g %a", 1.5, 1.5, 1.5, 1.5),
            QvbString("1.50 1.500000e+00 1.5 0x1.8p+0"));
  EXPECT_EQ(qvbStringFormat("100%%"), QvbString("100%"));
  EXPECT_EQ(qvbStringFormat("plain"), QvbString("plain"));
}

TEST(Format, MakesAnEmptyTextOfNothing) {
  EXPECT_FALSE(qvbStringFormat("").isNull());
  EXPECT_TRUE(qvbStringFormat("").isEmpty());
  EXPECT_FALSE(qvbStringFormat(nullptr).isNull());
  EXPECT_TRUE(qvbStringFormat(nullptr, 1).isEmpty());
}

TEST(Format, JoinsTextsThroughPointers) {
  const QvbString schema("dbo");
  const QvbString table("CUSTOMERS");
  EXPECT_EQ(qvbStringFormat("%S.%S", &schema, &table), QvbString("dbo.CUSTOMERS"));
}

TEST(Format, KeepsZeroBytesOfTexts) {
  const QvbString bytes("a\0b", 3);
  EXPECT_EQ(qvbStringFormat("<%S>", &bytes).view(), "<a\0b>"sv);
  EXPECT_EQ(qvbStringFormat("<%s>", bytes).view(), "<a\0b>"sv);
  EXPECT_EQ(qvbStringFormat("<%s>", bytes.view()).view(), "<a\0b>"sv);
  EXPECT_EQ(qvbStringFormat("<%c>", 0).view(), "<\0>"sv);
}

TEST(Format, PrintsNothingForANullText) {
  const QvbString null;
  EXPECT_EQ(qvbStringFormat("<%s>", static_cast<const char*>(nullptr)), QvbString("<>"));
  EXPECT_EQ(qvbStringFormat("<%s>", null), QvbString("<>"));
  EXPECT_EQ(qvbStringFormat("<%S>", &null), QvbString("<>"));
  EXPECT_EQ(qvbStringFormat("<%S>", static_cast<const QvbString*>(nullptr)), QvbString("<>"));
}

TEST(Format, LeavesAConversionWithoutAnArgumentAsItStands) {
  EXPECT_EQ(qvbStringFormat("%d"), QvbString("%d"));
  EXPECT_EQ(qvbStringFormat("%s and %-5.3s", "one"), QvbString("one and %-5.3s"));
  EXPECT_EQ(qvbStringFormat("%*d", 5), QvbString("%*d"));
  EXPECT_EQ(qvbStringFormat("%*.*f"), QvbString("%*.*f"));
  EXPECT_EQ(qvbStringFormat("%n"), QvbString("%n"));
}

TEST(Format, LeavesAnUnfinishedOrUnknownConversionAsItStands) {
  EXPECT_EQ(qvbStringFormat("100%", 1), QvbString("100%"));
  EXPECT_EQ(qvbStringFormat("%-5", 1), QvbString("%-5"));
  EXPECT_EQ(qvbStringFormat("%ll", 1), QvbString("%ll"));
  EXPECT_EQ(qvbStringFormat("%y%d", 1), QvbString("%y1"));
  EXPECT_EQ(qvbStringFormat("%5.2!%d", 1), QvbString("%5.2!1"));
}

TEST(Format, IgnoresArgumentsLeftOver) { EXPECT_EQ(qvbStringFormat("%d", 1, 2, "three"), QvbString("1")); }

TEST(Format, WritesNothingForPercentN) {
  int untouched = 7;
  EXPECT_EQ(qvbStringFormat("a%nb%d", &untouched, 3), QvbString("ab3"));
  EXPECT_EQ(untouched, 7);
}

TEST(Format, PrintsAnArgumentOfAnotherTypeByItsOwnValue) {
  const QvbString text("text");
  EXPECT_EQ(qvbStringFormat("%f", 250), QvbString("250.000000"));
  EXPECT_EQ(qvbStringFormat("%.1f", 250U), QvbString("250.0"));
  EXPECT_EQ(qvbStringFormat("%f", INT64_MIN), QvbString("-9223372036854775808.000000"));
  EXPECT_EQ(qvbStringFormat("%.0f", UINT64_MAX), QvbString("18446744073709551615"));
  EXPECT_EQ(qvbStringFormat("%d", "text"), QvbString("text"));
  EXPECT_EQ(qvbStringFormat("%.2x", text), QvbString("text"));
  EXPECT_EQ(qvbStringFormat("%6p|", &text), QvbString("  text|"));
  EXPECT_EQ(qvbStringFormat("%c", text), QvbString("text"));
  EXPECT_EQ(qvbStringFormat("%.1f", "text"), QvbString("text"));
  EXPECT_EQ(qvbStringFormat("%s", 42), QvbString("42"));
  EXPECT_EQ(qvbStringFormat("%.1S", -42), QvbString("-42"));
  EXPECT_EQ(qvbStringFormat("%p", 42), QvbString("42"));
  EXPECT_EQ(qvbStringFormat("%d", 2.5), QvbString("2.5"));
  EXPECT_EQ(qvbStringFormat("%s", 0.1), QvbString("0.1"));
  EXPECT_EQ(qvbStringFormat("%6x|", 2.5), QvbString("   2.5|"));
  EXPECT_EQ(qvbStringFormat("%u", -1), QvbString("-1"));
  EXPECT_EQ(qvbStringFormat("%d", UINT64_MAX), QvbString("18446744073709551615"));
  EXPECT_EQ(qvbStringFormat("%d", true), QvbString("1"));
}

TEST(Format, PrintsTheBitsOfANegativeNumberInItsOwnWidth) {
  EXPECT_EQ(qvbStringFormat("%x", static_cast<signed char>(-1)), QvbString("ff"));
  EXPECT_EQ(qvbStringFormat("%X", static_cast<short>(-1)), QvbString("FFFF"));
  EXPECT_EQ(qvbStringFormat("%x", -1), QvbString("ffffffff"));
  EXPECT_EQ(qvbStringFormat("%lx", -1L), QvbString("ffffffffffffffff"));
  EXPECT_EQ(qvbStringFormat("%o", -1), QvbString("37777777777"));
}

TEST(Format, PrintsPointersInHexadecimal) {
  const int* const address = reinterpret_cast<const int*>(0x1f2e); // NOLINT(performance-no-int-to-ptr)
  EXPECT_EQ(qvbStringFormat("%p", static_cast<const void*>(address)), QvbString("0x1f2e"));
  EXPECT_EQ(qvbStringFormat("0x%p", address), QvbString("0x0x1f2e"));
  EXPECT_EQ(qvbStringFormat("%d", address), QvbString("0x1f2e"));
  EXPECT_EQ(qvbStringFormat("%8p|%-8p|", address, address), QvbString("  0x1f2e|0x1f2e  |"));
  EXPECT_EQ(qvbStringFormat("%p", static_cast<const void*>(nullptr)), QvbString("(nil)"));
}

TEST(Format, PrintsEnumerators) {
  enum class Colour : unsigned char { Red = 200 };
  EXPECT_EQ(qvbStringFormat("%d", Colour::Red), QvbString("200"));
}

TEST(Format, TakesWidthAndPrecisionFromArguments) {
  EXPECT_EQ(qvbStringFormat("%*d|", 5, 42), QvbString("   42|"));
  EXPECT_EQ(qvbStringFormat("%*d|", -5, 42), QvbString("42   |"));
  EXPECT_EQ(qvbStringFormat("%.*f", 1, 2.25), QvbString("2.2"));
  EXPECT_EQ(qvbStringFormat("%.*f", -1, 2.25), QvbString("2.250000"));
  EXPECT_EQ(qvbStringFormat("%*.*s|", 4U, 2U, "text"), QvbString("  te|"));
  EXPECT_EQ(qvbStringFormat("%*d|", "text", 42), QvbString("42|"));
}

TEST(Format, IgnoresLengthModifiers) {
  for (const char* format : {"%hhd", "%hd", "%ld", "%lld", "%jd", "%td", "%zd", "%Ld"})
    EXPECT_EQ(qvbStringFormat(format, INT64_MIN), QvbString("-9223372036854775808")) << format;
}

TEST(Format, BoundsWidthAndPrecision) {
  EXPECT_EQ(qvbStringFormat("%999999999d", 1).length(), 65'536);
  EXPECT_EQ(qvbStringFormat("%-99999999999999999999s", "x").length(), 65'536);
  EXPECT_EQ(qvbStringFormat("%.999999999d", 1).length(), 65'536);
  EXPECT_EQ(qvbStringFormat("%.999999999f", 1.0).length(), 65'538);
  EXPECT_EQ(qvbStringFormat("%*d", INT_MIN, 1).length(), 65'536);
  EXPECT_EQ(qvbStringFormat("%.*d", INT_MAX, 1).length(), 65'536);
}

TEST(Format, NeverCutsATextThatThePrecisionHolds) {
  const QvbString longText(std::string_view(std::string(100'000, 'x')));
  EXPECT_EQ(qvbStringFormat("%.99999s", longText).length(), 99'999);
  EXPECT_EQ(qvbStringFormat("%.99999999999s", longText).length(), 100'000);
}

TEST(Format, PrintsIntegersAsTheCLibraryDoes) {
  EXPECT_TRUE(rc::check([](int value, unsigned magnitude) {
    const std::string head = *conversionHead();
    expectAsInC(head + *rc::gen::element('d', 'i'), value);
    expectAsInC(head + *rc::gen::element('u', 'x', 'X', 'o'), magnitude);
    expectAsInC(head + "d", 0);
    expectAsInC(head + *rc::gen::element('x', 'o'), 0U);
  }));
  EXPECT_TRUE(rc::check([](long long value, unsigned long long magnitude) {
    const std::string head = *conversionHead() + "ll";
    expectAsInC(head + *rc::gen::element('d', 'i'), value);
    expectAsInC(head + *rc::gen::element('u', 'x', 'X', 'o'), magnitude);
  }));
}

// The numbers at which a conversion changes its form.
const std::array<double, 12> special = {0.0,
                                        -0.0,
                                        1.0,
                                        0.5,
                                        1e15,
                                        999999.5,
                                        std::numeric_limits<double>::denorm_min(),
                                        123456.0,
                                        std::numeric_limits<double>::infinity(),
                                        -std::numeric_limits<double>::infinity(),
                                        std::numeric_limits<double>::quiet_NaN(),
                                        std::numeric_limits<double>::max()};
double specialNumber() { return special[*rc::gen::inRange<std::size_t>(0, special.size())]; }

TEST(Format, PrintsRealNumbersAsTheCLibraryDoes) {
  EXPECT_TRUE(rc::check([](double value) {
    const std::string format = *conversionHead() + *rc::gen::element('f', 'F', 'e', 'E');
    expectAsInC(format, value);
    expectAsInC(format, specialNumber());
  }));
  EXPECT_TRUE(rc::check([](double value) {
    std::string format = *conversionHead() + *rc::gen::element('g', 'G');
    std::erase(format, '#'); // C libraries differ here from the standard
    expectAsInC(format, value);
    expectAsInC(format, specialNumber());
  }));
}

TEST(Format, KeepsTheZerosOfTheAlternateGeneralForm) {
  const std::vector<std::tuple<const char*, double, const char*>> table = {
      {"%#g", 1.0, "1.00000"},          {"%#g", 0.0, "0.00000"},
      {"%#g", 999999.5, "1.00000e+06"}, {"%#g", 999999.25, "999999."},
      {"%#g", 0.0001, "0.000100000"},   {"%#g", 0.00001, "1.00000e-05"},
      {"%#.2g", 99.7, "1.0e+02"},       {"%#.0g", 3.0, "3."},
      {"%#.3G", 1e10, "1.00E+10"},      {"%#g", std::numeric_limits<double>::infinity(), "inf"}};
  for (const auto& [format, value, expectedText] : table)
    EXPECT_EQ(qvbStringFormat(format, value), QvbString(expectedText)) << format << ' ' << value;
}

TEST(Format, PrintsHexadecimalRealNumbersAsTheCLibraryDoes) {
  EXPECT_TRUE(rc::check([](double value) {
    const std::string format = *conversionHead() + *rc::gen::element('a', 'A');
    expectAsInC(format, value);
    expectAsInC(format, specialNumber());
  }));
}

TEST(Format, PrintsTextsAndCharactersAsTheCLibraryDoes) {
  EXPECT_TRUE(rc::check([] {
    const auto value = *rc::gen::container<std::string>(rc::gen::inRange('a', 'z'));
    const auto width = std::to_string(*rc::gen::inRange(1, 30));
    const auto precision = std::to_string(*rc::gen::inRange(0, 30));
    for (const std::string& head : {"%" + width, "%-" + width}) {
      expectAsInC(head + "s", value.c_str());
      expectAsInC(head + "." + precision + "s", value.c_str());
      expectAsInC(head + "c", 'x');
    }
  }));
}

TEST(Format, SurvivesEveryFormat) {
  EXPECT_TRUE(rc::check([] {
    const auto format = *rc::gen::container<std::string>(
        rc::gen::weightedOneOf<char>({{3, rc::gen::just('%')},
                                      {6, rc::gen::elementOf("diuoxXcsSpnfFeEgGaA%*.-+ #0123456789hljztL"s)},
                                      {1, rc::gen::arbitrary<char>()}}));
    const QvbString name("name");
    RC_ASSERT(!qvbStringFormat(format.c_str(), -1, 2.5, "text", &name, 7U, static_cast<const void*>(&name))
                   .isNull());
    RC_ASSERT(!qvbStringFormat(format.c_str()).isNull());
  }));
}

TEST(Format, TellsHowManyArgumentsAFormatTakes) {
  const struct {
    const char* format;
    int arguments; // -1 for a "%" that begins no conversion
  } cases[] = {
      {"", 0},           {"plain", 0},     {"100%%", 0},    {"%5%", 0},   {"%s", 1},   {"0x%p, %S", 2},
      {"%-+ #08.3f", 1}, {"%*.*f", 3},     {"%.f%lld", 2},  {"%n%c", 2},  {"%", -1},   {"%y", -1},
      {"100% of", 1},    {"100% yes", -1}, {"%1.2.3d", -1}, {"%**d", -1}, {"%s%", -1}, {"%hhl", -1},
  };
  for (const auto& [format, arguments] : cases) {
    EXPECT_EQ(qvbFormatArguments(format), arguments) << format;
    // and is right: without arguments a conversion prints as it stands, with them it does not
    if (arguments >= 0) {
      EXPECT_EQ(qvbStringFormat(format, 1, 2, 3) == qvbStringFormat(format), arguments == 0) << format;
    }
  }
  static_assert(qvbFormatArguments("compiled: %d of %s") == 2);
}

TEST(EscapeControls, LeavesNothingThatATerminalTakesForAnInstruction) {
  const struct {
    std::string_view text;
    std::string_view shown;
  } cases[] = {
      {"", ""},
      {"plain text", "plain text"},
      {"a\nb\tc", "a\\nb\\tc"},
      {std::string_view("\0\r\x1b[2J\x7f", 7), "\\x00\\x0d\\x1b[2J\\x7f"},
      {"\xc2\x80 \xc2\x9b \xc2\x9f", "\\xc2\\x80 \\xc2\\x9b \\xc2\\x9f"},
      {"\xc2\xa0\xc3\xa9", "\xc2\xa0\xc3\xa9"},
      {"\xe5\x90\x8d \xe2\x80\x93 \xf0\x9f\x98\x80", "\xe5\x90\x8d \xe2\x80\x93 \xf0\x9f\x98\x80"},
      {"\u3028 \u3066", "\u3028 \u3066"},
      {"a\u202e\u2066z", "a\\xe2\\x80\\xae\\xe2\\x81\\xa6z"},
      {"\u2027\u2028\u202f\u2065\u2069\u206a", "\u2027\\xe2\\x80\\xa8\u202f\u2065\\xe2\\x81\\xa9\u206a"},
      {"\x9b", "\\x9b"},
      {"\xa0 \xff\xfe", "\xa0 \xff\xfe"},
      {"\xc2", "\xc2"},
      {"\xe5\x90", "\xe5\\x90"},
      {"\xe0\x82\x9b", "\xe0\\x82\\x9b"},
      {"\xc1\x9b", "\xc1\\x9b"},
      {"\xf0\x80\x82\x9b", "\xf0\\x80\\x82\\x9b"},
  };
  for (const auto& [given, shown] : cases)
    EXPECT_EQ(qvbEscapeControls(given).view(), shown);
}

} // namespace
