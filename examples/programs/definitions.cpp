// Lists the repository definitions of a folder and saves a new one there: example_definitions FOLDER [NAME VAULT]
#include <qvreposres/cpp.h>

#include <iostream>

namespace {

bool save(qvreposres::Definitions& definitions, std::string_view name, std::string_view vault) {
  auto definition = definitions.create(name);
  if (!definition)
    return std::cerr << definition.error() << '\n', false;
  definition->setVault(vault).setConnection(QvUnifiedReposConnectFile);
  const auto saved = definitions.save(*definition);
  if (!saved)
    std::cerr << saved.error() << '\n';
  return saved.ok();
}

} // namespace

int main(int argc, char** argv) {
  if (argc != 2 && argc != 4)
    return std::cerr << "usage: " << argv[0] << " FOLDER [NAME VAULT]\n", 2;
  qvreposres::setOption("BASE/REPOS_USER_PATH", argv[1]);

  qvreposres::Definitions definitions;
  const bool done = argc == 2 || save(definitions, argv[2], argv[3]);
  for (const auto& definition : definitions.all())
    std::cout << definition.name() << ": " << definition.vault().string() << '\n';
  return done ? 0 : 1;
}
