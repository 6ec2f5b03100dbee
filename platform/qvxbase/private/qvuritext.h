// The text of a URI as its five components, and percent-encoding.
#pragma once

#include <optional>
#include <string>
#include <string_view>

// The components of a URI's text as they stand in it.
struct QvUriRanges {
  // Nothing for a text without a scheme.
  static std::optional<QvUriRanges> of(std::string_view text);

  std::string_view scheme;
  std::optional<std::string_view> authority;
  std::string_view path;
  std::optional<std::string_view> query;
  std::optional<std::string_view> fragment;
};

// What a "%" in a text stands for: itself, or, where two hexadecimal digits follow it, an encoded byte.
enum class QvPercent { Literal, Encoding };

// Each component is percent-encoded as its place requires. An absent component is not an empty one:
// "x:/a" has no authority, "x:///a" an empty one.
class QvUriText {
public:
  // Nothing for a text without a scheme. Bytes that their place does not allow are encoded.
  static std::optional<QvUriText> parse(std::string_view text);

  std::string toString() const;
  // The text after syntax-based normalisation.
  std::string normalized() const;

  // The decoded value of the first query parameter of this name.
  std::optional<std::string> parameter(std::string_view name) const;
  // Takes the place of every parameter of this name, where the first one stands, else goes to the end.
  void setParameter(std::string_view name, std::string_view value);
  // Goes to the end, for names that are not there yet.
  void addParameter(std::string_view name, std::string_view value);

  std::string scheme;
  std::optional<std::string> authority;
  std::string path; // behind an authority empty, or with a slash at its front
  std::optional<std::string> query;
  std::optional<std::string> fragment;

private:
  bool isPlainlyNormal() const;
};

bool qvIsUriScheme(std::string_view text);
// The scheme that the text begins with, before a colon; empty when it begins with none.
std::string_view qvUriSchemeOf(std::string_view text);

std::string qvEncodeUriAuthority(std::string_view text, QvPercent percent);
// "/" separates segments and stands for itself.
std::string qvEncodeUriPath(std::string_view text, QvPercent percent);
// A single segment of a path or a single query value: nothing but unreserved characters stands for itself.
std::string qvEncodeUriName(std::string_view text);
void qvAppendUriName(std::string& uri, std::string_view text);
// A "%" that two hexadecimal digits do not follow stands for itself, as a byte does that its place does not allow: a
// component may be decoded as it stands in a text.
std::string qvDecodeUri(std::string_view encoded);

// The next parameter of a query, which keeps what follows it.
struct QvUriParameter {
  static QvUriParameter take(std::string_view& query);
  bool isNamed(std::string_view decodedName) const;

  std::string_view text; // "name=value"
  std::string_view name;
  std::string_view value; // empty without one
};
