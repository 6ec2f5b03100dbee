#include "qvxbase/private/qvuritext.h"

#include "qvxbase/qvbreleased.h"

#include <uriparser/Uri.h>

#include <algorithm>
#include <array>
#include <limits>
#include <new>
#include <utility>

namespace {

constexpr bool isDigit(char c) { return c >= '0' && c <= '9'; }
constexpr bool isUpper(char c) { return c >= 'A' && c <= 'Z'; }
constexpr bool isLetter(char c) { return (c >= 'a' && c <= 'z') || isUpper(c); }
constexpr bool isHexDigit(char c) { return isDigit(c) || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F'); }
constexpr int hexValue(char c) { return isDigit(c) ? c - '0' : (c | 0x20) - 'a' + 10; }
constexpr char upperCase(char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; }

// The bytes that stand for themselves in some place of a URI: the unreserved ones and `others`.
class ByteSet {
public:
  constexpr explicit ByteSet(std::string_view others) {
    for (const char c : others)
      m_bytes[index(c)] = true;
    for (std::size_t i = 0; i < m_bytes.size(); ++i) {
      const char c = static_cast<char>(i);
      m_bytes[i] = m_bytes[i] || isLetter(c) || isDigit(c) || c == '-' || c == '.' || c == '_' || c == '~';
    }
  }
  constexpr bool contains(char c) const { return m_bytes[index(c)]; }

private:
  static constexpr std::size_t index(char c) { return static_cast<unsigned char>(c); }
  std::array<bool, 256> m_bytes{};
};

constexpr ByteSet unreservedBytes("");
constexpr ByteSet registeredNameBytes("!$&'()*+,;=");
constexpr ByteSet authorityBytes("!$&'()*+,;=:@[]");
constexpr ByteSet pathBytes("!$&'()*+,;=:@/");
constexpr ByteSet queryBytes("!$&'()*+,;=:@/?");

bool isTriplet(std::string_view text, std::size_t at) {
  return at + 2 < text.size() && text[at] == '%' && isHexDigit(text[at + 1]) && isHexDigit(text[at + 2]);
}

// The part of `rest` before the first byte that does not belong; `rest` keeps what follows.
template<class Belongs>
std::string_view takeWhile(std::string_view& rest, Belongs belongs) {
  const auto end = std::ranges::find_if_not(rest, belongs);
  const auto part = rest.substr(0, static_cast<std::size_t>(end - rest.begin()));
  rest.remove_prefix(part.size());
  return part;
}

void appendEncoded(std::string& encoded, std::string_view text, const ByteSet& allowed, QvPercent percent) {
  constexpr std::string_view hexDigits = "0123456789ABCDEF";
  while (!text.empty()) {
    encoded += takeWhile(text, [&](char c) { return allowed.contains(c); });
    if (text.empty())
      break;
    const auto byte = static_cast<unsigned char>(text.front());
    if (percent == QvPercent::Encoding && isTriplet(text, 0))
      encoded += '%';
    else
      encoded.append({'%', hexDigits[byte >> 4], hexDigits[byte & 15]});
    text.remove_prefix(1);
  }
}

std::string encode(std::string_view text, const ByteSet& allowed, QvPercent percent) {
  std::string encoded;
  encoded.reserve(text.size());
  appendEncoded(encoded, text, allowed, percent);
  return encoded;
}

// The lengths that the parser's library counts are of type int.
constexpr std::size_t maxSyntaxLength = std::numeric_limits<int>::max() / 2;

using UriMembers = EndedBy<UriUriA, uriFreeUriMembersA>;

// What the parser finds in the text, as ranges of it in `uri`; null when it is not RFC 3986 syntax.
UriMembers parseSyntax(const std::string& text, UriUriA* uri) {
  if (text.size() > maxSyntaxLength)
    return nullptr;
  const int code = uriParseSingleUriExA(uri, text.data(), text.data() + text.size(), nullptr);
  if (code == URI_ERROR_MALLOC)
    throw std::bad_alloc();
  return UriMembers(code == URI_SUCCESS ? uri : nullptr);
}

// The normalised form of a URI or relative reference; one that is too long for the parser stays as it is.
std::string normalizeSyntax(const std::string& text) {
  UriUriA uri;
  const auto members = parseSyntax(text, &uri);
  if (!members)
    return text;
  int length = 0;
  if (uriNormalizeSyntaxA(&uri) != URI_SUCCESS || uriToStringCharsRequiredA(&uri, &length) != URI_SUCCESS)
    throw std::bad_alloc();
  std::string normal(static_cast<std::size_t>(length), '\0');
  uriToStringA(normal.data(), &uri, length + 1, nullptr);
  return normal;
}

// Whether the text reads as user@host:port, each but the host optional.
bool isServerAuthority(const std::string& authority) {
  if (authority.find_first_of(":@[]") == std::string::npos)
    return true;
  UriUriA uri;
  return parseSyntax("x://" + authority, &uri) != nullptr;
}

// Without an authority a path must not begin with "//" after dot segments are removed, nor a relative one with
// "/", nor may it vanish: each would be another resource. The normaliser keeps a leading "./" for the sake of
// texts without a scheme, where the "b" of "./b:c" would be one.
std::string normalizeRelativePath(const std::string& path) {
  std::string normal = normalizeSyntax("./" + path);
  if (normal.starts_with("./"))
    normal.erase(0, 2);
  return normal.empty() || normal.front() == '/' ? "./" + normal : normal;
}
void guardAbsolutePath(std::string& text, std::size_t schemeLength) {
  if (text.compare(schemeLength + 1, 2, "//") == 0)
    text.insert(schemeLength + 1, "/.");
}

// The normaliser folds the digits of encoded bytes along with the host's letters.
void upperCaseTriplets(std::string& text) {
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (isTriplet(text, i))
      std::transform(&text[i + 1], &text[i + 3], &text[i + 1], upperCase);
  }
}

std::string_view viewOf(const std::optional<std::string>& component) {
  return component ? std::string_view(*component) : std::string_view();
}

bool isEncoded(std::string_view text) { return text.find('%') != std::string_view::npos; }

void appendParameter(std::string& query, std::string_view parameter) {
  query.append(query.empty() ? "" : "&").append(parameter);
}

void appendParameter(std::string& query, std::string_view name, std::string_view value) {
  appendParameter(query, {});
  appendEncoded(query, name, unreservedBytes, QvPercent::Literal);
  query += '=';
  appendEncoded(query, value, unreservedBytes, QvPercent::Literal);
}

} // namespace

