// A registry of live counted objects, for finding leaks. Off until `ptrifTrackOn_` is set; objects
// made while it is off are unknown to it. Any thread.
#pragma once

#include <cstddef>
#include <functional>

#include "Mox/PtrInterface.h"

namespace MOX_API Mox {

class PtrTrack {
 public:
  /// Called by the constructor and the destructor of PtrInterface, and by `referencesLeak`.
  static void ptrifAdd(PtrInterface const* object);
  static void ptrifDel(PtrInterface const* object);

  static std::size_t count();
  /// Calls `visit` for each live object, in no order; `visit` must make and release none.
  static void forEach(std::function<void(PtrInterface const*)> const& visit);
};

}  // namespace Mox
