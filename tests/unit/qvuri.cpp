#include "qvxbase/qvuri.h"

#include "support/textio.h"

#include <gtest/gtest.h>
#include <rapidcheck.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

namespace {

struct Release {
  void operator()(QvURI* uri) const { uri->release(); }
};
using Uri = std::unique_ptr<QvURI, Release>;

Uri parse(const std::string& bytes) { return Uri(getURIFromURIString(text(bytes))); }
Uri build(const std::string& scheme, const std::string& host, const std::string& path) {
  return Uri(getURI(text(scheme), text(host), text(path)));
}
Uri buildObject(const char* repository, const char* path, const char* type) {
  return Uri(getReposURIFromComponents(repository, path, type));
}
Uri buildReference(const char* server, const char* path, const char* type) {
  return Uri(getDMSRefURIFromComponents(server, path, type));
}
Uri buildData(const QvDataURIComponents& c) {
  return Uri(getDataURIFromComponents(c.scheme, c.server, c.dataSource, c.dataSourceType, c.catalog, c.schema,
                                      c.table, c.column));
}
Uri salesTable() { return buildData({"qvd", "srv", "Sales", "ODBC", "main", "dbo", "CUSTOMERS", "NAME"}); }

std::string textOf(const Uri& uri) { return uri ? str(uri->asString()) : "(none)"; }
std::string normalOf(const std::string& bytes) { return str(parse(bytes)->getNormalizedString()); }
std::string nativePathOf(const Uri& uri) {
  QvbString path = "untouched";
  return getNativePath(uri.get(), &path) ? str(path) : "(none)";
}

// Any bytes, those that mean something in a URI more often than others.
rc::Gen<std::string> bytes() {
  const auto marks = rc::gen::elementOf(std::string("/:@?#[]%&=+ .\\()\"<>aA0~", 23));
  const auto any = rc::gen::map(rc::gen::inRange(0, 256), [](int byte) { return static_cast<char>(byte); });
  return rc::gen::container<std::string>(rc::gen::weightedOneOf<char>({{3, marks}, {2, any}}));
}
rc::Gen<std::string> uriTexts() {
  const auto schemes = rc::gen::elementOf(
      std::vector<std::string>{"http", "file", "qvr", "QVD", "qvf", "dmsref", "VELK", "x+y"});
  const auto openings =
      rc::gen::elementOf(std::vector<std::string>{":", ":/", "://", ":///", ":////", ":../"});
  return rc::gen::apply([](const std::string& scheme, const std::string& opening,
                           const std::string& rest) { return scheme + opening + rest; },
                        schemes, openings, bytes());
}
QvDataURIComponents anyComponents() {
  const auto component = [] { return text(*bytes()); };
  return {.scheme = *rc::gen::element<const char*>("qvd", "qvf", "QVF", "qvr", ""),
          .server = component(),
          .dataSource = component(),
          .dataSourceType = component(),
          .catalog = component(),
          .schema = component(),
          .table = component(),
          .column = component()};
}
std::string withoutLeadingSlashes(std::string path) {
  return path.erase(0, std::min(path.find_first_not_of('/'), path.size()));
}

std::vector<QvbString> accessorsOf(QvURI& uri) {
  std::vector<QvbString> all{uri.getScheme(), uri.getAuthority(), uri.getPath(), uri.getParameter("type"),
                             uri.getNormalizedString()};
  if (QvDataURI* data = uri.getDataURI()) {
    for (const auto& value : {data->getServer(), data->getDataSource(), data->getDataSourceType(),
                              data->getCatalog(), data->getSchema(), data->getTable(), data->getColumn(),
                              data->getObjectType(), data->getObjectName()})
      all.push_back(value);
  }
  return all;
}

// Texts that are not URIs

TEST(Uri, TextWithoutSchemeIsNone) {
  for (const char* other : {"", "a", "/a/b", "relative/path", "//host/a", ":", "://x", "1a:b", " http://x",
                            "a b:c", "a/b:c", "a_b:c", "?a:b", "\xc3\xa9t:x"})
    EXPECT_EQ(parse(other), nullptr) << other;
  EXPECT_EQ(getURIFromURIString(QvbString()), nullptr);
}

TEST(Uri, SingleLetterBeforeTheColonIsADrive) {
  for (const char* drive : {"C:\\dir\\job.ddf", "C:/dir", "c:", "x://host/a"})
    EXPECT_EQ(parse(drive), nullptr) << drive;
  EXPECT_EQ(build("C", "", "/dir"), nullptr);
}

TEST(Uri, ReferenceBeginsWithASchemeAndHoldsAnAuthority) {
  for (const char* reference : {"http://host", "qvr:///a", "file:///a", "x+y-1.0://a", "ab:c://d"})
    EXPECT_TRUE(isURIReference(reference)) << reference;
  for (const char* path :
       {"", "a", "/a://b", "://a", "c://a", "load:1.djf", "mailto:a@b", "1a://b", "a b://c", "-a://b"})
    EXPECT_FALSE(isURIReference(path)) << path;
  EXPECT_FALSE(isURIReference(QvbString()));
}

TEST(Uri, SchemeHoldsLettersDigitsAndThreeMarks) {
  for (const char* scheme : {"ab", "x+y", "x-y", "x.y", "h2", "VELK"})
    EXPECT_EQ(str(parse(std::string(scheme) + ":a")->getScheme()), scheme);
}

// Parsing

struct ParsedRow {
  const char* text;
  const char* scheme;
  const char* authority;
  const char* path;
};

TEST(Uri, PartsOfAParsedTextAreDecoded) {
  const ParsedRow rows[] = {
      {"http://host/a/b?q=1#f", "http", "host", "/a/b"},
      {"HTTP://User@Host:8080", "HTTP", "User@Host:8080", ""},
      {"http://[::1]:80/x", "http", "[::1]:80", "/x"},
      {"http://host?q", "http", "host", ""},
      {"http://host#f/?x", "http", "host", ""},
      {"file:///a%20b", "file", "", "/a b"},
      {"file:a/b", "file", nullptr, "a/b"},
      {"file:/a", "file", nullptr, "/a"},
      {"mailto:me@x", "mailto", nullptr, "me@x"},
      {"VELK:///Jobs/Load (ProcessJob)", "VELK", "", "/Jobs/Load (ProcessJob)"},
      {"qvr://My%20Repo/batch_jobs/load?type=ProcessJob", "qvr", "My Repo", "batch_jobs/load"},
      {"QVR://Repo//a", "QVR", "Repo", "a"},
      {"qvr:foundations", "qvr", nullptr, "foundations"},
      {"dmsref://Srv/batch_jobs/x.ddf", "dmsref", "Srv", "batch_jobs/x.ddf"},
      {"qvd://Srv/Sales?table=t", "qvd", "Srv", "/Sales"},
      {"http:", "http", nullptr, ""},
  };
  for (const auto& row : rows) {
    const Uri uri = parse(row.text);
    ASSERT_NE(uri, nullptr) << row.text;
    EXPECT_EQ(uri->getScheme(), row.scheme) << row.text;
    EXPECT_EQ(uri->getAuthority(), row.authority) << row.text;
    EXPECT_EQ(uri->getAuthority().isNull(), row.authority == nullptr) << row.text;
    EXPECT_EQ(uri->getPath(), row.path) << row.text;
    EXPECT_TRUE(uri->getErrorText().isNull()) << row.text;
  }
}

struct TextRow {
  std::string given;
  std::string expected;
};

TEST(Uri, TextOfAParsedUriIsTheGivenOneWithForeignBytesEncoded) {
  const TextRow rows[] = {
      {"http://Host:80/A/./b?q=a+b&c#f", "http://Host:80/A/./b?q=a+b&c#f"},
      {"http://host/a b", "http://host/a%20b"},
      {"VELK:///Jobs/Load (ProcessJob)", "VELK:///Jobs/Load%20(ProcessJob)"},
      {"http://h/caf\xc3\xa9", "http://h/caf%C3%A9"},
      {std::string("http://h/a\0b", 12), "http://h/a%00b"},
      {"http://h/\x7f\x01\n", "http://h/%7F%01%0A"},
      {"http://h/[a]{b}|\\^`\"<>", "http://h/%5Ba%5D%7Bb%7D%7C%5C%5E%60%22%3C%3E"},
      {"http://h/%2f%2F%7e", "http://h/%2f%2F%7e"},
      {"http://h/100%", "http://h/100%25"},
      {"http://h/%4", "http://h/%254"},
      {"http://h/%g0%0g", "http://h/%25g0%250g"},
      {"http://h/?[%]#[%]#", "http://h/?%5B%25%5D#%5B%25%5D%23"},
      {"http://h?a?b/c", "http://h?a?b/c"},
      {"http://h/?#", "http://h/?#"},
      {"qvr://My Repo/x", "qvr://My%20Repo/x"},
      {"http://u:p@[::1]:80/", "http://u:p@[::1]:80/"},
      {"http://[v1.x]/", "http://[v1.x]/"},
      {"http://[::g]/", "http://%5B%3A%3Ag%5D/"},
      {"qvr://a:b/c", "qvr://a%3Ab/c"},
      {"qvr://a:80/c", "qvr://a:80/c"},
      {"qvr://[x]@y@z/c", "qvr://%5Bx%5D%40y%40z/c"},
  };
  for (const auto& row : rows)
    EXPECT_EQ(textOf(parse(row.given)), row.expected);
}

TEST(Uri, ParsingTheTextAgainGivesTheSameParts) {
  EXPECT_TRUE(rc::check([] {
    const Uri first = parse(*uriTexts());
    const Uri second = parse(textOf(first));
    return textOf(second) == textOf(first) && accessorsOf(*second) == accessorsOf(*first);
  }));
}

// Normalisation

TEST(Uri, NormalisedTextFollowsTheSyntaxRules) {
  const TextRow rows[] = {
      {"HTTP://User@HOST.Com:80/A?Q=B#F", "http://User@host.com:80/A?Q=B#F"},
      {"http://h/a/./b/../c/", "http://h/a/c/"},
      {"http://h/../../a/..", "http://h/"},
      {"http://h/%7ea%2f%c3%a9?%7E%2f#%7E%2f", "http://h/~a%2F%C3%A9?~%2F#~%2F"},
      {"http://%41%C3%a9/", "http://a%C3%A9/"},
      {"http://u%c3@H/", "http://u%C3@h/"},
      {"http://h/a//b", "http://h/a//b"},
      {"http://h/a b", "http://h/a%20b"},
      {"http://h", "http://h"},
      {"qvr://Repo/a/%2e%2e/b?type=Rule", "qvr://repo/b?type=Rule"},
      {"FILE:///a/../b", "file:///b"},
      {"file:////x", "file:////x"},
      {"file:/a/..", "file:/"},
      {"mailto:", "mailto:"},
      {"urn:isbn:0%2d1", "urn:isbn:0-1"},
      {"xy:?%7e", "xy:?~"},
  };
  for (const auto& row : rows)
    EXPECT_EQ(normalOf(row.given), row.expected) << row.given;
}

TEST(Uri, NormalisedPathNeverBecomesAnotherKindOfPath) {
  const TextRow rows[] = {
      {"file:../x", "file:../x"},      {"file:a/../../x", "file:../x"}, {"file:./a", "file:a"},
      {"file:a/..//b", "file:.//b"},   {"file:.", "file:./"},           {"file:a/..", "file:./"},
      {"file:/a/..//b", "file:/.//b"}, {"file:/.//b", "file:/.//b"},    {"file:a:b/../c:d", "file:c:d"},
      {"file:./a:b", "file:a:b"},      {"file:x/../a:b", "file:a:b"},
  };
  for (const auto& row : rows)
    EXPECT_EQ(normalOf(row.given), row.expected) << row.given;
}

TEST(Uri, NormalisingTwiceIsNormalisingOnce) {
  EXPECT_TRUE(rc::check([] {
    const std::string once = normalOf(*uriTexts());
    return normalOf(once) == once;
  }));
}

// A scheme in upper case is never taken for normal at first sight, whatever follows it.
TEST(Uri, NormalTextIsToldApartWithoutChangingTheResult) {
  const auto pieces = rc::gen::container<std::vector<std::string>>(rc::gen::elementOf(
      std::vector<std::string>{"/",      "/",   "/",   ".", ".", ":", "@", "?", "#", "[", "]",
                               "[0::1]", "%7e", "%2f", "%", "A", "a", "1", "~", "&", " "}));
  EXPECT_TRUE(rc::check([&] {
    std::string rest = "://";
    for (const std::string& piece : *pieces)
      rest += piece;
    return normalOf("http" + rest) == normalOf("HTTP" + rest);
  }));
  for (const char* rest :
       {"://h/?%7e", "://h/#%7e", "://h/%7e", "://%7e/", "://[0::1]/", "://H", "://h/a/../b", "://h/."})
    EXPECT_EQ(normalOf(std::string("http") + rest), normalOf(std::string("HTTP") + rest));
}

TEST(Uri, NormalisationKeepsWhetherAPathHasARootAndTheAuthority) {
  EXPECT_TRUE(rc::check([] {
    const Uri uri = parse("xy" + (*uriTexts()).substr(1));
    const Uri normal = parse(str(uri->getNormalizedString()));
    return normal->getAuthority().isNull() == uri->getAuthority().isNull() &&
           normal->getPath().view().starts_with('/') == uri->getPath().view().starts_with('/');
  }));
}

// Building

TEST(Uri, BuiltTextEncodesEachComponentForItsPlace) {
  const struct {
    const char* scheme;
    const char* host;
    const char* path;
    const char* expected;
  } rows[] = {
      {"file", "", "/a/b", "file:///a/b"},
      {"file", "", "a/b", "file:a/b"},
      {"FILE", "", "a/b", "FILE:a/b"},
      {"file", "", "", "file:"},
      {"file", "", "//x", "file:////x"},
      {"file", "", "a:b/c", "file:a:b/c"},
      {"file", "", "/a?b#c%41 [d]\\", "file:///a%3Fb%23c%2541%20%5Bd%5D%5C"},
      {"file", "host", "a", "file://host/a"},
      {"http", "", "a", "http:///a"},
      {"http", "me@localhost:8080", "/x/y", "http://me@localhost:8080/x/y"},
      {"http", "[::1]:80", "x", "http://[::1]:80/x"},
      {"http", "a/b?c#d:e", "x", "http://a%2Fb%3Fc%23d%3Ae/x"},
      {"http", "h", "", "http://h"},
      {"VELK", "", "/Jobs/Load (ProcessJob)", "VELK:///Jobs/Load%20(ProcessJob)"},
      {"qvr", "Repo", "a/b", "qvr://Repo/a/b"},
  };
  for (const auto& row : rows)
    EXPECT_EQ(textOf(build(row.scheme, row.host, row.path)), row.expected);
}

TEST(Uri, BuildingWithoutASchemeGivesNone) {
  for (const char* scheme : {"", "1ab", "a b", "ab:", "-ab", "\xc3\xa9t"})
    EXPECT_EQ(build(scheme, "h", "/p"), nullptr) << scheme;
  EXPECT_EQ(getURI(QvbString(), "h", "/p"), nullptr);
}

TEST(Uri, BuiltComponentsReadBackAsTheyWere) {
  EXPECT_TRUE(rc::check([] {
    const std::string host = *bytes();
    const std::string path = "/" + *bytes();
    const Uri uri = parse(textOf(build("http", host, path)));
    return str(uri->getAuthority()) == host && str(uri->getPath()) == path;
  }));
}

// Native paths

TEST(NativePath, IsThatOfALocalFile) {
  const TextRow rows[] = {
      {"file:///a/b%20c", "/a/b c"},
      {"FILE://LocalHost/a", "/a"},
      {"file:a/b", "a/b"},
      {"file:../a", "../a"},
      {"file:/a", "/a"},
      {"file:////x", "//x"},
      {"file:///a?q#f", "/a"},
      {"file://server/a", "(none)"},
      {"file:///a%00b", "(none)"},
      {"http://localhost/a", "(none)"},
      {"qvr://r/a", "(none)"},
  };
  for (const auto& row : rows)
    EXPECT_EQ(nativePathOf(parse(row.given)), row.expected) << row.given;
  EXPECT_EQ(nativePathOf(nullptr), "(none)");
}

TEST(NativePath, FailureLeavesTheOutputUntouched) {
  for (const char* other : {"file://server/a", "file:///a%00b", "http://localhost/a"}) {
    QvbString path = "before";
    EXPECT_FALSE(getNativePath(parse(other).get(), &path));
    EXPECT_EQ(path, "before");
  }
}

TEST(NativePath, OfTheUriOfAPathIsThePath) {
  for (const char* path :
       {"a:b/c", "//x", "a//b", "///", ".", "..", "../a", "./a:b", "%41", "C:\\dir", "~", ""})
    EXPECT_EQ(nativePathOf(parse(textOf(build("file", "", path)))), path);
  EXPECT_TRUE(rc::check([] {
    std::string path = *bytes();
    std::erase(path, '\0');
    return nativePathOf(parse(textOf(build("file", "", path)))) == path;
  }));
}

// Repository objects

TEST(RepositoryUri, IsBuiltFromRepositoryPathAndType) {
  EXPECT_EQ(textOf(buildObject("", "foundations", "Folder")), "qvr:///foundations?type=Folder");
  EXPECT_EQ(textOf(buildObject("My Repo", "/batch_jobs/load (1)", "ProcessJob")),
            "qvr://My%20Repo/batch_jobs/load%20(1)?type=ProcessJob");
  EXPECT_EQ(textOf(buildObject("Repo", "///a?b", "")), "qvr://Repo/a%3Fb");
}

TEST(RepositoryUri, NeedsAPath) {
  for (const char* path : {"", "/", "//"})
    EXPECT_EQ(buildObject("Repo", path, "Folder"), nullptr);
}

TEST(RepositoryUri, HasARepositoryFormAndADataPart) {
  const Uri uri = parse("QVR://My%20Repo/batch_jobs/daily/load?type=ProcessJob");
  QvReposURI* object = uri->getReposURI();
  ASSERT_NE(object, nullptr);
  EXPECT_EQ(object->getRepository(), "My Repo");
  EXPECT_EQ(object->getPath(), "batch_jobs/daily/load");
  EXPECT_EQ(object->getObjectName(), "load");
  EXPECT_EQ(object->getObjectType(), "ProcessJob");
  QvDataURI* data = uri->getDataURI();
  ASSERT_NE(data, nullptr);
  EXPECT_EQ(data->getObjectType(), "ProcessJob");
  EXPECT_EQ(data->getObjectName(), "load");
  EXPECT_EQ(data->asString(), "QVR://My%20Repo/batch_jobs/daily/load?type=ProcessJob");
}

TEST(RepositoryUri, DataPartHasNothingOfADataSource) {
  const Uri uri = parse("qvr://Repo/a?type=Rule&catalog=c&schema=s&table=t&column=x");
  QvDataURI* data = uri->getDataURI();
  for (const auto& value : {data->getServer(), data->getDataSource(), data->getDataSourceType(),
                            data->getCatalog(), data->getSchema(), data->getTable(), data->getColumn()})
    EXPECT_TRUE(value.isNull());
}

TEST(RepositoryUri, WithoutATypeItsTypeIsNull) {
  const Uri uri = parse("qvr:///a");
  EXPECT_TRUE(uri->getReposURI()->getObjectType().isNull());
  EXPECT_TRUE(uri->getDataURI()->getObjectType().isNull());
  EXPECT_EQ(uri->getReposURI()->getObjectName(), "a");
}

TEST(RepositoryUri, ComponentsReadBackAsTheyWere) {
  EXPECT_TRUE(rc::check([] {
    const std::string repository = *bytes();
    const std::string path = withoutLeadingSlashes(*bytes()) + "p";
    const std::string type = *bytes();
    const Uri uri = parse(textOf(Uri(getReposURIFromComponents(text(repository), text(path), text(type)))));
    QvReposURI* object = uri->getReposURI();
    return str(object->getRepository()) == repository &&
           str(object->getPath()) == withoutLeadingSlashes(path) && str(object->getObjectType()) == type &&
           str(object->getObjectName()) == path.substr(path.rfind('/') + 1);
  }));
}

// Data

TEST(DataUri, IsBuiltFromItsComponents) {
  EXPECT_EQ(textOf(salesTable()),
            "qvd://srv/Sales?type=ODBC&catalog=main&schema=dbo&table=CUSTOMERS&column=NAME");
  EXPECT_EQ(textOf(buildData({"QVF", "", "Sales", "", "", "", "", ""})), "QVF:///Sales");
  EXPECT_EQ(textOf(buildData({"qvd", "a:b", "A/B c", "", "", "x&y=z+%", "", ""})),
            "qvd://a%3Ab/A%2FB%20c?schema=x%26y%3Dz%2B%25");
}

TEST(DataUri, NeedsADataSchemeAndADataSource) {
  for (const char* scheme : {"", "qvr", "http", "qvdx", "qv"})
    EXPECT_EQ(buildData({scheme, "srv", "Sales", "", "", "", "", ""}), nullptr) << scheme;
  EXPECT_EQ(buildData({"qvd", "srv", "", "ODBC", "", "", "t", ""}), nullptr);
}

TEST(DataUri, HasADataPart) {
  const Uri uri = salesTable();
  EXPECT_EQ(uri->getReposURI(), nullptr);
  QvDataURI* data = uri->getDataURI();
  ASSERT_NE(data, nullptr);
  EXPECT_EQ(data->getServer(), "srv");
  EXPECT_EQ(data->getDataSource(), "Sales");
  EXPECT_EQ(data->getDataSourceType(), "ODBC");
  EXPECT_EQ(data->getCatalog(), "main");
  EXPECT_EQ(data->getSchema(), "dbo");
  EXPECT_EQ(data->getTable(), "CUSTOMERS");
  EXPECT_EQ(data->getColumn(), "NAME");
  EXPECT_EQ(data->asString(), uri->asString());
  EXPECT_TRUE(data->getObjectType().isNull());
  EXPECT_TRUE(data->getObjectName().isNull());
}

TEST(DataUri, WithoutATableItsTableIsNull) {
  const Uri uri = parse("qvf://srv/Sales?type=ODBC");
  EXPECT_TRUE(uri->getDataURI()->getTable().isNull());
  EXPECT_TRUE(uri->getDataURI()->getSchema().isNull());
}

TEST(DataUri, AbsentComponentsBecomeEmpty) {
  QvDataURIComponents c;
  ASSERT_TRUE(getDataURIComponentsFromString("qvd:?type", &c));
  EXPECT_EQ(c.scheme, "qvd");
  for (const auto& value :
       {c.server, c.dataSource, c.dataSourceType, c.catalog, c.schema, c.table, c.column}) {
    EXPECT_TRUE(value.isEmpty());
    EXPECT_FALSE(value.isNull());
  }
}

TEST(DataUri, ComponentsOfAnotherTextAreNotRead) {
  for (const char* other : {"", "Sales", "qvr://r/a", "http://h/Sales", "dmsref://s/p"}) {
    QvDataURIComponents c;
    c.table = "before";
    EXPECT_FALSE(getDataURIComponentsFromString(other, &c)) << other;
    EXPECT_EQ(c.table, "before");
  }
}

// What a record says of its parts, for any text.
TEST(DataUri, ComponentsAreThoseOfItsRecord) {
  EXPECT_TRUE(rc::check([] {
    std::string given = *uriTexts();
    for (int n = *rc::gen::inRange(0, 4); n > 0; --n)
      given += *rc::gen::element<std::string>("?table=a", "&table=b", "&TABLE=c", "&%74able", "?type",
                                              "&type==", "&schema=%zz%4", "&=&", "#table=d", "&catalog=%00x",
                                              "&column") +
               *bytes();
    const Uri uri = parse(given);
    QvDataURI* data = uri->getReposURI() ? nullptr : uri->getDataURI();
    QvDataURIComponents out;
    RC_ASSERT(getDataURIComponentsFromString(text(given), &out) == (data != nullptr));
    if (!data)
      return;
    RC_ASSERT(out.scheme == uri->getScheme() && out.server == data->getServer() &&
              out.dataSource == data->getDataSource() && out.dataSourceType == data->getDataSourceType() &&
              out.catalog == data->getCatalog() && out.schema == data->getSchema() &&
              out.table == data->getTable() && out.column == data->getColumn());
    for (const auto& value : {out.scheme, out.server, out.dataSource, out.dataSourceType, out.catalog,
                              out.schema, out.table, out.column})
      RC_ASSERT(!value.isNull());
  }));
}

TEST(DataUri, TextIsHadWithoutARecord) {
  EXPECT_TRUE(rc::check([] {
    const auto in = anyComponents();
    const Uri uri = buildData(in);
    const QvbString given = getDataURIString(in);
    return uri ? given == uri->asString() && parse(str(given)) : given.isNull();
  }));
}

TEST(DataUri, ComponentsReadBackAsTheyWere) {
  EXPECT_TRUE(rc::check([] {
    auto in = anyComponents();
    in.scheme = *rc::gen::element<const char*>("qvd", "qvf", "QVF");
    in.dataSource = text("/" + *bytes());
    QvDataURIComponents out;
    return getDataURIComponentsFromString(text(textOf(buildData(in))), &out) && out.scheme == in.scheme &&
           out.server == in.server && out.dataSource == in.dataSource &&
           out.dataSourceType == in.dataSourceType && out.catalog == in.catalog && out.schema == in.schema &&
           out.table == in.table && out.column == in.column;
  }));
}

TEST(DataUri, EveryByteStandsInEveryComponent) {
  for (int byte = 0; byte < 256; ++byte) {
    const QvbString c = text(std::string(1, static_cast<char>(byte)));
    QvDataURIComponents out;
    ASSERT_TRUE(getDataURIComponentsFromString(text(textOf(buildData({"qvd", c, c, c, c, c, c, c}))), &out));
    for (const auto& value :
         {out.server, out.dataSource, out.dataSourceType, out.catalog, out.schema, out.table, out.column})
      EXPECT_EQ(value, c) << byte;
  }
}

// Server references

TEST(ServerReference, IsBuiltFromServerPathAndType) {
  EXPECT_EQ(textOf(buildReference("Srv", "batch_jobs/load.ddf", "")), "dmsref://Srv/batch_jobs/load.ddf");
  EXPECT_EQ(textOf(buildReference("srv:21036", "/a b", "ProcessJob")),
            "dmsref://srv:21036/a%20b?ObjectType=ProcessJob");
}

TEST(ServerReference, NeedsAServerAndAPath) {
  EXPECT_EQ(buildReference("", "a", "Rule"), nullptr);
  EXPECT_EQ(buildReference("srv", "", "Rule"), nullptr);
  EXPECT_EQ(buildReference("srv", "//", "Rule"), nullptr);
}

TEST(ServerReference, TakesParametersInTheOrderTheyAreSet) {
  const Uri uri = buildReference("srv", "batch_jobs/load.ddf", "");
  EXPECT_TRUE(uri->setParameter("ServiceType", "BATCH"));
  EXPECT_TRUE(uri->setParameter("ObjectType", "ProcessJob"));
  EXPECT_EQ(textOf(uri), "dmsref://srv/batch_jobs/load.ddf?ServiceType=BATCH&ObjectType=ProcessJob");
}

TEST(Uri, OfOtherSchemesHasNoForms) {
  for (const char* other : {"VELK:///Jobs/a", "http://h/a", "file:///a", "dmsref://s/p?ObjectType=Rule"}) {
    EXPECT_EQ(parse(other)->getReposURI(), nullptr) << other;
    EXPECT_EQ(parse(other)->getDataURI(), nullptr) << other;
  }
}

// Parameters

TEST(UriParameter, IsDecodedAndMatchedExactly) {
  const Uri uri = parse("http://h/?a=1%202&b&=x&c=d=e&%61b=2&plus=a+b&a=3#z=1");
  EXPECT_EQ(uri->getParameter("a"), "1 2");
  EXPECT_EQ(uri->getParameter("b"), "");
  EXPECT_FALSE(uri->getParameter("b").isNull());
  EXPECT_EQ(uri->getParameter("c"), "d=e");
  EXPECT_EQ(uri->getParameter("ab"), "2");
  EXPECT_EQ(uri->getParameter("plus"), "a+b");
  for (const char* absent : {"A", "d", "z", "1", "%61b"})
    EXPECT_TRUE(uri->getParameter(absent).isNull()) << absent;
}

TEST(UriParameter, IsReplacedWhereItStands) {
  const struct {
    const char* given;
    const char* expected;
  } rows[] = {
      {"http://h/p", "http://h/p?t=n%20%26"},
      {"http://h/p?", "http://h/p?t=n%20%26"},
      {"http://h/p#f", "http://h/p?t=n%20%26#f"},
      {"http://h/p?a=1", "http://h/p?a=1&t=n%20%26"},
      {"http://h/p?a=%31&t=o&b", "http://h/p?a=%31&t=n%20%26&b"},
      {"http://h/p?t&T=1", "http://h/p?t=n%20%26&T=1"},
      {"http://h/p?t=1&a&t=2", "http://h/p?t=n%20%26&a"},
      {"http://h/p?%74=1", "http://h/p?t=n%20%26"},
  };
  for (const auto& row : rows) {
    const Uri uri = parse(row.given);
    EXPECT_TRUE(uri->setParameter("t", "n &"));
    EXPECT_EQ(textOf(uri), row.expected);
    EXPECT_EQ(uri->getParameter("t"), "n &");
  }
}

TEST(UriParameter, WithAValueOfNothingIsEmptyNotAbsent) {
  const Uri uri = parse("http://h/");
  EXPECT_TRUE(uri->setParameter("t", QvbString()));
  EXPECT_EQ(textOf(uri), "http://h/?t=");
  EXPECT_FALSE(uri->getParameter("t").isNull());
}

TEST(UriParameter, OfANameThatIsNotAWordIsRefused) {
  const Uri uri = parse("http://h/?a=1");
  EXPECT_FALSE(uri->setParameter("", "x"));
  EXPECT_EQ(uri->getErrorText(), "The name of a URI parameter is empty.");
  for (const char* name : {"a b", "a=b", "a&b", "a-b", "%61", "\xc3\xa9"}) {
    EXPECT_FALSE(uri->setParameter(name, "x"));
    EXPECT_EQ(str(uri->getErrorText()), "The name of the URI parameter \"" + std::string(name) +
                                            "\" may hold letters, digits and \"_\" only.");
  }
  EXPECT_EQ(textOf(uri), "http://h/?a=1");
  EXPECT_TRUE(uri->setParameter("A_1", "x"));
  EXPECT_TRUE(uri->getErrorText().isNull());
}

TEST(UriParameter, IsNamedByAnyLettersAndDigits) {
  for (const char* name : {"azAZ_", "09"}) {
    const Uri uri = parse("http://h/");
    EXPECT_TRUE(uri->setParameter(name, "x"));
    EXPECT_EQ(textOf(uri), "http://h/?" + std::string(name) + "=x");
  }
  const Uri uri = parse("http://h/");
  for (const char next : {'/', ':', '@', '[', '^', '`', '{'})
    EXPECT_FALSE(uri->setParameter(QvbString(std::string_view(&next, 1)), "x")) << next;
}

TEST(UriParameter, ReadsBackAsItWasAndLeavesTheRest) {
  EXPECT_TRUE(rc::check([] {
    const Uri uri = parse(*uriTexts());
    const QvbString path = uri->getPath();
    const QvbString authority = uri->getAuthority();
    const std::string value = *bytes();
    return uri->setParameter("name", text(value)) && str(uri->getParameter("name")) == value &&
           uri->getPath() == path && uri->getAuthority() == authority &&
           str(parse(textOf(uri))->getParameter("name")) == value;
  }));
}

// Sizes

TEST(Uri, LongTextsOfEveryShapeAreRead) {
  const std::string run(1 << 20, 'a');
  const auto repeat = [](const char* piece) {
    std::string all;
    for (int i = 0; i < 1 << 18; ++i)
      all += piece;
    return all;
  };
  EXPECT_EQ(parse(run + ":x")->getScheme().length(), 1 << 20);
  EXPECT_EQ(parse("qvr://" + run)->getAuthority().length(), 1 << 20);
  EXPECT_EQ(parse("http://" + repeat(":@[]"))->getAuthority().length(), 1 << 20);
  EXPECT_EQ(parse("http://h/" + repeat("%%% "))->getPath().length(), (1 << 20) + 1);
  EXPECT_EQ(normalOf("http://h" + repeat("/a/..")), "http://h/");
  EXPECT_EQ(normalOf("file:" + repeat("../")), "file:" + repeat("../"));
  EXPECT_EQ(normalOf("http://h/?" + repeat("%7e")).size(), std::size_t(10) + (1 << 18));
  const Uri query = parse("http://h/?" + repeat("a=b&"));
  EXPECT_TRUE(query->setParameter("a", "c"));
  EXPECT_EQ(textOf(query), "http://h/?a=c");
}

// Slashes

TEST(BackSlashes, BecomeSlashes) {
  QvbString out;
  EXPECT_TRUE(convertBackSlashesToSlashes("a\\b/c\\", &out));
  EXPECT_EQ(out, "a/b/c/");
  EXPECT_TRUE(convertBackSlashesToSlashes(text(std::string("\\\0\\", 3)), &out));
  EXPECT_EQ(out, text(std::string("/\0/", 3)));
  QvbString same = "a\\b";
  EXPECT_TRUE(convertBackSlashesToSlashes(same, &same));
  EXPECT_EQ(same, "a/b");
}

TEST(BackSlashes, AbsentLeaveTheOutputUntouched) {
  for (const QvbString& in : {QvbString(), QvbString(""), QvbString("a/b")}) {
    QvbString out = "before";
    EXPECT_FALSE(convertBackSlashesToSlashes(in, &out));
    EXPECT_EQ(out, "before");
  }
}

} // namespace
