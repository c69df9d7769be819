#include "Mox/PtrTrack.h"

#include <mutex>
#include <unordered_set>

namespace Mox {

bool ptrifTrackOn_ = false;

namespace {

struct Registry {
  std::mutex mutex;
  std::unordered_set<PtrInterface const*> objects;
};

/// Never destroyed: objects may outlive every static of the process.
Registry& registry() {
  static Registry* const instance = new Registry;
  return *instance;
}

}  // namespace

void PtrTrack::ptrifAdd(PtrInterface const* object) {
  std::lock_guard const lock(registry().mutex);
  registry().objects.insert(object);
}

void PtrTrack::ptrifDel(PtrInterface const* object) {
  std::lock_guard const lock(registry().mutex);
  registry().objects.erase(object);
}

std::size_t PtrTrack::count() {
  std::lock_guard const lock(registry().mutex);
  return registry().objects.size();
}

void PtrTrack::forEach(std::function<void(PtrInterface const*)> const& visit) {
  std::lock_guard const lock(registry().mutex);
  for (PtrInterface const* object : registry().objects) visit(object);
}

}  // namespace Mox
