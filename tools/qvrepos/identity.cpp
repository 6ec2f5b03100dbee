// qvrepos identity: resource identities made and taken apart.
#include "host.h"

#include "qvreposres/qvresourcemgr.h"

#include <array>
#include <functional>
#include <map>

namespace {

// What a field of an identity holds; a name means the same in every kind.
const char* fieldHelp(std::string_view field) {
  static const std::map<std::string_view, const char*> help{
      {"filename", "The file's path"},
      {"name", "Its display name (default: the last part of the path)"},
      {"type", "The object's type, for example Rule"},
      {"id", "The object's id in its repository"},
      {"uuid", "The object's universal id"},
      {"dsn", "The name of the data source, or its connection string"},
      {"dsntype", "The type of the data source: ODBC or GRVS"},
      {"catalog", "The table's catalog"},
      {"schema", "The table's schema"},
      {"table", "The table's name"}};
  return help.at(field);
}

// One kind of identity: its fields in order, and how the library makes and reads it.
struct IdentityKind {
  const char* name;
  const char* help;
  const char* required; // of its options
  const char* example;  // the options of one
  std::vector<const char*> fields;
  std::function<bool(QvResourceManager&, std::vector<QvbString>&, QvbString*)> make;
  std::function<bool(QvResourceManager&, const QvbString&, std::vector<QvbString>&)> parse;
};

const std::array<IdentityKind, 4>& identityKinds() {
  using Manager = QvResourceManager;
  using Values = std::vector<QvbString>;
  static const std::array<IdentityKind, 4> kinds{{
      {"file",
       "Print the identity of a file",
       "--filename",
       "--filename /srv/sales/prices.csv --name Prices",
       {"filename", "name"},
       [](Manager& m, Values& v, QvbString* id) { return m.generateFileResourceId(v[0], v[1], id); },
       [](Manager& m, const QvbString& id, Values& v) {
         return m.getFilenameFromResourceId(id, &v[0], &v[1]);
       }},
      {"unified",
       "Print the identity of a repository object",
       "--id or --uuid",
       "--type Rule --id 42",
       {"type", "id", "uuid"},
       [](Manager& m, Values& v, QvbString* id) {
         return m.generateUnifiedObjectResourceId(QvbString(), v[0], v[1], v[2], id);
       },
       [](Manager& m, const QvbString& id, Values& v) {
         QvbString repository;
         return m.getUnifiedObjectFromResourceId(id, &repository, &v[0], &v[1], &v[2]);
       }},
      {"table",
       "Print the identity of a table",
       "--table",
       "--dsn Sales --schema dbo --table CUSTOMERS",
       {"dsn", "dsntype", "catalog", "schema", "table"},
       [](Manager& m, Values& v, QvbString* id) {
         return m.generateTableDataSourceResourceId(v[0], v[1], v[2], v[3], v[4], id);
       },
       [](Manager& m, const QvbString& id, Values& v) {
         return m.getTableObjectFromResourceId(id, &v[0], &v[1], &v[2], &v[3], &v[4]);
       }},
      {"datasource",
       "Print the identity of a data source",
       "--dsn",
       "--dsn Sales --dsntype ODBC",
       {"dsn", "dsntype"},
       [](Manager& m, Values& v, QvbString* id) { return m.generateDataSourceResourceId(v[0], v[1], id); },
       [](Manager& m, const QvbString& id, Values& v) {
         return m.getDataSourceObjectFromResourceId(id, &v[0], &v[1]);
       }},
  }};
  return kinds;
}

void makeIdentity(Host& host, const IdentityKind& kind, const std::vector<std::string>& given) {
  const Released<QvResourceManager> manager(createQvResourceManager());
  std::vector<QvbString> values;
  values.reserve(given.size());
  for (const auto& value : given)
    values.push_back(QvbString(value));
  QvbString identity;
  if (!kind.make(*manager, values, &identity))
    throw CLI::ValidationError(std::string("an identity of kind ") + kind.name + " needs " + kind.required);
  else if (host.json)
    host.printJson({{"kind", kind.name}, {"identity", toString(identity)}});
  else
    host.printLine(identity.view());
}

void printFields(Host& host, const IdentityKind& kind, const std::vector<QvbString>& values) {
  nlohmann::ordered_json record{{"kind", kind.name}};
  std::vector<std::vector<std::string>> rows{{"kind", kind.name}};
  for (std::size_t field = 0; field < values.size(); ++field) {
    record[kind.fields[field]] = toString(values[field]);
    rows.push_back({kind.fields[field], toString(values[field])});
  }
  if (host.json)
    host.printJson(record);
  else
    host.printTable({"FIELD", "VALUE"}, rows);
}

void parseIdentity(Host& host, const std::string& identity) {
  const Released<QvResourceManager> manager(createQvResourceManager());
  for (const auto& kind : identityKinds()) {
    std::vector<QvbString> values(kind.fields.size());
    if (kind.parse(*manager, QvbString(identity), values))
      return printFields(host, kind, values);
  }
  host.reportFailure("not a resource identity, which `qvrepos identity make` prints: " + identity);
}

void addMakeCommand(CLI::App& identity, Host& host) {
  auto* make = identity.add_subcommand("make", "Print the identity of a resource");
  make->require_subcommand(1);
  for (const auto& kind : identityKinds()) {
    auto* command = make->add_subcommand(kind.name, kind.help);
    auto values = std::make_shared<std::vector<std::string>>(kind.fields.size());
    for (std::size_t field = 0; field < kind.fields.size(); ++field)
      command
          ->add_option(std::string("--") + kind.fields[field], (*values)[field],
                       fieldHelp(kind.fields[field]))
          ->type_name("TEXT")
          ->check(xmlText());
    addJsonFlag(*command, host, "a record: kind, identity");
    command->footer(std::string("Needs ") + kind.required + ".\nExample: qvrepos identity make " + kind.name +
                    " " + kind.example);
    command->callback([&host, &kind, values] { makeIdentity(host, kind, *values); });
  }
}

} // namespace

void addIdentityCommand(CLI::App& app, Host& host) {
  auto* identity = app.add_subcommand("identity", "Make resource identities and take them apart");
  identity->require_subcommand(1);
  addMakeCommand(*identity, host);

  auto* parse = identity->add_subcommand("parse", "Print the fields of an identity");
  auto given = std::make_shared<std::string>();
  parse->add_option("IDENTITY", *given, "The identity's XML text")->required();
  addJsonFlag(*parse, host, "a record: kind, then the kind's fields");
  parse->footer("Example: qvrepos identity parse \"$(qvrepos identity make datasource --dsn Sales)\"");
  parse->callback([&host, given] { parseIdentity(host, *given); });
}
