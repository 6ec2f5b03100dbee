// Text that is hard to carry in XML.
#pragma once

#include <rapidcheck.h>

#include <string>
#include <vector>

// What markup begins and ends with, white space, what looks like an escape, a control that XML cannot carry, others that
// it can, and one character for each length of UTF-8.
inline const std::vector<std::string>& hardXmlPieces() {
  static const std::vector<std::string> pieces{"a",
                                               "Z",
                                               "7",
                                               ".",
                                               "%",
                                               "<",
                                               ">",
                                               "&",
                                               "&amp;",
                                               "\"",
                                               "'",
                                               " ",
                                               "\t",
                                               "\n",
                                               "\r",
                                               ";",
                                               "=",
                                               "/",
                                               "?",
                                               "#",
                                               "]]>",
                                               "<!--",
                                               "-->",
                                               "<![CDATA[",
                                               "<?a?>",
                                               "\x01",
                                               "\x7F",
                                               "\xC2\x85",
                                               "\xC3\xA4",
                                               "\xE2\x80\xA8",
                                               "\xE2\x82\xAC",
                                               "\xF0\x9F\x98\x80"};
  return pieces;
}

inline std::string joined(const std::vector<std::string>& pieces) {
  std::string text;
  for (const std::string& piece : pieces)
    text += piece;
  return text;
}

// Never empty.
inline rc::Gen<std::string> hardXmlText() {
  return rc::gen::map(
      rc::gen::nonEmpty(rc::gen::container<std::vector<std::string>>(rc::gen::elementOf(hardXmlPieces()))),
      joined);
}

// Every piece over and over, 100 kB or a little more.
inline std::string hugeXmlText() {
  std::string text;
  while (text.size() < 100'000)
    text += joined(hardXmlPieces());
  return text;
}

// The text as it comes back: U+FFFD stands for what cannot be carried.
inline std::string carriedByXml(std::string text) {
  for (auto at = text.find('\x01'); at != std::string::npos; at = text.find('\x01', at))
    text.replace(at, 1, "\xEF\xBF\xBD");
  return text;
}
