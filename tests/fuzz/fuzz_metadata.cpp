// Any document: what a context reads it writes, and what it has written it reads and writes the same again.
#include "fuzz.h"
#include "qvreposres/qvreposserialize.h"
#include "qvxbase/qvbreleased.h"

namespace {

using Context = Released<RepositorySerializationContext>;

// What the context makes of the document; null when it reads nothing there.
QvbString rewritten(const QvbString& xml, bool layout) {
  const Context context(createRepositoryMetadataSerializationContext());
  QvbString message, out;
  RepositoryMetadataObject* const object = context->deSerialize(xml, &message);
  return object && context->serialize(object, &out, &message, layout) ? out : QvbString();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const QvbString once = rewritten(textOf(data, size), false);
  if (once.isNull() || once.length() > 100'000) // contents of a few can stand at many places
    return 0;
  const QvbString twice = rewritten(once, false);
  require(!twice.isNull());
  require(rewritten(twice, false) == twice);
  require(rewritten(rewritten(twice, true), false) == twice);
  return 0;
}
