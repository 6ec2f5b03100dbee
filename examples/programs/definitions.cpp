// Lists the repository definitions of a folder and saves a new one there: example_definitions FOLDER [NAME VAULT]
#include <qvreposres/qvreposconfigmgr.h>
#include <qvxbase/qvbconfig.h>
#include <qvxbase/qvbreleased.h>

#include <cstdio>

namespace {

void list(QvReposConfigManager& manager) {
  const Released<QvReposConfigurationList> definitions(manager.getConfigurations());
  while (definitions->next()) {
    const Released<QvReposConfiguration> definition(definitions->getValue()); // a copy, ours to release
    std::printf("%s: %s\n", definition->getName().asCstr(), definition->getVaultPath().asCstr());
  }
}

bool save(QvReposConfigManager& manager, const char* name, const char* vault) {
  const Released<QvReposConfiguration> definition(manager.createConfiguration(name, QvReposConfigTypeUser));
  if (!definition)
    return false;
  definition->setVaultPath(vault);
  definition->setUnifiedConnectionType(QvUnifiedReposConnectFile);
  QvbString error;
  const bool saved = manager.saveConfiguration(definition.get(), &error);
  if (!saved)
    std::fprintf(stderr, "%s\n", error.asCstr());
  return saved;
}

} // namespace

int main(int argc, char** argv) {
  if (argc != 2 && argc != 4)
    return std::fprintf(stderr, "usage: %s FOLDER [NAME VAULT]\n", argv[0]), 2;
  qvbSetConfigOption("BASE/REPOS_USER_PATH", argv[1]);

  const Released<QvReposConfigManager> manager(getRepositoryConfigurationManager());
  const bool done = argc == 2 || save(*manager, argv[2], argv[3]);
  list(*manager);
  return done ? 0 : 1;
}
