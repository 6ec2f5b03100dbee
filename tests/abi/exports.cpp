// The exported names are a contract: nothing that applications link against may go missing, and nothing else may leak.
#include "support/golden.h"
#include "support/process.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <set>
#include <sstream>

using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

namespace {

std::string dynamicSymbols(const std::vector<std::string>& options,
                           const std::string& library = "libqvreposres.so") {
  std::vector<std::string> command{"nm", "-D", "--defined-only", "--format=posix"};
  command.insert(command.end(), options.begin(), options.end());
  command.push_back(QV_BINARY_DIR "/lib/" + library);
  const auto run = runProcess(command);
  EXPECT_EQ(run.status, 0) << run.err;
  return run.out;
}

// The first word of each line, sorted.
std::set<std::string> firstWords(const std::string& lines) {
  std::set<std::string> words;
  std::istringstream in(lines);
  for (std::string line; std::getline(in, line);)
    words.insert(line.substr(0, line.find(' ')));
  return words;
}

std::string joined(const std::set<std::string>& words) {
  std::string lines;
  for (const auto& word : words)
    lines += word + "\n";
  return lines;
}

bool isBuild(const std::string& name) { return std::string(QV_BINARY_DIR).ends_with("/" + name); }

bool isReleaseBuild() { return isBuild("release"); }

std::set<std::string> namesIn(const std::string& list) {
  std::ifstream in(QV_TEST_DATA "/../abi/" + list);
  return firstWords({std::istreambuf_iterator<char>(in), {}});
}

// What services that came later export, one name a line; kept by hand.
std::set<std::string> addedNames() { return namesIn("exports-added.txt"); }

std::set<std::string> without(std::set<std::string> names, const std::set<std::string>& others) {
  std::erase_if(names, [&](const std::string& name) { return others.contains(name); });
  return names;
}

// Without optimisation the interfaces have virtual tables of their own, which nothing refers to otherwise.
bool isTableOfListed(const std::string& name, const std::set<std::string>& listed) {
  return name.starts_with("_ZTV") && listed.contains("_ZTI" + name.substr(4));
}

// In every build nothing is missing, and nothing leaks but what a sanitizer makes of its own.
void expectExports(const std::string& library, const std::string& list,
                   const std::set<std::string>& listedApart = {}) {
  auto names = without(firstWords(dynamicSymbols({}, library)), listedApart);
  EXPECT_THAT(names, Not(IsEmpty()));
  const auto listed = isReleaseBuild() ? firstWords(golden("../abi/" + list, joined(names))) : namesIn(list);
  EXPECT_EQ(joined(without(listed, names)), "");
  if (!isReleaseBuild())
    std::erase_if(names, [&](const std::string& name) {
      return isTableOfListed(name, listed) || isTableOfListed(name, listedApart);
    });
  if (isReleaseBuild() || isBuild("debug")) {
    EXPECT_EQ(joined(without(names, listed)), "");
  }
}

TEST(Exports, AreExactlyThoseOfTheList) { expectExports("libqvreposres.so", "exports.txt", addedNames()); }

TEST(Exports, OfTheLineageGraphAreExactlyThoseOfTheList) {
  expectExports("libqvlineagegraph.so", "exports-graph.txt");
}

TEST(Exports, HoldEveryNameThatWasAdded) {
  EXPECT_THAT(addedNames(), Not(IsEmpty()));
  EXPECT_EQ(joined(without(addedNames(), firstWords(dynamicSymbols({})))), "");
}

TEST(Exports, OfThePlatformAreExactlyThoseOfTheList) {
  expectExports("libqvplatform.so", "exports-platform.txt");
}

// A standard library's types differ from one compiler to the next. What an exported class does with them among its own
// is hidden. A sanitizer adds information about the types of functions.
TEST(Exports, HoldNoTypeOfTheStandardLibrary) {
  std::istringstream names(dynamicSymbols({"-C"}));
  for (std::string name; std::getline(names, name);) {
    if (isReleaseBuild() || !name.starts_with("typeinfo ")) {
      EXPECT_THAT(name, AllOf(Not(HasSubstr("std::")), Not(HasSubstr("__gnu_cxx::"))));
    }
  }
}

// A virtual operation more, or one less, shows here, and belongs in slots.cpp.
TEST(Exports, VirtualTablesHaveTheSlotsOfTheList) {
  std::istringstream symbols(dynamicSymbols({}));
  const auto listed = namesIn("exports.txt");
  std::string slots, name, type, address, size;
  while (symbols >> name >> type >> address >> size)
    if (name.starts_with("_ZTV") && listed.contains(name)) // two words come before the slots
      slots += name + " " + std::to_string(std::stoul(size, nullptr, 16) / sizeof(void*) - 2) + "\n";
  const std::string expected = golden("../abi/virtual-tables.txt", slots);
  if (isReleaseBuild() || isBuild("debug")) {
    EXPECT_EQ(slots, expected);
  } else { // a sanitizer leaves room behind each object
    EXPECT_EQ(joined(firstWords(slots)), joined(firstWords(expected)));
  }
}

TEST(Exports, PlainNamesAreTheEntryPointsAndTheBuildData) {
  std::set<std::string> plain;
  for (const auto& name : without(firstWords(dynamicSymbols({})), addedNames()))
    if (!name.starts_with("_")) // mangled names, and those that the compiler and its sanitizers reserve
      plain.insert(name);
  plain.erase("lprofDirMode"); // of the counters in a coverage build
  const std::set<std::string> expected{"createQvResourceManager",
                                       "createRepositoryMetadataObject",
                                       "createRepositoryMetadataSerializationContext",
                                       "fixFilesystemStringSlashes",
                                       "generateFilenameFromURIReference",
                                       "generateFilenameFromURIandRepository",
                                       "generateURIReferenceFromFilename",
                                       "getComponentsFromFilesystemPath",
                                       "getDefaultRepositoryRootFolders",
                                       "getFileCache",
                                       "getFileExtensionForType",
                                       "getInvalidNameChars",
                                       "getMDMRepositoryRootFolder",
                                       "getMDMTemplateRootFolder",
                                       "getNormalizedNameValue",
                                       "getQvLineageAnalysis",
                                       "getRepositoryConfigurationManager",
                                       "getRepositoryEventChangeTypeFromString",
                                       "getRepositoryEventChangeTypeString",
                                       "getRepositoryEventManager",
                                       "getRepositoryFoundationsFolder",
                                       "getTypeForFileExtension",
                                       "isInvalidCharInName",
                                       "qvFileCacheShutdown",
                                       "qvFileCacheStartup",
                                       "qvReposResShutdown",
                                       "qvReposResStartup",
                                       "qvx_build_info",
                                       "qvx_build_number",
                                       "qvx_build_version",
                                       "setFileCacheManager"};
  EXPECT_EQ(joined(plain), joined(expected));
}

TEST(Exports, FreeFunctionsThatCarryTheirArgumentTypesAreFive) {
  std::set<std::string> mangled;
  for (const auto& name : firstWords(dynamicSymbols({})))
    if (name.starts_with("_Z") && std::isdigit(static_cast<unsigned char>(name[2])))
      mangled.insert(name);
  EXPECT_EQ(mangled.size(), 5U) << joined(mangled);
  for (const char* name : {"isDirectoryPath", "parseFileExt", "trimFileSeperators",
                           "getRepositoryFilesystemRoot", "generateFilenameFromVaultPath"})
    EXPECT_THAT(joined(mangled), HasSubstr(name));
}

TEST(Exports, TypeInformationOfEveryInterfaceAndImplementationCanBeLinked) {
  const auto names = dynamicSymbols({"-C"});
  for (const char* type : {"QvReposConfigManager",
                           "QvReposConfigManagerImpl",
                           "QvReposConfiguration",
                           "QvReposConfigurationImpl",
                           "QvReposConfigurationList",
                           "QvReposConfigurationListImpl",
                           "QvReposEventManager",
                           "QvReposEventMgrImpl",
                           "QvResourceManager",
                           "QvResourceManagerImpl",
                           "QvResource",
                           "QvResourceImpl",
                           "QvResourceList",
                           "QvResourceListImpl",
                           "QvResourcePropertyList",
                           "QvResourcePropertyListImpl",
                           "QvStringList",
                           "QvStringListImpl",
                           "QvResourceFactory",
                           "LineageImpactFactoryImpl",
                           "QvResourceResolver",
                           "LineageResourceResolver",
                           "QvImpactAnalysis",
                           "LineageSerializationImpl",
                           "RepositoryMetadataObject",
                           "RepositoryMetadataObjectImpl",
                           "RepositoryMetadataObjectList",
                           "RepositoryMetadataObjectListImpl",
                           "RepositorySerializationContext",
                           "RepositorySerializationContextImpl",
                           "FileAccessCache",
                           "FileAccessCacheManager",
                           "FileAccessCacheSourceProvider"})
    EXPECT_THAT(names, HasSubstr("typeinfo for " + std::string(type) + " ")) << type;
}

} // namespace
