// What is looked at before the parser sees a document.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

struct QvDomScan {
  std::string encoding;         // the one to read the document in, in capitals
  std::size_t byteOrderMark{0}; // its size in bytes
  std::string failure;          // empty, or "<line>:<column>: <reason>" why the document is refused
};

// The parser skips a document type declaration without a word; here it is refused, and so is an element with more
// attributes than the parser takes in reasonable time. What the scan finds must be what the parser would find, so
// the parser is to be held to `encoding`, and only encodings are admitted whose markup can be told without
// decoding them.
QvDomScan qvDomScan(std::string_view document);

// "<line>:<column>: <reason>" for the first byte that is not UTF-8; empty when there is none. The parser decodes
// ahead, so the place that it reports for such a byte is some place before it.
std::string qvDomFindBrokenUtf8(std::string_view text);

// The same for the first character of the scanned document that is zero. Behind the root element the parser takes it for
// the document's end.
std::string qvDomFindZero(std::string_view document, const QvDomScan& scan);
