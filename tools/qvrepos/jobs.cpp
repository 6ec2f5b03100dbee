#include "jobs.h"

#include "qvreposres/qvreposobjecttypes.h"
#include "qvxdom/qvdom.h"

#include <algorithm>
#include <array>

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

// Folders that are reached through a symbolic link are not entered: a link cannot make the search endless.
void searchFolder(const fs::path& root, JobFiles& found) {
  std::vector<fs::path> pending{root};
  while (!pending.empty()) {
    const fs::path next = std::move(pending.back());
    pending.pop_back();
    std::error_code ignored;
    if (next != root && !fs::is_directory(fs::symlink_status(next, ignored))) {
      found.files.push_back(next.string());
      continue;
    }
    std::vector<fs::path> wanted;
    for (const auto& entry : entriesOf(next, found))
      if (fs::is_directory(entry.symlink_status(ignored)) ||
          (entry.is_regular_file(ignored) && isJobFile(entry.path())))
        wanted.push_back(entry.path());
    pending.insert(pending.end(), wanted.rbegin(), wanted.rend());
  }
}

// Why the library could not read the document.
std::string readFailure(const std::string& path) {
  if (fs::is_directory(path))
    return path + ": a folder, where a job file is due";
  QvDom document;
  if (document.loadFile(text(path)))
    return path + ": the file changed while it was read";
  return str(document.getErrorMessage());
}

} // namespace

JobFiles findJobFiles(const std::vector<std::string>& paths) {
  JobFiles found;
  for (const auto& given : paths) {
    const fs::path path = absolutePath(given);
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
