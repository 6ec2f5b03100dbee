#include "jobs.h"

#include "qvreposres/qvreposobjecttypes.h"
#include "qvxdom/qvdom.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <optional>

namespace fs = std::filesystem;

namespace {

constexpr std::array<const char*, 4> jobTypes{"ProcessJob", "ArchitectJob", "DataJob", "XMLSQLQuery"};

bool isJobFile(const fs::path& path) {
  QvbString extension, folder, name, type;
  getComponentsFromFilesystemPath(text(path.native()), &extension, &folder, &name);
  return getTypeForFileExtension(extension, &type) &&
         std::any_of(jobTypes.begin(), jobTypes.end(),
                     [&](const char* jobType) { return type.compare(jobType) == 0; });
}

std::string failure(const fs::path& path, const std::string& reason) { return path.string() + ": " + reason; }

// Entries of a folder in name order; an unreadable folder becomes a failure.
std::vector<fs::directory_entry> entriesOf(const fs::path& folder, JobFiles& found) {
  std::error_code error;
  std::vector<fs::directory_entry> entries;
  for (auto entry = fs::directory_iterator(folder, error); !error && entry != fs::directory_iterator();
       entry.increment(error))
    entries.push_back(*entry);
  if (error)
    found.failures.push_back(failure(folder, error.message()));
  std::sort(entries.begin(), entries.end());
  return entries;
}

struct Found {
  fs::path path;
  bool isFolder = false;
};

// The entry, where it is a folder or a job file; one that cannot be looked at becomes a failure.
std::optional<Found> lookAt(const fs::directory_entry& entry, JobFiles& found) {
  std::error_code error;
  if (fs::is_directory(entry.symlink_status(error)))
    return Found{entry.path(), true};
  if (!error && !isJobFile(entry.path()))
    return std::nullopt;
  const auto target = entry.status(error);
  if (error)
    found.failures.push_back(failure(entry.path(), error.message()));
  return fs::is_regular_file(target) ? std::optional(Found{entry.path(), false}) : std::nullopt;
}

// Folders that are reached through a symbolic link are not entered: a link cannot make the search endless.
void searchFolder(const fs::path& root, JobFiles& found) {
  std::vector<Found> pending{{root, true}};
  while (!pending.empty()) {
    const Found next = std::move(pending.back());
    pending.pop_back();
    if (!next.isFolder) {
      found.files.push_back(next.path.string());
      continue;
    }
    std::vector<Found> wanted;
    for (const auto& entry : entriesOf(next.path, found))
      if (auto one = lookAt(entry, found))
        wanted.push_back(std::move(*one));
    std::move(wanted.rbegin(), wanted.rend(), std::back_inserter(pending));
  }
}

// Why the library could not read the document.
std::string readFailure(const std::string& path) {
  std::error_code ignored;
  const auto status = fs::status(path, ignored);
  if (fs::exists(status) && !fs::is_regular_file(status))
    return path + ": " + (fs::is_directory(status) ? "a folder" : "no regular file") +
           ", where a job file is due";
  QvDom document;
  if (document.loadFile(text(path)))
    return path + ": the file changed while it was read";
  return str(document.getErrorMessage());
}

} // namespace

JobFiles findJobFiles(const std::vector<std::string>& paths) {
  JobFiles found;
  for (const auto& given : paths) {
    const fs::path path = absolutePath(nativePath(given));
    std::error_code error;
    const auto status = fs::status(path, error);
    if (fs::is_directory(status))
      searchFolder(path, found);
    else if (fs::exists(status))
      found.files.push_back(path.string());
    else
      found.failures.push_back(failure(
          path, status.type() == fs::file_type::not_found ? "no such file or folder" : error.message()));
  }
  return found;
}

std::string jobFileExtensions() {
  std::string extensions = "their extensions are";
  for (const char* type : jobTypes) {
    QvbString extension;
    if (getFileExtensionForType(type, &extension))
      extensions += (type == jobTypes.front() ? " " : ", ") + str(extension);
  }
  return extensions;
}

void noteLossyNames(Host& host, const std::vector<std::string>& names) {
  for (const auto& name : names)
    if (!isXmlText(name))
      host.note(name +
                ": the name holds what XML cannot carry, shown as U+FFFD; names that differ in nothing else "
                "look the same");
}

JobScanner::JobScanner() : m_store(getQvLineageAnalysis()), m_manager(createQvResourceManager()) {
  if (!m_store)
    throw std::bad_alloc();
}

std::string JobScanner::scan(const std::string& path, QvResourceList* job, QvResourceList* used) {
  QvResourceFactory* factory = m_store->getDefaultResourceFactory();
  const QvbString reference = text(path);
  if (!m_manager->addSQLResourcesFromFile(reference, factory, used))
    return readFailure(path);
  QvbString jobReference = reference;
  m_manager->addJobFileNode(factory, job, jobReference);
  return {};
}