// One letter before the colon is a drive ("C:\jobs"), as no scheme in use is that short.
bool qvIsUriScheme(std::string_view text) {
  const auto continues = [](char c) { return isLetter(c) || isDigit(c) || c == '+' || c == '-' || c == '.'; };
  return text.size() > 1 && isLetter(text.front()) && std::ranges::all_of(text, continues);
}

std::string_view qvUriSchemeOf(std::string_view text) {
  const auto colon = text.find(':');
  const auto scheme = text.substr(0, colon);
  return colon != std::string_view::npos && qvIsUriScheme(scheme) ? scheme : std::string_view();
}

std::string qvEncodeUriAuthority(std::string_view text, QvPercent percent) {
  std::string encoded = encode(text, authorityBytes, percent);
  if (isServerAuthority(encoded))
    return encoded;
  return encode(encoded, registeredNameBytes, QvPercent::Encoding);
}

std::string qvEncodeUriPath(std::string_view text, QvPercent percent) {
  return encode(text, pathBytes, percent);
}

std::string qvEncodeUriName(std::string_view text) {
  return encode(text, unreservedBytes, QvPercent::Literal);
}

void qvAppendUriName(std::string& uri, std::string_view text) {
  appendEncoded(uri, text, unreservedBytes, QvPercent::Literal);
}

std::string qvDecodeUri(std::string_view encoded) {
  std::string text;
  text.reserve(encoded.size());
  for (;;) {
    text += takeWhile(encoded, [](char c) { return c != '%'; });
    if (encoded.empty())
      return text;
    const bool isByte = isTriplet(encoded, 0);
    text += isByte ? static_cast<char>(hexValue(encoded[1]) << 4 | hexValue(encoded[2])) : '%';
    encoded.remove_prefix(isByte ? 3 : 1);
  }
}

QvUriParameter QvUriParameter::take(std::string_view& query) {
  const auto text = query.substr(0, query.find('&'));
  query.remove_prefix(std::min(text.size() + 1, query.size()));
  const auto name = text.substr(0, text.find('='));
  return {text, name, text.substr(std::min(name.size() + 1, text.size()))};
}

