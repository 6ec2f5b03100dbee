// The text of a URI by its components: what reading, encoding and changing it make of every byte and every absence.
#include "qvxbase/private/qvuritext.h"

#include <gtest/gtest.h>
#include <rapidcheck.h>

#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>
#include <vector>

namespace {

using namespace std::string_literals;
using Component = std::optional<std::string>;

QvUriText parsed(std::string_view text) {
  auto uri = QvUriText::parse(text);
  EXPECT_TRUE(uri) << text;
  return uri.value_or(QvUriText());
}

auto componentsOf(const QvUriText& uri) {
  return std::tie(uri.scheme, uri.authority, uri.path, uri.query, uri.fragment);
}

std::string everyByte() {
  std::string bytes;
  for (int byte = 0; byte < 256; ++byte)
    bytes += static_cast<char>(byte);
  return bytes;
}

// The bytes that the encoder leaves as they are.
std::string keptBy(std::string (*encode)(std::string_view)) {
  std::string kept;
  for (const char byte : everyByte())
    if (encode({&byte, 1}) == std::string(1, byte))
      kept += byte;
  return kept;
}

const std::string digitsAndLetters = "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZ_abcdefghijklmnopqrstuvwxyz~";

// Components

TEST(UriText, KeepsWhichComponentsAreAbsentAndWhichAreEmpty) {
  const struct {
    const char* text;
    Component authority;
    const char* path;
    Component query;
    Component fragment;
  } rows[] = {
      {"xx:", std::nullopt, "", std::nullopt, std::nullopt},
      {"xx:/a", std::nullopt, "/a", std::nullopt, std::nullopt},
      {"xx://", "", "", std::nullopt, std::nullopt},
      {"xx:///a", "", "/a", std::nullopt, std::nullopt},
      {"xx:////a", "", "//a", std::nullopt, std::nullopt},
      {"xx:?", std::nullopt, "", "", std::nullopt},
      {"xx:#", std::nullopt, "", std::nullopt, ""},
      {"xx://?#", "", "", "", ""},
      {"xx:a?b?c#d#e", std::nullopt, "a", "b?c", "d%23e"},
      {"xx:a#b?c", std::nullopt, "a", std::nullopt, "b?c"},
      {"xx:a:b//c", std::nullopt, "a:b//c", std::nullopt, std::nullopt},
      {"xx://h:1?/#/", "h:1", "", "/", "/"},
  };
  for (const auto& row : rows) {
    const QvUriText uri = parsed(row.text);
    EXPECT_EQ(uri.scheme, "xx") << row.text;
    EXPECT_EQ(uri.authority, row.authority) << row.text;
    EXPECT_EQ(uri.path, row.path) << row.text;
    EXPECT_EQ(uri.query, row.query) << row.text;
    EXPECT_EQ(uri.fragment, row.fragment) << row.text;
  }
}

TEST(UriText, PutTogetherAndReadAgainHasTheSameComponents) {
  const auto piece = rc::gen::container<std::string>(rc::gen::elementOf("/:@?#[]%41&= .aZ\xC3\xA9\0"s));
  EXPECT_TRUE(rc::check([&] {
    const QvUriText uri = parsed("xx:" + *piece);
    const QvUriText again = parsed(uri.toString());
    return componentsOf(again) == componentsOf(uri) && again.toString() == uri.toString();
  }));
}

TEST(UriText, SchemeBeginsWithALetterAndHasTwoCharacters) {
  for (const char* scheme : {"ab", "a1", "A+", "z-.", "qvr"})
    EXPECT_TRUE(qvIsUriScheme(scheme)) << scheme;
  for (const char* other : {"", "a", "1a", "+a", "a_b", "a b", "a/", "\xC3\xA9t"})
    EXPECT_FALSE(qvIsUriScheme(other)) << other;
  EXPECT_FALSE(qvIsUriScheme("ab\0"s));
}

// Encoding

TEST(UriText, SchemeStandsBeforeTheFirstColon) {
  EXPECT_EQ(qvUriSchemeOf("http://host"), "http");
  EXPECT_EQ(qvUriSchemeOf("ab:cd:ef"), "ab");
  EXPECT_EQ(qvUriSchemeOf("ab:"), "ab");
  for (const char* text : {"", "ab", ":ab", "a:b", "a/b:c", "1b:c"})
    EXPECT_EQ(qvUriSchemeOf(text), "") << text;
}

TEST(UriText, EachPlaceKeepsTheBytesThatItAllows) {
  EXPECT_EQ(keptBy([](std::string_view text) { return qvEncodeUriName(text); }), "-." + digitsAndLetters);
  EXPECT_EQ(keptBy([](std::string_view text) { return qvEncodeUriPath(text, QvPercent::Literal); }),
            "!$&'()*+,-./0123456789:;=@" + digitsAndLetters.substr(10));
  // alone, a bracket, a colon or an at sign is no part of user@host:port
  EXPECT_EQ(keptBy([](std::string_view text) { return qvEncodeUriAuthority(text, QvPercent::Literal); }),
            "!$&'()*+,-.0123456789:;=@" + digitsAndLetters.substr(10));
}

TEST(UriText, EncodedBytesHaveTwoCapitalDigits) {
  EXPECT_EQ(qvEncodeUriName("a/\xAB\n"s), "a%2F%AB%0A");
  EXPECT_EQ(qvEncodeUriName(""), "");
  EXPECT_EQ(qvEncodeUriName("\0"s), "%00");
}

TEST(UriText, APercentIsAByteOfDataOrTheBeginningOfAnEncodedOne) {
  const struct {
    const char* text;
    const char* literal;
    const char* encoding;
  } rows[] = {
      {"%41", "%2541", "%41"},        {"%4", "%254", "%254"},    {"%", "%25", "%25"},
      {"%%41", "%25%2541", "%25%41"}, {"%zz", "%25zz", "%25zz"}, {"a%aFb", "a%25aFb", "a%aFb"},
      {" %20", "%20%2520", "%20%20"},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(qvEncodeUriPath(row.text, QvPercent::Literal), row.literal);
    EXPECT_EQ(qvEncodeUriPath(row.text, QvPercent::Encoding), row.encoding);
  }
}

TEST(UriText, AnAuthorityThatIsNoServerIsEncodedAsAName) {
  EXPECT_EQ(qvEncodeUriAuthority("user@host:80", QvPercent::Literal), "user@host:80");
  EXPECT_EQ(qvEncodeUriAuthority("[::1]:80", QvPercent::Literal), "[::1]:80");
  EXPECT_EQ(qvEncodeUriAuthority("a:b:c", QvPercent::Literal), "a%3Ab%3Ac");
  EXPECT_EQ(qvEncodeUriAuthority("[x]%20", QvPercent::Encoding), "%5Bx%5D%20");
  EXPECT_EQ(qvEncodeUriAuthority("[x]%20", QvPercent::Literal), "%5Bx%5D%2520");
}

TEST(UriText, DecodingUndoesEveryEncoding) {
  EXPECT_TRUE(rc::check([](const std::string& bytes) {
    return qvDecodeUri(qvEncodeUriName(bytes)) == bytes &&
           qvDecodeUri(qvEncodeUriPath(bytes, QvPercent::Literal)) == bytes &&
           qvDecodeUri(qvEncodeUriAuthority(bytes, QvPercent::Literal)) == bytes;
  }));
  EXPECT_EQ(qvDecodeUri(qvEncodeUriName(everyByte())), everyByte());
}

TEST(UriText, DecodingLeavesWhatIsNotEncoded) {
  for (const char* text : {"", "a+b", "%", "%4", "%zz", "100%"})
    EXPECT_EQ(qvDecodeUri(text), text);
  EXPECT_EQ(qvDecodeUri("%41%4a%4A%0d%0A+%25%34%31"), "AJJ\r\n+%41");
}

// Parameters

TEST(UriText, ParameterIsTheFirstOfItsName) {
  const QvUriText uri = parsed("xx:?&=none&a&b=&c=1&c=2&%64=e%3Df&&last");
  const std::vector<std::pair<const char*, Component>> rows = {{"", "" /* the empty entry at the front */},
                                                               {"a", ""},
                                                               {"b", ""},
                                                               {"c", "1"},
                                                               {"d", "e=f"},
                                                               {"last", ""},
                                                               {"%64", std::nullopt},
                                                               {"C", std::nullopt},
                                                               {"1", std::nullopt}};
  for (const auto& [name, value] : rows)
    EXPECT_EQ(uri.parameter(name), value) << name;
  EXPECT_EQ(parsed("xx:#a=1").parameter("a"), std::nullopt);
  EXPECT_EQ(parsed("xx:?").parameter(""), std::nullopt);
}

TEST(UriText, ParameterThatIsSetStandsOnce) {
  const struct {
    const char* text;
    const char* changed;
  } rows[] = {
      {"xx:p", "xx:p?n=v%20%2B"},
      {"xx:p?#f", "xx:p?n=v%20%2B#f"},
      {"xx:?n", "xx:?n=v%20%2B"},
      {"xx:?n=1&n=2&n", "xx:?n=v%20%2B"},
      {"xx:?a&n=1&b&%6E=2&c", "xx:?a&n=v%20%2B&b&c"},
      {"xx:?a&&b&", "xx:?a&&b&n=v%20%2B"},
      {"xx:?nn=1&N=2", "xx:?nn=1&N=2&n=v%20%2B"},
  };
  for (const auto& row : rows) {
    QvUriText uri = parsed(row.text);
    uri.setParameter("n", "v +");
    EXPECT_EQ(uri.toString(), row.changed) << row.text;
  }
}

TEST(UriText, ParametersThatAreAddedStandInTheirOrder) {
  QvUriText uri = parsed("xx:p#f");
  uri.addParameter("a&b", "1=2");
  uri.addParameter("c", "");
  EXPECT_EQ(uri.toString(), "xx:p?a%26b=1%3D2&c=#f");
  EXPECT_EQ(uri.parameter("a&b"), "1=2");
  EXPECT_EQ(uri.parameter("c"), "");
}

TEST(UriText, AddingANewParameterIsSettingIt) {
  EXPECT_TRUE(rc::check([](const std::string& name, const std::string& value) {
    QvUriText added = parsed("xx:p?other%20name=1");
    QvUriText set = added;
    added.addParameter("new" + name, value);
    set.setParameter("new" + name, value);
    return added.toString() == set.toString() && added.parameter("new" + name) == value;
  }));
}

// Normalisation

TEST(UriText, NormalisingKeepsTheTextItselfAsItIs) {
  const QvUriText uri = parsed("XX://H/a/../b");
  EXPECT_EQ(uri.normalized(), "xx://h/b");
  EXPECT_EQ(uri.toString(), "XX://H/a/../b");
}

TEST(UriText, NormalisingABuiltTextNeedsNoParsedOne) {
  QvUriText uri;
  uri.scheme = "file";
  uri.authority = "";
  uri.path = "/a/b.c";
  EXPECT_EQ(uri.normalized(), "file:///a/b.c");
  uri.path = "/a/./b.c";
  EXPECT_EQ(uri.normalized(), "file:///a/b.c");
  uri.authority.reset();
  uri.path = "../a";
  EXPECT_EQ(uri.normalized(), "file:../a");
}

} // namespace
