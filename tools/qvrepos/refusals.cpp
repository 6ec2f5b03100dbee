#include "refusals.h"

#include "qvxbase/qvbconfig.h"
#include "qvxbase/qvbpath.h"
#include "qvxbase/qvuri.h"
#include "qvxdom/qvdom.h"

#include <filesystem>

namespace {

// The files that the library takes for definition files, in the folder of an option; one that cannot be read becomes a
// refusal.
std::vector<QvbString> definitionFiles(const QvbOption& option, std::vector<Refusal>& refusals) {
  std::vector<QvbString> files;
  QvbString folder = qvbGetConfigOption(option);
  if (folder.isEmpty())
    return files;
  const Released<QvURI> uri(getURIFromURIString(folder));
  getNativePath(uri.get(), &folder);
  QvbString error;
  const Released<QvbDirectory> directory(qvbDirectoryOpen(folder, 0, &error));
  if (!directory)
    refusals.push_back({str(folder), std::string(option.key) + ": " + str(error)});
  while (directory && directory->next())
    if (directory->getName().view().ends_with("rcf"))
      files.push_back(directory->getPath());
  return files;
}

// The definition's element in a document: the root or a child of it. Missing when there is none.
QvDomNode definitionElement(const QvDom& document) {
  const auto isDefinition = [](const QvDomNode& node) {
    return node.getName().compare("VaultRepositoryInfo", true) == 0;
  };
  QvDomNode element = document.getRoot();
  if (!isDefinition(element))
    for (element = element.getFirstChild(false); !element.null() && !isDefinition(element);)
      element = element.getNextSibling(false);
  return element;
}

// Why a file that was not loaded was not, given what was.
Refusal whyNotLoaded(const std::string& file, QvReposConfigManager& manager) {
  std::error_code ignored;
  if (!std::filesystem::is_regular_file(file, ignored))
    return {file, file + ": not a regular file"};
  QvDom document;
  if (!document.loadFile(text(file)))
    return {file, str(document.getErrorMessage())};
  const QvDomNode element = definitionElement(document);
  if (element.null())
    return {file, "The file \"" + file + "\" is not a valid definition file."};
  const QvbString name = element.getAttributeValue("Name");
  const Released<QvReposConfiguration> winner(manager.getConfigurationByName(name));
  return {file,
          file + ": a definition named \"" + str(name) + "\" is loaded from " +
              (winner ? str(winner->getFilename()) : "another file"),
          true};
}

} // namespace

std::set<std::string> loadedFiles(QvReposConfigManager& manager) {
  std::set<std::string> files;
  const Released<QvReposConfigurationList> list(manager.getConfigurations());
  while (list->next())
    files.insert(str(Released<QvReposConfiguration>(list->getValue())->getFilename()));
  return files;
}

std::vector<Refusal> findRefusals(QvReposConfigManager& manager, const std::set<std::string>& loaded) {
  std::vector<Refusal> refusals;
  for (const auto* option : folderOptions)
    for (const auto& file : definitionFiles(*option, refusals))
      if (!loaded.contains(str(file)))
        refusals.push_back(whyNotLoaded(str(file), manager));
  return refusals;
}