bool QvUriParameter::isNamed(std::string_view decodedName) const {
  return isEncoded(name) ? qvDecodeUri(name) == decodedName : name == decodedName;
}

std::optional<QvUriRanges> QvUriRanges::of(std::string_view text) {
  const auto isOfQuery = [](char c) { return c != '#'; };
  const auto isOfPath = [](char c) { return c != '?' && c != '#'; };
  const auto isOfAuthority = [](char c) { return c != '/' && c != '?' && c != '#'; };
  QvUriRanges uri;
  uri.scheme = qvUriSchemeOf(text);
  if (uri.scheme.empty())
    return std::nullopt;
  std::string_view rest = text.substr(uri.scheme.size() + 1);
  if (rest.starts_with("//")) {
    rest.remove_prefix(2);
    uri.authority = takeWhile(rest, isOfAuthority);
  }
  uri.path = takeWhile(rest, isOfPath);
  if (rest.starts_with('?'))
    uri.query = takeWhile(rest, isOfQuery).substr(1);
  if (rest.starts_with('#'))
    uri.fragment = rest.substr(1);
  return uri;
}

std::optional<QvUriText> QvUriText::parse(std::string_view text) {
  const auto ranges = QvUriRanges::of(text);
  if (!ranges)
    return std::nullopt;
  QvUriText uri;
  uri.scheme = ranges->scheme;
  if (ranges->authority)
    uri.authority = qvEncodeUriAuthority(*ranges->authority, QvPercent::Encoding);
  uri.path = qvEncodeUriPath(ranges->path, QvPercent::Encoding);
  if (ranges->query)
    uri.query = encode(*ranges->query, queryBytes, QvPercent::Encoding);
  if (ranges->fragment)
    uri.fragment = encode(*ranges->fragment, queryBytes, QvPercent::Encoding);
  return uri;
}

std::string QvUriText::toString() const {
  std::string text = scheme + ':';
  if (authority)
    text.append("//").append(*authority);
  text += path;
  if (query)
    text.append("?").append(*query);
  if (fragment)
    text.append("#").append(*fragment);
  return text;
}

// Whether nothing is there that normalisation might change, so that the text need not be parsed again. Most URIs are
// so plain.
bool QvUriText::isPlainlyNormal() const {
  const auto isPlain = [](std::string_view part) {
    return std::ranges::none_of(part, isUpper) && !isEncoded(part);
  };
  return authority && isPlain(scheme) && isPlain(*authority) && authority->find('[') == std::string::npos &&
         !isEncoded(path) && path.find("/.") == std::string::npos && !isEncoded(viewOf(query)) &&
         !isEncoded(viewOf(fragment));
}

// A path without a root is normalised as the relative reference that it is, so that its leading ".." stay.
std::string QvUriText::normalized() const {
  if (isPlainlyNormal())
    return toString();
  const bool relative = !authority && !path.empty() && !path.starts_with('/');
  QvUriText raw = *this;
  if (relative)
    raw.path.clear();
  std::string text = normalizeSyntax(raw.toString());
  if (!authority)
    guardAbsolutePath(text, scheme.size());
  auto normal = parse(text).value();
  if (normal.authority)
    upperCaseTriplets(*normal.authority);
  if (relative)
    normal.path = normalizeRelativePath(path);
  return normal.toString();
}

std::optional<std::string> QvUriText::parameter(std::string_view name) const {
  for (auto rest = viewOf(query); !rest.empty();) {
    if (const auto entry = QvUriParameter::take(rest); entry.isNamed(name))
      return qvDecodeUri(entry.value);
  }
  return std::nullopt;
}

void QvUriText::setParameter(std::string_view name, std::string_view value) {
  std::string setting;
  appendParameter(setting, name, value);
  std::string changed;
  bool set = false;
  for (auto rest = viewOf(query); !rest.empty();) {
    const auto entry = QvUriParameter::take(rest);
    const bool named = entry.isNamed(name);
    if (!named || !set)
      appendParameter(changed, named ? setting : entry.text);
    set = set || named;
  }
  if (!set)
    appendParameter(changed, setting);
  query = std::move(changed);
}

void QvUriText::addParameter(std::string_view name, std::string_view value) {
  appendParameter(query ? *query : query.emplace(), name, value);
}
