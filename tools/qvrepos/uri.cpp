// qvrepos uri and qvrepos path: file names to URI references and back.
#include "host.h"

#include "qvreposres/qvresourceuri.h"

namespace {

// A file and its URI: `result`, the one that was made, alone, or both as a record.
void printPair(Host& host, const QvbString& file, const QvbString& uri, const QvbString& result) {
  if (host.json)
    host.printJson({{"file", toString(file)}, {"uri", toString(uri)}});
  else
    host.printLine(result.view());
}

bool isFileUri(const std::string& uri) {
  return qvbEqualsIgnoreCase(std::string_view(uri).substr(0, 5), "file:");
}

void printUri(Host& host, const std::string& given) {
  const QvbString file = QvbString(absolutePath(given));
  QvbString uri;
  if (generateURIReferenceFromFilename(file, &uri))
    printPair(host, file, uri, uri);
  else
    host.reportFailure(given + ": a repository's own folder has no URI; name a file in it");
}

void printPath(Host& host, const std::string& uri, const std::string* repository) {
  host.setDefaultLogLevel(QvLoggingLevel::Critical); // what the library logs as an error is reported here
  const ReleasedSubject subject(qvbSubjectAccess());
  QvbString path, message;
  const bool found =
      repository ? generateFilenameFromURIandRepository(subject.get(), QvbString(uri), QvbString(*repository),
                                                        &path, nullptr, &message)
                 : generateFilenameFromURIReference(subject.get(), QvbString(uri), &path);
  if (found)
    printPair(host, path, QvbString(uri), path);
  else
    host.reportFailure(!message.isEmpty() ? toString(message)
                       : isFileUri(uri)
                           ? "\"" + uri + "\" names no file of this machine"
                           : "no file name can be made of \"" + uri +
                                 "\"; give a file URI, or a repository URI with its ?type= and the name of a "
                                 "repository that `qvrepos definitions list` shows");
}

} // namespace

void addUriCommands(CLI::App& app, Host& host) {
  auto file = std::make_shared<std::string>();
  auto* uri = app.add_subcommand("uri", "Print the URI reference of a file");
  uri->add_option("FILE", *file, "A file name; a file below a repository's folder becomes a repository URI")
      ->required()
      ->check(notEmpty());
  addJsonFlag(*uri, host, "a record: file, uri");
  uri->footer("Example: qvrepos uri examples/repository/batch_jobs/clean_customers.djf");
  uri->callback([&host, file] { printUri(host, *file); });

  auto reference = std::make_shared<std::string>();
  auto repository = std::make_shared<std::string>();
  auto* path = app.add_subcommand("path", "Print the file name of a URI reference");
  path->add_option("URI", *reference, "A file or repository URI")->required()->check(notEmpty());
  auto* named =
      path->add_option("--repository", *repository, "Look below this repository, not the one in the URI")
          ->type_name("NAME");
  addJsonFlag(*path, host, "a record: file, uri");
  path->footer("Example: qvrepos path file:///etc/hostname");
  path->callback([&host, reference, repository, named] {
    printPath(host, *reference, *named ? repository.get() : nullptr);
  });
}
