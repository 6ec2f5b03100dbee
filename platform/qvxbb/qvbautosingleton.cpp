#include "qvxbb/qvbautosingleton.h"

#include "qvxbase/qvbunload.h"

#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>

namespace {

// Identifiers stay once they were used, without an object: the registry's operations may nest (an object's
// maker may ask for another one), and what one of them holds on to must not go away.
struct Registry {
  std::recursive_mutex mutex;
  std::map<std::string, void*, std::less<>> objects;
};

Registry& registry() {
  static Registry& instance = qvbUntilUnload<Registry>();
  return instance;
}

// The place of the object of this identifier, null while there is none. The registry's lock is held.
void*& objectOf(const char* id) {
  auto& objects = registry().objects;
  const auto known = objects.find(std::string_view(id));
  return known != objects.end() ? known->second : objects.emplace(id, nullptr).first->second;
}

} // namespace

bool QvbAutoSingleton::initialize(bool* created) {
  const std::lock_guard guard(registry().mutex);
  void*& object = objectOf(getId());
  const bool isNew = !object;
  if (isNew)
    object = createObject();
  if (created)
    *created = isNew && object;
  m_object = object;
  return object != nullptr;
}

void QvbAutoSingleton::terminate() {
  cleanupOnly();
  m_object = nullptr;
}

// Forgotten before it is destroyed: nobody can find it while it goes.
void QvbAutoSingleton::cleanupOnly() {
  const std::lock_guard guard(registry().mutex);
  if (void* const object = std::exchange(objectOf(getId()), nullptr))
    deleteObject(object);
}
