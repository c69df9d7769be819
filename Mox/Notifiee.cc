#include "Mox/Notifiee.h"

#include "Mox/Hooks.h"

namespace Mox {

void PtrInterface::NotifieeConst::hasNotificationActiveIs(bool active) {
  if (active == hasNotificationActive()) return;
  if (active) {
    references_ |= notificationActiveMask;
    if (flags_.contains(registrationMemoryMask)) isRegisteredNotifieeIs(true);
  } else {
    flags_.maskIs(registrationMemoryMask, isRegisteredNotifiee_);
    references_ &= ~notificationActiveMask;
    isRegisteredNotifieeIs(false);
  }
}

Ptr<PtrInterface::NotifieeConst> PtrInterface::NotifieeConst::moxReactor() const {
  return const_cast<NotifieeConst*>(this);
}
PtrInterface::NotifieeConst* PtrInterface::NotifieeConst::moxRawReactor() const {
  return const_cast<NotifieeConst*>(this);
}
bool PtrInterface::NotifieeConst::isStreamAdapter() const { return false; }

void PtrInterface::NotifieeConst::isRegisteredNotifieeIs(bool registered) const {
  isRegisteredNotifiee_ = registered;
}

void PtrInterface::NotifieeConst::mox_bitSetIs(Mox_BitSet flags) { flags_ = flags; }

Name PtrInterface::NotifieeConst::name() const { return Name(); }

void PtrInterface::NotifieeConst::notifierIs(Ptr<PtrInterface const> const& notifier) {
  PtrInterface const* const fresh = notifier.get();
  if (fresh == notifier_ && !isNotifierGone_) return;
  PtrInterface const* const old = moxLiveNotifier();
  if (fresh && !isWeakReference_) ptrInc(fresh);
  notifier_ = fresh;
  isNotifierGone_ = false;
  if (old && !isWeakReference_) ptrDec(old);
}

void PtrInterface::NotifieeConst::moxNotifierGone() {
  isNotifierGone_ = true;
  NotifieeConst* const reactor = moxRawReactor();
  if (reactor && reactor->notifier_ == notifier_) reactor->isNotifierGone_ = true;
}

bool PtrInterface::NotifieeConst::moxServesStreamAdapter() const {
  // Either may subscribe in its constructor, when nobody holds it yet.
  NotifieeConst const* const raw = moxRawReactor();
  HeldInConstruction const held(this), heldReactor(raw ? raw : this);
  return hooks.isStreamAdapter && hooks.isStreamAdapter(moxReactor().get());
}

void PtrInterface::NotifieeConst::handleNotification(ActivityConfig* config) {
  AttributeId const attribute = pendingAttribute_;
  pendingAttribute_ = 0;
  if (attribute != 0) handleDefault(config, attribute, true);
}

void PtrInterface::NotifieeConst::handleDefault(ActivityConfig*, AttributeId attribute, bool) {
  if (attribute > 0) {
    onAttribute(attribute);
  } else {
    onNotification();
  }
}

void PtrInterface::NotifieeConst::onAttribute(AttributeId) { onNotification(); }
void PtrInterface::NotifieeConst::onNotification() {}
void PtrInterface::NotifieeConst::onCollectionNotification(String8) { onNotification(); }
void PtrInterface::NotifieeConst::onNotificationException() {}
void PtrInterface::NotifieeConst::onNotificationException(AttributeId) {
  onNotificationException();
}
void PtrInterface::NotifieeConst::handleNotificationException(AttributeId attribute) {
  onNotificationException(attribute);
}
void PtrInterface::NotifieeConst::handleNotificationException() { onNotificationException(); }
void PtrInterface::NotifieeConst::onZeroReferences() {}

Ptr<Activity> PtrInterface::NotifieeConst::activityPtr() const {
  return const_cast<NotifieeConst*>(this)->moxFwkActivity();
}
Activity* PtrInterface::NotifieeConst::moxFwkActivity() { return nullptr; }
Activity const* PtrInterface::NotifieeConst::moxFwkActivity() const {
  return const_cast<NotifieeConst*>(this)->moxFwkActivity();
}
ActivitySm* PtrInterface::NotifieeConst::actsm() {
  Activity* const activity = moxFwkActivity();
  return activity ? activity->actsm() : nullptr;
}

void PtrInterface::NotifieeConst::redispatch(ActivitySm* sm) {
  if (sm) sm->dispatchesInc();
}

bool PtrInterface::NotifieeConst::moxOnAttribute(AttributeId attribute, unsigned char* counter) {
  Activity* const activity = moxFwkActivity();
  if (!activity || !activity->config().isDeferring) return false;
  moxPendingAttributeAdd(attribute, counter);
  if (!isWaiting_) activity->notifieeEnq(this);
  return true;
}

void PtrInterface::NotifieeConst::moxPendingAttributeAdd(AttributeId attribute,
                                                         unsigned char* counter) {
  if (pendingAttribute_ == 0) {
    pendingAttribute_ = attribute;
  } else if (pendingAttribute_ > 0 && pendingAttribute_ != attribute) {
    pendingAttribute_ = allAttributes;
  }
  if (counter && *counter != 255) ++*counter;
}

void PtrInterface::NotifieeConst::isWeakReferenceIs(bool weak) {
  if (weak == isWeakReference_) return;
  isWeakReference_ = weak;
  PtrInterface const* const notifier = moxLiveNotifier();
  if (!notifier) return;
  if (weak) {
    ptrDec(notifier);
  } else {
    ptrInc(notifier);
  }
}

PtrInterface::Notifiee::~Notifiee() = default;

}  // namespace Mox
