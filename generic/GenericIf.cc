#include "generic/GenericIf.h"

#include <algorithm>

#include "Mox/Exception.h"
#include "Mox/Messages.h"
#include "Mox/Notify.h"
#include "generic/CursorState.h"
#include "registry/ValueType.h"

namespace Mox {
namespace {

char const* opName(GenericIf::AttributeOp::OpId op) {
  switch (op) {
    case GenericIf::AttributeOp::attrGet:
      return "attrGet";
    case GenericIf::AttributeOp::attrCount:
      return "attrCount";
    case GenericIf::AttributeOp::attrVersion:
      return "attrVersion";
    case GenericIf::AttributeOp::attrExists:
      return "attrExists";
    case GenericIf::AttributeOp::attrSet:
      return "attrSet";
    case GenericIf::AttributeOp::attrDel:
      return "attrDel";
  }
  return "unknown";
}

}  // namespace

void GenericIf::Listener::handleException(GenericIf&, AttributeId) {}
void GenericIf::Listener::handleEnd(GenericIf&) {}

void GenericIf::listenerIs(Ptr<Listener> const& listener) {
  if (std::find(listeners_.begin(), listeners_.end(), listener) != listeners_.end()) return;
  listeners_.push_back(listener);
}
void GenericIf::listenerDel(Ptr<Listener> const& listener) {
  // Held, since its destructor may use this list.
  Ptr<Listener> const held(listener);
  std::erase(listeners_, held);
}

template <class Call>
void GenericIf::listenersCall(AttributeId attribute, Call const& call) {
  Ptr<GenericIf> const held(this);
  auto const frozen = listeners_;
  for (Ptr<Listener> const& listener : frozen) {
    if (std::find(listeners_.begin(), listeners_.end(), listener) == listeners_.end()) continue;
    try {
      call(**listener);
    } catch (...) {
      listener->handleException(*this, attribute);
    }
  }
}

void GenericIf::onAttribute(AttributeId attribute) {
  if (listeners_.empty()) return;
  listenersCall(attribute, [&](Listener& listener) {
    listener.handleAttribute(*this, attribute, Ptr<GenericIf const>());
  });
}
void GenericIf::onAttribute(AttributeId attribute, Ptr<GenericIf const> const& key) {
  if (listeners_.empty()) return onAttribute(attribute);
  listenersCall(attribute,
                [&](Listener& listener) { listener.handleAttribute(*this, attribute, key); });
}
void GenericIf::onZeroReferences() {
  if (listeners_.empty()) return;
  listenersCall(zeroReferencesAttributeId, [&](Listener& listener) { listener.handleEnd(*this); });
}

Activity* GenericIf::moxFwkActivity() { return activity_ ? activity_->activity() : nullptr; }
ActivitySm* GenericIf::actsm() {
  Activity* const activity = moxFwkActivity();
  return activity ? activity->actsm() : nullptr;
}
void GenericIf::moxFwkActivityIs(Ptr<Activity> const& activity) {
  Ptr<ActivitySm> const fresh(activity ? activity->actsm() : nullptr);
  if (fresh == activity_) return;
  // The queue may hold the last reference.
  Ptr<GenericIf> const held(this);
  Activity* const old = activity_ ? activity_->activity() : nullptr;
  if (old) old->notifieeDel(*this);
  activity_ = fresh;
  if (moxPendingAttribute() == 0) return;
  if (activity && activity->config().isDeferring) {
    activity->notifieeEnq(held);
  } else {
    handleNotification(nullptr);
  }
}
void GenericIf::moxPendingDrop() {
  moxPendingAttributeIs(0);
  if (Activity* const activity = moxIsWaiting() ? moxFwkActivity() : nullptr) {
    activity->notifieeDel(*this);
  }
}

Ptr<MoxType const> GenericIf::type() const { return {}; }
void* GenericIf::voidPtrIs(Ptr<MoxType const> const&) const { throwTypeException("GenericIf"); }
String8 GenericIf::attributeString(AttributeId) const { return "unknown"; }
AttributeId GenericIf::attributeId(String8 name) const {
  throwUnknownAttrException(name.charPtr());
}
Ptr<GenericIf> GenericIf::attributeOp(AttributeOp const& op, Ptr<GenericIf const> const&,
                                      Ptr<GenericIf> const&) {
  throwUnknownAttrException(format("%d", op.attributeId).charPtr());
}
String8 GenericIf::strRep() const { return {}; }
void GenericIf::moxDoZombieReactors(bool zombie) { moxMarkedForDeletionIs(zombie); }

// What has no collections has no place in one: cursors stand at the end and hold nothing.

GenericIf::AttributeIteratorConst GenericIf::attributeIteratorConst(AttributeId attribute) const {
  throwOpNotSupportedException(attributeString(attribute).charPtr(), AttributeOp::attrCount, false);
}
GenericIf::AttributeIteratorConst GenericIf::attributeIteratorKeyConst(
    AttributeId attribute, Ptr<GenericIf const> const&) const {
  throwOpNotSupportedException(attributeString(attribute).charPtr(), AttributeOp::attrCount, false);
}
Ptr<GenericIf> GenericIf::attributeIterator_iterObj(AttributeIteratorConst const&) { return {}; }
Ptr<GenericIf> GenericIf::attributeIterator_iterObj(AttributeIteratorConst const& at) const {
  return const_cast<GenericIf*>(this)->attributeIterator_iterObj(at);
}
Ptr<GenericIf> GenericIf::attributeIterator_iterInc(AttributeIteratorConst const&) const {
  return {};
}
Ptr<GenericIf> GenericIf::attributeIterator_iterKey(AttributeIteratorConst const&) const {
  return {};
}
void* GenericIf::attributeIterator_iterClone(AttributeIteratorConst const& at) const {
  return CursorState::clone(at);
}
bool GenericIf::attributeIterator_nonNull(AttributeIteratorConst const& at) const {
  return CursorState::nonNull(at);
}
Ptr<GenericIf> GenericIf::attributeIterator_iterDel(AttributeIteratorConst const& at) const {
  CursorState::del(at);
  return {};
}
GenericIf::AttributeIterator GenericIf::attributeIterator(AttributeId attribute) {
  return attributeIteratorConst(attribute);
}
GenericIf::AttributeIterator GenericIf::attributeIteratorKey(AttributeId attribute,
                                                             Ptr<GenericIf const> const& key) {
  return attributeIteratorKeyConst(attribute, key);
}

Ptr<GenericIf> GenericIf::clone() { return {}; }
Ptr<GenericIf const> GenericIf::clone() const { return const_cast<GenericIf*>(this)->clone(); }

void GenericIf::throwTypeException(char const* name) {
  throw TypeException(format(messages::wrongType, name));
}
void GenericIf::throwConstException(char const* message) { throw ConstException(message); }
void GenericIf::throwBadIndexAttrException(char const* attribute) {
  throw BadIndexAttrException(format(messages::badIndex, attribute));
}
void GenericIf::throwUnknownArgException(char const* attribute) {
  throw UnknownArgException(format(messages::unknownArgument, attribute));
}
void GenericIf::throwUnknownAttrException(char const* name) {
  throw UnknownAttrException(format(messages::unknownAttribute, name));
}
void GenericIf::throwOpNotSupportedException(char const* attribute, AttributeOp::OpId op, bool) {
  throw OpNotSupportedException(
      format(messages::opNotSupported, opName(op), static_cast<int>(op), attribute));
}

GenericIf::List::List(List const& other) : LinkedQueue() {
  for (GenericIfListLink const* link = other.head(); link; link = link->next.get()) {
    enq(link->member());
  }
}

GenericIf::List_::List_(std::initializer_list<Ptr<GenericIf>> arguments) : GenericIf(false) {
  for (Ptr<GenericIf> const& argument : arguments) list_.enq(argument);
}
GenericIf::List_::~List_() = default;
Ptr<MoxType const> GenericIf::List_::type() const { return List::_fwkType(); }
void* GenericIf::List_::voidPtrIs(Ptr<MoxType const> const& type) const {
  if (type != List::_fwkType()) throwTypeException("List");
  return &list_;
}
String8 GenericIf::List_::strRep() const {
  String8 text = "(";
  for (GenericIfListLink const* link = list_.head(); link; link = link->next.get()) {
    if (link != list_.head()) text += ", ";
    text += link->member() ? link->member()->strRep() : String8("null");
  }
  return text + ")";
}
Ptr<GenericIf> GenericIf::List_::clone() { return new List_(list_, isConst()); }

namespace {

/// The type of argument lists.
class ListType final : public MoxType {
 public:
  ListType() : MoxType("List", nullptr, nullptr, {}) {
    sizeIs(sizeof(GenericIf::List));
    isValueIs(true);
    hasGenericIfSupportIs(true);
    typeNodeIs(this, "Mox::GenericIf::List");
    referencesLeak();
  }
  using MoxType::genericIf;
  Ptr<GenericIf> genericIf(void const* value, bool isConst) const override {
    if (!value) return new GenericIf::List_(isConst);
    return new GenericIf::List_(*static_cast<GenericIf::List const*>(value), isConst);
  }
};

}  // namespace

MoxType* GenericIf::List::_fwkType() {
  static MoxType* const type = new ListType;
  return type;
}

}  // namespace Mox
