// The base entity; its attribute log slots are defined in attrlog/adapter/Entity.cc.
#include "Mox/Entity.h"

namespace Mox {

void (*Entity::moxUnparentHook)(Entity* entity) = nullptr;
MoxAttr const* (*Entity::moxAttrHook)(Entity const* entity, AttributeId attribute) = nullptr;
String8 (*Entity::moxPathStepHook)(Entity const& child) = nullptr;

Entity::~Entity() = default;

Name Entity::name() const { return name_; }

Ptr<Entity const> Entity::parent() const { return parent_; }
Ptr<Entity> Entity::parent() { return parent_; }

void Entity::parentIs(Ptr<Entity> const& parent) {
  parent_ = parent.get();
  handleParent(parent);
  if (!parent && moxUnparentHook) moxUnparentHook(this);
}

MoxAttr const* Entity::parentAttr() const {
  return parent_ && moxAttrHook ? moxAttrHook(parent_, parentAttrId_) : nullptr;
}
AttributeId Entity::parentAttrId() const { return parentAttrId_; }
void Entity::parentAttrIdIs(AttributeId attribute) { parentAttrId_ = attribute; }

String8 Entity::uriPath() const { return fullName(); }

String8 Entity::fullName() const {
  if (!parent_) return name();
  String8 step = name();
  // Whoever keeps children outside of attributes, as a directory does, names them.
  if (parentAttrId_ != 0) {
    step = moxPathStepHook ? moxPathStepHook(*this)
                           : parent_->attributeString(parentAttrId_) + "[" + name() + "]";
  }
  String8 const above = parent_->fullName();
  return above.empty() ? step : above + "/" + step;
}

String8 Entity::attributeString(AttributeId) const { return "unknown"; }
void Entity::moxNotifieeAdapterIs(Ptr<Entity const> const&) {}
void Entity::handleParent(Ptr<Entity> const&) {}
bool Entity::moxHasAttrLogInterface() const { return false; }

void Entity::NotifieeConst::onParent() {}
void Entity::NotifieeConst::onVersion() {}
Entity::NotifieeConst::~NotifieeConst() = default;
Entity::Notifiee::~Notifiee() = default;

}  // namespace Mox
