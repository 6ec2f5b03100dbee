// qvrepos types: object types and file extensions.
#include "host.h"

#include "qvreposres/qvreposobjecttypes.h"

#include <algorithm>
#include <iterator>

namespace {

struct TypeRow {
  std::string extension;
  std::string type;
};

std::vector<TypeRow> allTypes() {
  std::vector<TypeRow> rows;
  for (const auto* extension = getKnownFileExtensions(); *extension; ++extension) {
    QvbString type;
    getTypeForFileExtension(*extension, &type);
    rows.push_back({*extension, toString(type)});
  }
  std::sort(rows.begin(), rows.end(), [](const TypeRow& a, const TypeRow& b) {
    return std::tie(a.type, a.extension) < std::tie(b.type, b.extension);
  });
  return rows;
}

// The rows that a name selects: an extension, with or without its dot, or a type, both in any case.
std::vector<TypeRow> typesNamed(const std::string& name) {
  const auto plain = std::string_view(name).substr(name.starts_with('.') ? 1 : 0);
  std::vector<TypeRow> rows;
  const auto all = allTypes();
  std::copy_if(all.begin(), all.end(), std::back_inserter(rows), [&](const TypeRow& row) {
    return qvbEqualsIgnoreCase(row.extension, plain) || qvbEqualsIgnoreCase(row.type, name);
  });
  QvbString extension;
  if (rows.empty() && getFileExtensionForType(QvbString(name), &extension))
    rows.push_back({toString(extension), name});
  return rows;
}

void printTypes(Host& host, const std::string& name) {
  const auto types = name.empty() ? allTypes() : typesNamed(name);
  if (types.empty())
    return host.reportFailure("neither an object type nor an extension that has one: " + name +
                              "; `qvrepos types` lists all");
  auto records = nlohmann::ordered_json::array();
  std::vector<std::vector<std::string>> rows;
  for (const auto& row : types) {
    records.push_back({{"type", row.type}, {"extension", row.extension}});
    rows.push_back({row.type, row.extension});
  }
  if (host.json)
    host.printJson(records);
  else
    host.printTable({"TYPE", "EXTENSION"}, rows);
}

} // namespace

std::vector<std::string> objectTypes() {
  std::vector<std::string> types;
  for (const auto& row : allTypes())
    if (types.empty() || types.back() != row.type)
      types.push_back(row.type);
  return types;
}

void addTypesCommand(CLI::App& app, Host& host) {
  auto* command = app.add_subcommand("types", "List object types and their file extensions");
  auto name = std::make_shared<std::string>();
  command->add_option("NAME", *name, "Only this type, or the type of this extension")->check(notEmpty());
  addJsonFlag(*command, host, "an array of records: type, extension");
  command->footer("Example: qvrepos types ProcessJob");
  command->callback([&host, name] { printTypes(host, *name); });
}
