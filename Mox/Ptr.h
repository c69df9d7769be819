// The counted pointers. Ptr<T> is one raw pointer, null allowed; ValidPtr<T> refuses null.
// T derives from PtrInterface, or from VFPtrInterface alone if it has no virtual operations; it may
// be incomplete wherever no pointer is copied or destroyed.
#pragma once

#include <cstddef>
#include <functional>
#include <new>
#include <type_traits>
#include <utility>

#include "Mox/Messages.h"
#include "Mox/PtrInterface.h"

namespace MOX_API Mox {

[[noreturn]] void throwRangeException(char const* message);

/// Takes a reference on `object`, which isn't null.
template <class T>
inline void ptrInc(T const* object) {
  static_cast<VFPtrInterface const&>(*object).referencesInc();
}

/// Gives a reference on `object` back; at zero the object is handled and, as a rule, destroyed.
template <class T>
inline void ptrDec(T const* object) {
  if (!static_cast<VFPtrInterface const&>(*object).moxReferenceIsLast()) [[likely]]
    return;
  if constexpr (std::is_base_of_v<PtrInterface, T>) {
    static_cast<PtrInterface const&>(*object).handleZeroRef();
  } else {
    static_assert(std::is_trivially_destructible_v<T>, "a body without virtual operations");
    // GCC takes the shared empty text, whose count never reaches zero, for something freed here.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wfree-nonheap-object"
    ::operator delete(const_cast<void*>(static_cast<void const*>(object)));
#pragma GCC diagnostic pop
  }
}

template <class T>
class Ptr {
 public:
  using element_type = T;

  constexpr Ptr() = default;
  constexpr Ptr(std::nullptr_t) {}
  template <class U>
  requires std::is_convertible_v<U*, T*> Ptr(U* object) : object_(object) {
    if (object_) ptrInc(object_);
  }
  Ptr(Ptr const& other) : object_(other.object_) {
    if (object_) ptrInc(object_);
  }
  template <class U>
  requires std::is_convertible_v<U*, T*> Ptr(Ptr<U> const& other) : object_(other.get()) {
    if (object_) ptrInc(object_);
  }
  /// Takes the reference over; `other` is null afterwards.
  Ptr(Ptr&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}
  template <class U>
  requires std::is_convertible_v<U*, T*> Ptr(Ptr<U>&& other)
  noexcept : object_(other.moxRelease()) {}

  /// Never lets an exception out: one that leaves the release ends the process.
  ~Ptr() {
    if (object_) ptrDec(object_);
  }

  Ptr& operator=(Ptr const& other) {
    ptrAssign(other.object_);
    return *this;
  }
  template <class U>
  requires std::is_convertible_v<U*, T*> Ptr& operator=(Ptr<U> const& other) {
    ptrAssign(other.get());
    return *this;
  }
  template <class U>
  requires std::is_convertible_v<U*, T*> Ptr& operator=(U* object) {
    ptrAssign(object);
    return *this;
  }
  Ptr& operator=(std::nullptr_t) {
    ptrAssign(static_cast<T*>(nullptr));
    return *this;
  }
  Ptr& operator=(Ptr&& other) {
    T* const old = object_;
    object_ = std::exchange(other.object_, nullptr);
    if (&other == this) {
      object_ = old;
    } else if (old) {
      ptrDec(old);
    }
    return *this;
  }

  /// Increment, store, decrement, in this order: what both values reach is never released by it,
  /// and a destructor that runs out of it sees the new value. Nothing at all for the value held.
  template <class U>
  void ptrAssign(U* object) {
    T* old = object_;
    T* const fresh = object;
    if (old == fresh) return;
    if (fresh) {
      ptrInc(fresh);
      if (VFPtrInterface::enableThreadSafePointers) {
        old = std::atomic_ref<T*>(object_).load(std::memory_order_relaxed);
      }
    }
    object_ = fresh;
    if (old) ptrDec(old);
  }

  T* get() const { return object_; }
  /// Both give the stored pointer, unchecked: null stays null.
  T* operator->() const;
  T* operator*() const;
  explicit operator bool() const { return object_ != nullptr; }

  /// Hands the reference held to the caller, who now owns it.
  T* moxRelease() { return std::exchange(object_, nullptr); }
  /// Takes over a reference that the caller has. Requires: this is null.
  void moxAdopt(T* object) { object_ = object; }

 private:
  T* object_ = nullptr;
};

// Not declared inline, and so exported by models that hide their inline functions: other modules
// reach these two by reflection.
template <class T>
T* Ptr<T>::operator->() const {
  return object_;
}
template <class T>
T* Ptr<T>::operator*() const {
  return object_;
}

template <class T>
class ValidPtr {
 public:
  using element_type = T;

  /// A null argument raises RangeException "null ValidPtr".
  template <class U>
  requires std::is_convertible_v<U*, T*> ValidPtr(Ptr<U> const& object) : object_(object) {
    if (!object_) throwRangeException(messages::nullValidPtr);
  }
  template <class U>
  requires std::is_convertible_v<U*, T*> ValidPtr(U* object) : ValidPtr(Ptr<U>(object)) {}
  template <class U>
  requires std::is_convertible_v<U*, T*> ValidPtr(ValidPtr<U> const& other)
      : object_(other.ptr()) {}
  // Copied, never moved from: a ValidPtr holds something for as long as it lives.
  ValidPtr(ValidPtr const& other) : object_(other.object_) {}
  ValidPtr& operator=(ValidPtr const& other) {
    object_ = other.object_;
    return *this;
  }

  Ptr<T> const& ptr() const { return object_; }
  template <class U>
  requires std::is_convertible_v<T*, U*>
  operator Ptr<U>() const { return object_; }
  T* get() const { return object_.get(); }
  T* operator->() const { return object_.get(); }
  T* operator*() const { return object_.get(); }
  explicit operator bool() const { return true; }

 private:
  Ptr<T> object_;
};

template <class P>
inline constexpr bool isCountedPointer = false;
template <class T>
inline constexpr bool isCountedPointer<Ptr<T>> = true;
template <class T>
inline constexpr bool isCountedPointer<ValidPtr<T>> = true;

/// Identity.
template <class A, class B>
requires(isCountedPointer<A>&& isCountedPointer<B>) bool operator==(A const& a, B const& b) {
  return a.get() == b.get();
}
template <class A, class U>
requires(isCountedPointer<A>) bool operator==(A const& a, U* b) { return a.get() == b; }
template <class A>
requires(isCountedPointer<A>) bool operator==(A const& a, std::nullptr_t) {
  return a.get() == nullptr;
}

/// The run-time-checked downcast: null for null and for an object of another class.
template <class T, class U>
Ptr<T> ptrCast(Ptr<U> const& object) {
  return dynamic_cast<T*>(object.get());
}
template <class T, class U>
Ptr<T> ptrCast(ValidPtr<U> const& object) {
  return dynamic_cast<T*>(object.get());
}
template <class T, class U>
Ptr<T> ptrCast(U* object) {
  return dynamic_cast<T*>(object);
}

}  // namespace Mox

namespace std {
template <class T>
struct hash<Mox::Ptr<T>> {
  std::size_t operator()(Mox::Ptr<T> const& object) const noexcept {
    return std::hash<T*>()(object.get());
  }
};
}  // namespace std
