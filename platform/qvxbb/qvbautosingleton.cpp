#include "qvxbb/qvbautosingleton.h"

#include "qvxbase/qvbunload.h"

#include <atomic>
#include <mutex>
#include <string>
#include <type_traits>

namespace {

// The place of an object, empty while there is none. Places stay once they were made: the registry's operations may nest
// (an object's maker may ask for another one), and what one of them holds on to must not go away.
struct Place {
  explicit Place(const char* identifier) : id(identifier) {}

  const std::string id;
  std::atomic<void*> object = nullptr;
  Place* next = nullptr;
};

struct Registry {
  std::recursive_mutex mutex;
  std::atomic<Place*> first = nullptr; // there are few
};

// Neither made nor destroyed at run time: static constructors and destructors may use it, too.
constinit Registry registry;
static_assert(std::is_trivially_destructible_v<Registry>);

// Needs no lock. Null for an identifier without a place.
Place* findPlace(const char* id) {
  Place* place = registry.first.load(std::memory_order_acquire);
  while (place && place->id != id)
    place = place->next;
  return place;
}

// The registry's lock is held.
Place& placeOf(const char* id) {
  if (Place* const known = findPlace(id))
    return *known;
  auto* const made = &qvbUntilUnload<Place>(id);
  made->next = registry.first.load();
  registry.first.store(made, std::memory_order_release);
  return *made;
}

} // namespace

bool QvbAutoSingleton::initialize(bool* created) {
  const char* const id = getId();
  const Place* const known = findPlace(id);
  m_object = known ? known->object.load(std::memory_order_acquire) : nullptr;
  const bool isNew = !m_object && makeUnlessRegistered(id);
  if (created)
    *created = isNew;
  return m_object != nullptr;
}

// Whether this call made the object; m_object is null when there is none.
bool QvbAutoSingleton::makeUnlessRegistered(const char* id) {
  const std::lock_guard guard(registry.mutex);
  try {
    Place& place = placeOf(id);
    m_object = place.object.load();
    if (m_object)
      return false;
    m_object = createObject();
    place.object.store(m_object, std::memory_order_release);
    return m_object != nullptr;
  } catch (const std::bad_alloc&) {
    return false;
  }
}

void QvbAutoSingleton::terminate() {
  cleanupOnly();
  m_object = nullptr;
}

// Forgotten before it is destroyed: nobody can find it while it goes.
void QvbAutoSingleton::cleanupOnly() {
  const std::lock_guard guard(registry.mutex);
  Place* const place = findPlace(getId());
  if (void* const object = place ? place->object.exchange(nullptr) : nullptr)
    deleteObject(object);
}
