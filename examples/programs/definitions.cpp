// Lists the repository definitions of a folder and saves a new one there: example_definitions FOLDER [NAME VAULT]
#include <qvreposres/qvreposconfigmgr.h>
#include <qvxbase/qvbconfig.h>

#include <cstdio>

namespace {

void list(QvReposConfigManager* manager) {
  QvReposConfigurationList* definitions = manager->getConfigurations();
  while (definitions->next()) {
    QvReposConfiguration* definition = definitions->getValue(); // a copy, ours to release
    std::printf("%s: %s\n", definition->getName().asCstr(), definition->getVaultPath().asCstr());
    definition->release();
  }
  definitions->release();
}

bool save(QvReposConfigManager* manager, const char* name, const char* vault) {
  QvReposConfiguration* definition = manager->createConfiguration(name, QvReposConfigTypeUser);
  if (!definition)
    return false;
  definition->setVaultPath(vault);
  definition->setUnifiedConnectionType(QvUnifiedReposConnectFile);
  QvbString error;
  const bool saved = manager->saveConfiguration(definition, &error);
  if (!saved)
    std::fprintf(stderr, "%s\n", error.asCstr());
  definition->release();
  return saved;
}

} // namespace

int main(int argc, char** argv) {
  if (argc != 2 && argc != 4)
    return std::fprintf(stderr, "usage: %s FOLDER [NAME VAULT]\n", argv[0]), 2;
  qvbSetConfigOption("BASE/REPOS_USER_PATH", argv[1]);

  QvReposConfigManager* manager = getRepositoryConfigurationManager();
  const bool done = argc == 2 || save(manager, argv[2], argv[3]);
  list(manager);
  manager->release();
  return done ? 0 : 1;
}
