// The untyped subscriber: flags, notifier, and the operations that every subscriber has in common.
// Entity types nest their own NotifieeConst and Notifiee on top (Mox/NotifieeList.h holds what
// those do); client code derives from these.
#pragma once

#include <cstdint>

#include "Mox/Activity.h"
#include "Mox/AttributeId.h"
#include "Mox/Name.h"
#include "Mox/Ptr.h"
#include "Mox/PtrInterface.h"
#include "Mox/String8.h"

namespace MOX_API Mox {

class PtrInterface::NotifieeConst : public PtrInterface {
 public:
  /// Notification flags and private control bits in one word.
  class Mox_BitSet {
   public:
    constexpr Mox_BitSet() = default;
    constexpr Mox_BitSet(std::uint32_t word) : word_(word) {}

    /// What `notificationFlagsIs` may replace: all but bits 20, 21, 22, 24 and 26.
    static constexpr std::uint32_t notificationBitMask() { return 0xfa8fffff; }
    constexpr void notificationFlagsIs(Mox_BitSet bits) {
      word_ = (word_ & ~notificationBitMask()) | (bits.word_ & notificationBitMask());
    }

    constexpr std::uint32_t word() const { return word_; }
    constexpr bool contains(std::uint32_t mask) const { return (word_ & mask) != 0; }
    constexpr void maskIs(std::uint32_t mask, bool set) {
      word_ = set ? word_ | mask : word_ & ~mask;
    }
    friend constexpr bool operator==(Mox_BitSet a, Mox_BitSet b) { return a.word_ == b.word_; }

   private:
    std::uint32_t word_ = 0;
  };

  /// Bit 19: `hasNotificationActiveIs(false)` took the subscriber out of a list.
  static constexpr std::uint32_t registrationMemoryMask = 0x80000;
  /// The pending attribute that stands for several: only what waits; or every collection whole.
  static constexpr AttributeId allAttributes = -1;
  static constexpr AttributeId allAttributesWhole = -2;

  // The order of the virtual operations is part of the interface.

  /// Switches the subscriber off, remembering whether it was listed, and on again.
  void hasNotificationActiveIs(bool active) override;

  /// The object that reacts, by default this one.
  virtual Ptr<NotifieeConst> moxReactor() const;
  virtual NotifieeConst* moxRawReactor() const;
  virtual bool isStreamAdapter() const;
  /// Enters or leaves the notifier's list; here it only stores the mark. Const on purpose.
  virtual void isRegisteredNotifieeIs(bool registered) const;
  virtual void mox_bitSetIs(Mox_BitSet flags);
  /// The notifier's name, empty without one.
  virtual Name name() const;
  /// Binds to a notifier, counted unless this subscriber is weak; here it only stores the pointer.
  virtual void notifierIs(Ptr<PtrInterface const> const& notifier);
  /// A deferred notification comes due: takes the pending attribute and hands it to
  /// `handleDefault`.
  virtual void handleNotification(ActivityConfig* config);
  virtual void handleDefault(ActivityConfig* config, AttributeId attribute, bool isDeferred);
  virtual void onAttribute(AttributeId attribute);
  virtual void onNotification();
  virtual void onCollectionNotification(String8 key);
  virtual void onNotificationException();
  /// A handler of this subscriber threw; called inside the catch block.
  virtual void onNotificationException(AttributeId attribute);
  virtual void handleNotificationException(AttributeId attribute);
  virtual void handleNotificationException();
  /// The notifier's last reference went. A weak subscriber unbinds here.
  virtual void onZeroReferences();
  virtual Ptr<Activity> activityPtr() const;
  /// Null: this subscriber is never deferred.
  virtual Activity* moxFwkActivity();
  virtual Activity const* moxFwkActivity() const;
  virtual ActivitySm* actsm();

  ~NotifieeConst() override {
    PtrInterface const* const notifier = moxLiveNotifier();
    if (notifier && !isWeakReference_) ptrDec(notifier);
  }

  /// One more handler is about to run within a deferred notification.
  void redispatch(ActivitySm* sm);
  /// True if the notification was deferred: the activity then runs `handleNotification` later, and
  /// `counter`, unless null, counts one key more (up to 255).
  bool moxOnAttribute(AttributeId attribute, unsigned char* counter);
  /// Merges a notification into the pending one.
  void moxPendingAttributeAdd(AttributeId attribute, unsigned char* counter);

  /// A weak subscriber doesn't count its notifier. On a bound one the count is given back or taken.
  void isWeakReferenceIs(bool weak);

  bool isWeakReference() const { return isWeakReference_; }
  bool isRegisteredNotifiee() const { return isRegisteredNotifiee_; }
  Mox_BitSet mox_bitSet() const { return flags_; }
  AttributeId moxPendingAttribute() const { return pendingAttribute_; }
  void moxPendingAttributeIs(AttributeId attribute) { pendingAttribute_ = attribute; }
  /// True while this object is in the queue of an activity, which alone sets it.
  bool moxIsWaiting() const { return isWaiting_; }
  void moxIsWaitingIs(bool waiting) { isWaiting_ = waiting; }
  /// The notifier as it is stored, and never to be followed when `moxIsNotifierGone()`.
  PtrInterface const* moxNotifier() const { return notifier_; }

  // Support of the notifiee lists.

  /// The notifier of this weak subscriber dies: from now on neither it nor its reactor follows the
  /// pointer.
  void moxNotifierGone();
  bool moxIsNotifierGone() const { return isNotifierGone_; }
  /// The notifier if it can still be followed.
  PtrInterface const* moxLiveNotifier() const { return isNotifierGone_ ? nullptr : notifier_; }
  void moxRegisteredIs(bool registered) const { isRegisteredNotifiee_ = registered; }
  /// Whether `moxReactor()` is a stream adapter: those stand at the head of a list.
  bool moxServesStreamAdapter() const;

 protected:
  NotifieeConst() : NotifieeConst(Mox_BitSet()) {}
  explicit NotifieeConst(Mox_BitSet flags) : flags_(flags) {
    references_ |= notificationActiveMask;
  }
  /// What `mox_bitSetIs` does here, without a call.
  void ownBitSetIs(Mox_BitSet flags) { flags_ = flags; }

 private:
  Mox_BitSet flags_;
  AttributeId pendingAttribute_ = 0;
  PtrInterface const* notifier_ = nullptr;
  bool isWeakReference_ = false;
  mutable bool isRegisteredNotifiee_ = false;
  bool isNotifierGone_ = false;
  bool isWaiting_ = false;
};

/// The same with access to a mutable notifier.
class PtrInterface::Notifiee : public PtrInterface::NotifieeConst {
 public:
  ~Notifiee() override;

 protected:
  Notifiee() = default;
  explicit Notifiee(Mox_BitSet flags) : NotifieeConst(flags) {}
};

}  // namespace Mox
