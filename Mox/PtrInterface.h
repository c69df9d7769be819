// The two bases of counted objects and their one reference word. Everything on the heap derives
// from one of them and is held through Mox::Ptr; nobody calls delete. The count is atomic only
// while `enableThreadSafePointers` is set; all else belongs to one thread.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "Mox/Api.h"
#include "Mox/Assertion.h"

namespace MOX_API Mox {

class MoxType;
class PtrInterface;

/// True while the registry of live counted objects (Mox/PtrTrack.h) is on.
extern bool ptrifTrackOn_;

/// Base of a counted body without virtual operations: the reference word and nothing else.
///
///   31 marked for deletion | 30 held | 29 has notification active | 28..0 count
///
/// A new object has count 0: its creator isn't counted.
class VFPtrInterface {
 public:
  static constexpr std::uint32_t markedForDeletionMask = 0x80000000;
  static constexpr std::uint32_t heldMask = 0x40000000;
  static constexpr std::uint32_t notificationActiveMask = 0x20000000;
  /// The exact-count test: the count alone.
  static constexpr std::uint32_t countMask = 0x1fffffff;
  /// The zero test: count and held flag. Zero under it means that the last reference went.
  static constexpr std::uint32_t zeroTestMask = 0x5fffffff;

  /// Read by every operation on a reference; set it before a second thread exists, and never again.
  static bool enableThreadSafePointers;

  /// The raw word, flags included.
  std::uint32_t references() const {
    return std::atomic_ref<std::uint32_t>(references_).load(std::memory_order_relaxed);
  }

  void referencesInc() const {
    if (!enableThreadSafePointers) [[likely]] {
      ++references_;
    } else {
      std::atomic_ref<std::uint32_t>(references_).fetch_add(1, std::memory_order_relaxed);
    }
  }

  /// Subtracts 1 and returns the new word under the zero test; takes no action at zero.
  std::uint32_t moxReferencesSub() const {
    if (!enableThreadSafePointers) [[likely]]
      return --references_ & zeroTestMask;
    return (std::atomic_ref<std::uint32_t>(references_)
                .fetch_add(0xffffffff, std::memory_order_acq_rel) -
            1) &
           zeroTestMask;
  }

  /// Subtracts 1. True: that was the last reference. Takes no action.
  bool moxReferenceIsLast() const {
    // Two tests: one behind both ways would cost the usual one an instruction.
    if (!enableThreadSafePointers) [[likely]] {
      if ((--references_ & zeroTestMask) != 0) [[likely]]
        return false;
    } else if (moxReferencesSub() != 0) {
      return false;
    }
    return true;
  }

  static void operator delete(void* memory, std::size_t size);

 protected:
  constexpr VFPtrInterface() = default;
  constexpr explicit VFPtrInterface(std::uint32_t references) : references_(references) {}
  /// A copy is a new object: nobody holds it, and no flag comes along.
  constexpr VFPtrInterface(VFPtrInterface const&) {}
  VFPtrInterface& operator=(VFPtrInterface const&) = delete;
  ~VFPtrInterface() = default;

  mutable std::uint32_t references_ = 0;
};

/// Base of every counted object with virtual operations. May be a virtual base.
///
/// An object is made by `new` and put into a Ptr at once: `Ptr<AradSlice> slice(new
/// AradSlice("s"))`. It is never made on the stack, as a member or as a static object, and never
/// kept in a raw pointer alone: its count is 0 then, and the first call that takes a reference and
/// drops it destroys the object. Builds without NDEBUG end with an assertion where an entity or a
/// subscriber is used so.
class PtrInterface : public VFPtrInterface {
 public:
  class NotifieeConst;
  class Notifiee;

  // The order of the virtual operations is part of the interface.

  /// Sets or clears bit 29 with a plain read-modify-write, also in thread-safe mode.
  virtual void hasNotificationActiveIs(bool active);
  virtual unsigned int moxAuditErrors(unsigned int limit) const;
  /// `limit` is read as signed: a negative one gives 0 without any work.
  virtual unsigned int auditErrors(unsigned int limit) const;
  /// Told that the count went to zero. Whoever takes and keeps a reference in here keeps the object
  /// alive, and a later last release tells again.
  virtual void zeroReferencesIs(bool zero);
  /// The run-time type object, immortal. Null where a class has none.
  virtual MoxType const* fwkType() const;
  virtual ~PtrInterface() {
    if (ptrifTrackOn_) [[unlikely]]
      trackDel();
  }

  /// Defined with the type registry.
  static MoxType* _fwkType();

  /// Takes a reference away, handles zero, and returns the new word under the zero test.
  std::uint32_t referencesDec() const;
  /// Makes the object immortal and takes it off the books of the leak tracker.
  void referencesLeak() const;
  /// Tells `zeroReferencesIs`, then destroys the object unless someone holds it again.
  void handleZeroRef() const;

  /// In a build without NDEBUG: fails if nobody holds the object but the caller with `own`
  /// references of its own.
  void moxRequireHeld([[maybe_unused]] std::uint32_t own = 0) const {
#ifndef NDEBUG
    if ((references() & zeroTestMask) <= own) {
      assertionFailed("the object was made by new and is held by a Ptr", "Mox/PtrInterface",
                      __LINE__, __PRETTY_FUNCTION__);
    }
#endif
  }

  bool hasNotificationActive() const { return (references() & notificationActiveMask) != 0; }
  bool moxMarkedForDeletion() const { return static_cast<std::int32_t>(references()) < 0; }
  /// Const on purpose: it is called through const pointers.
  void moxMarkedForDeletionIs(bool marked) const;

  static void* operator new(std::size_t size);
  /// That of VFPtrInterface, with the size of the most derived class.
  static void operator delete(void* memory, std::size_t size);

 protected:
  PtrInterface() {
    if (ptrifTrackOn_) [[unlikely]]
      trackAdd();
  }
  PtrInterface(PtrInterface const& other) : VFPtrInterface(other) {
    if (ptrifTrackOn_) [[unlikely]]
      trackAdd();
  }

 private:
  void trackAdd() const;
  void trackDel() const;
  void finishZeroRef() const;
};

/// Keeps an object whose constructor is still running, or that nobody holds yet, from being
/// destroyed by a callee that takes and drops a reference on it.
class HeldInConstruction {
 public:
  explicit HeldInConstruction(PtrInterface const* object) : object_(object) {
    object_->referencesInc();
  }
  ~HeldInConstruction() { object_->moxReferencesSub(); }
  HeldInConstruction(HeldInConstruction const&) = delete;
  HeldInConstruction& operator=(HeldInConstruction const&) = delete;

 private:
  PtrInterface const* object_;
};

}  // namespace Mox
