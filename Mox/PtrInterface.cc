#include "Mox/PtrInterface.h"

#include <cstdlib>
#include <new>

#include "Mox/PtrTrack.h"

namespace Mox {

bool VFPtrInterface::enableThreadSafePointers = false;

void VFPtrInterface::operator delete(void* memory, std::size_t size) {
#ifdef __cpp_sized_deallocation
  ::operator delete(memory, size);
#else
  static_cast<void>(size);
  ::operator delete(memory);
#endif
}

void* PtrInterface::operator new(std::size_t size) { return ::operator new(size); }

void PtrInterface::operator delete(void* memory, std::size_t size) {
  VFPtrInterface::operator delete(memory, size);
}

namespace {

/// Objects that nobody holds any more, waiting for their destruction. One object's destructor often
/// releases the next one: beyond a certain depth they wait for the outermost to finish, so that a
/// chain of any length needs no more stack than that.
struct Destruction {
  static constexpr unsigned depthLimit = 100;

  unsigned depth = 0;
  std::size_t count = 0;
  std::size_t room = 0;
  PtrInterface const** waiting = nullptr;

  bool enq(PtrInterface const* object) {
    if (count == room) {
      std::size_t const fresh = room ? room * 2 : 16;
      void* const memory = std::realloc(waiting, fresh * sizeof *waiting);
      if (!memory) return false;
      waiting = static_cast<PtrInterface const**>(memory);
      room = fresh;
    }
    waiting[count++] = object;
    return true;
  }

  void destroy(PtrInterface const* object) {
    ++depth;
    delete object;
    --depth;
  }

  void run(PtrInterface const* object) {
    // Without memory to wait in, deeper is all that is left.
    if (depth >= depthLimit && enq(object)) return;
    destroy(object);
    if (depth != 0 || count == 0) return;
    while (count != 0) destroy(waiting[--count]);
    std::free(waiting);
    waiting = nullptr;
    room = 0;
  }
};

[[gnu::tls_model("initial-exec")]] thread_local constinit Destruction destruction;

}  // namespace

void PtrInterface::hasNotificationActiveIs(bool active) {
  references_ =
      active ? references_ | notificationActiveMask : references_ & ~notificationActiveMask;
}

unsigned int PtrInterface::moxAuditErrors(unsigned int) const { return 0; }

unsigned int PtrInterface::auditErrors(unsigned int limit) const {
  return static_cast<int>(limit) < 0 ? 0 : moxAuditErrors(limit);
}

void PtrInterface::zeroReferencesIs(bool) {}

MoxType const* PtrInterface::fwkType() const { return nullptr; }

std::uint32_t PtrInterface::referencesDec() const {
  std::uint32_t const left = moxReferencesSub();
  if (left == 0) handleZeroRef();
  return left;
}

void PtrInterface::referencesLeak() const {
  referencesInc();
  if (ptrifTrackOn_) PtrTrack::ptrifDel(this);
}

void PtrInterface::moxMarkedForDeletionIs(bool marked) const {
  std::atomic_ref<std::uint32_t> const word(references_);
  if (!enableThreadSafePointers) {
    references_ =
        marked ? references_ | markedForDeletionMask : references_ & ~markedForDeletionMask;
  } else if (marked) {
    word.fetch_or(markedForDeletionMask, std::memory_order_relaxed);
  } else {
    word.fetch_and(~markedForDeletionMask, std::memory_order_relaxed);
  }
}

/// Either nobody holds the object: it stays held and goes. Or somebody does, and lets go of it by
/// an ordinary release: one step decides, since that release may come from another thread.
[[gnu::always_inline]] inline void PtrInterface::finishZeroRef() const {
  if (!enableThreadSafePointers) {
    if ((references_ & countMask) != 0) {
      references_ &= ~heldMask;
      return;
    }
  } else {
    std::atomic_ref<std::uint32_t> const word(references_);
    std::uint32_t seen = word.load(std::memory_order_acquire);
    while ((seen & countMask) != 0) {
      if (word.compare_exchange_weak(seen, seen & ~heldMask, std::memory_order_acq_rel,
                                     std::memory_order_acquire)) {
        return;
      }
    }
  }
  destruction.run(this);
}

void PtrInterface::handleZeroRef() const {
  // Held, so that a reference that is taken and dropped in here doesn't come here again.
  if (!enableThreadSafePointers) {
    references_ |= heldMask;
  } else {
    std::atomic_ref<std::uint32_t>(references_).fetch_or(heldMask, std::memory_order_relaxed);
  }
  try {
    const_cast<PtrInterface*>(this)->zeroReferencesIs(true);
  } catch (...) {
    finishZeroRef();
    throw;
  }
  finishZeroRef();
}

void PtrInterface::trackAdd() const { PtrTrack::ptrifAdd(this); }
void PtrInterface::trackDel() const { PtrTrack::ptrifDel(this); }

}  // namespace Mox
