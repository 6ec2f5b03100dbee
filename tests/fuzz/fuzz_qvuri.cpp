// Any text: what parses must read back as it was, and normalising must come to rest. Another parser of RFC 3986 finds
// the same URIs, and the same in them.
#include "fuzz.h"
#include "qvxbase/qvuri.h"

#include <uriparser/Uri.h>

#include <memory>
#include <optional>

namespace {

struct Release {
  void operator()(QvURI* uri) const { uri->release(); }
};
using Uri = std::unique_ptr<QvURI, Release>;

Uri reparse(const QvbString& text) {
  Uri uri(getURIFromURIString(text));
  require(uri != nullptr);
  return uri;
}

// A URI as the other parser reads it, decoded.
struct Other {
  std::string scheme;
  std::optional<std::string> authority;
  std::string path;
  bool operator==(const Other&) const = default;
};

std::string decoded(const char* first, const char* end) {
  std::string text(first, end);
  const char* after = uriUnescapeInPlaceExA(text.data(), URI_FALSE, URI_BR_DONT_TOUCH);
  text.resize(static_cast<std::size_t>(after - text.data()));
  return text;
}

// No part of a URI, which an empty text is, has a place.
bool isThere(const UriTextRangeA& range) { return range.first != nullptr; }

Other othersView(const UriUriA& uri) {
  Other other;
  other.scheme.assign(uri.scheme.first, uri.scheme.afterLast);
  const bool isBracketed = uri.hostData.ip6 || isThere(uri.hostData.ipFuture);
  if (isThere(uri.hostText)) {
    const char* first =
        isThere(uri.userInfo) ? uri.userInfo.first : uri.hostText.first - (isBracketed ? 1 : 0);
    const char* end =
        isThere(uri.portText) ? uri.portText.afterLast : uri.hostText.afterLast + (isBracketed ? 1 : 0);
    other.authority = decoded(first, end);
  }
  const bool isRooted = uri.absolutePath || (other.authority && uri.pathHead);
  const char* separator = isRooted ? "/" : "";
  for (const UriPathSegmentA* segment = uri.pathHead; segment; segment = segment->next) {
    other.path.append(separator) += decoded(segment->text.first, segment->text.afterLast);
    separator = "/";
  }
  if (uri.absolutePath && !uri.pathHead)
    other.path = "/";
  return other;
}

// Empty for a text that is none, or that is a reference without a scheme.
std::optional<Other> readByOther(std::string_view text) {
  UriUriA uri;
  if (uriParseSingleUriExA(&uri, text.data(), text.data() + text.size(), nullptr) != URI_SUCCESS)
    return std::nullopt;
  std::optional<Other> other;
  if (isThere(uri.scheme))
    other = othersView(uri);
  uriFreeUriMembersA(&uri);
  return other;
}

// A path without its root is asked for of some schemes.
bool isRootless(QvURI& uri) {
  return uri.getReposURI() || qvbEqualsIgnoreCase(uri.getScheme().view(), "dmsref");
}

void checkAgainstOther(QvURI& uri, const QvbString& given) {
  const auto text = uri.asString();
  const auto other = readByOther(text.view());
  require(other.has_value());
  require(other->scheme == uri.getScheme().view());
  require(other->authority.value_or("") == uri.getAuthority().view());
  require(isRootless(uri) || other->path == uri.getPath().view());
  // What needs no encoding stays as it was given.
  require(!readByOther(given.view()) || text == given);
}

void checkTextForm(QvURI& uri) {
  const Uri again = reparse(uri.asString());
  require(again->asString() == uri.asString());
  require(again->getScheme() == uri.getScheme());
  require(again->getAuthority() == uri.getAuthority());
  require(again->getPath() == uri.getPath());
}

void checkNormalForm(QvURI& uri) {
  const QvbString normal = uri.getNormalizedString();
  require(reparse(normal)->getNormalizedString() == normal);
}

void checkNativePath(QvURI& uri) {
  QvbString path;
  QvbString again;
  if (getNativePath(&uri, &path)) {
    const Uri built(getURI("file", "", path));
    require(getNativePath(reparse(built->asString()).get(), &again) && again == path);
  }
}

void checkDataComponents(const QvbString& text) {
  QvDataURIComponents c;
  if (!getDataURIComponentsFromString(text, &c) || c.dataSource.isEmpty())
    return;
  const Uri built(getDataURIFromComponents(c.scheme, c.server, c.dataSource, c.dataSourceType, c.catalog,
                                           c.schema, c.table, c.column));
  QvDataURIComponents again;
  require(getDataURIComponentsFromString(built->asString(), &again));
  require(again.server == c.server && again.dataSource == c.dataSource && again.table == c.table &&
          again.dataSourceType == c.dataSourceType && again.catalog == c.catalog &&
          again.schema == c.schema && again.column == c.column && again.scheme == c.scheme);
}

void checkParameter(QvURI& uri, const QvbString& value) {
  require(uri.setParameter("type", value));
  require(uri.getParameter("type") == value);
  checkTextForm(uri);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const QvbString text = textOf(data, size);
  const Uri uri{getURIFromURIString(text)};
  // One letter before a colon is a drive here.
  const auto other = readByOther(text.view());
  require(uri || !other || other->scheme.size() == 1);
  if (uri) {
    checkAgainstOther(*uri, text);
    checkTextForm(*uri);
    checkNormalForm(*uri);
    checkNativePath(*uri);
    checkDataComponents(text);
    checkParameter(*uri, text);
  }
  return 0;
}
