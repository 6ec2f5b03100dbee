// Any file name: the reference that is made of it leads back to the same file. Any reference: it leads to a file or says why
// not, and never above the root of its repository.
#include "fuzz.h"
#include "qvreposres/qvresourceuri.h"
#include "qvxbase/qvbconfig.h"
#include "qvxbase/qvuri.h"

#include <filesystem>

namespace {

bool isBelowRoot(std::string_view file) { return file.substr(0, 15) == "/srv/repository"; }

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const QvbString text = textOf(data, size);
  QvbString uri, file, error;
  if (text.view().substr(0, 1) == "/" && text.view().find('\0') == std::string_view::npos &&
      generateURIReferenceFromFilename(text, &uri)) {
    require(isURIReference(uri));
    QvbString again;
    require(generateFilenameFromURIReference(nullptr, uri, &file));
    require(generateURIReferenceFromFilename(file, &again) && again == uri);
  }
  bool isRelative = false;
  qvbSetConfigOption("BASE/REPOS_FILE_ROOT", "/srv/repository");
  if (generateFilenameFromURIandRepository(nullptr, text, "r", &file, &isRelative, &error))
    require(!isBelowRoot(file.view()) ||
            isBelowRoot(std::filesystem::path(file.view()).lexically_normal().string()));
  return 0;
}
