// Any file as a definition: it is loaded or refused, and one that is loaded is saved as a file that says the same.
#include "fuzz.h"
#include "qvreposres/qvreposconfigmgr.h"
#include "qvxbase/qvbconfig.h"
#include "qvxbase/qvbreleased.h"

namespace {

using Manager = Released<QvReposConfigManager>;
using Definition = Released<QvReposConfiguration>;

Definition first(QvReposConfigManager& manager) {
  const Released<QvReposConfigurationList> all(manager.getConfigurations());
  return Definition(all->next() ? all->getValue() : nullptr);
}

// `b` is what was read after `a` was saved, where the definition's name stands for a missing name of its database.
bool sayTheSame(QvReposConfiguration& a, QvReposConfiguration& b) {
  const QvbString unified =
      a.getUnifiedRepositoryName().isEmpty() ? a.getName() : a.getUnifiedRepositoryName();
  return isSameInXml(b.getVaultLogFile(), a.getVaultLogFile()) &&
         isSameInXml(b.getUnifiedRepositoryVersion(), a.getUnifiedRepositoryVersion()) &&
         isSameInXml(b.getUnifiedRepositoryName(), unified);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const FuzzFile file("any.rcf");
  static const bool isSet = [] {
    qvbSetConfigOption("BASE/REPOS_SYS_PATH", file.folder());
    qvbSetConfigOption("LOG/LEVEL", "6");
    return true;
  }();
  require(isSet);
  file.write({reinterpret_cast<const char*>(data), size});
  const Manager manager(getRepositoryConfigurationManager());
  const Definition loaded = first(*manager);
  const Released<QvReposRefusalList> refusals(manager->getRefusals());
  require((loaded != nullptr) != refusals->next());
  // A name that leads elsewhere is not saved here.
  if (!loaded || loaded->getName().isEmpty() || loaded->getName().view().find('/') != std::string_view::npos)
    return 0;
  loaded->setName("any");
  require(manager->saveConfiguration(loaded.get(), nullptr));
  const Definition again = first(*manager);
  require(again && sayTheSame(*loaded, *again));
  return 0;
}
