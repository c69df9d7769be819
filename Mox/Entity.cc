// The base entity; its attribute log slots are defined in attrlog/adapter/Entity.cc.
#include "Mox/Entity.h"

#include "Mox/Hooks.h"

#include <mutex>
#include <unordered_map>

namespace Mox {
namespace {

/// Parent links that no owner clears: of children made by a factory alone, and those that a client
/// set by hand. Rare, so they cost an entity two bits and nothing else. Never freed, since entities
/// may outlive static objects.
struct LinkRecords {
  std::mutex mutex;
  std::unordered_multimap<Entity const*, Entity*> children;
};
LinkRecords& linkRecords() {
  static auto* const records = new LinkRecords;
  return *records;
}

}  // namespace

Hooks hooks;

Entity::~Entity() {
  if ((link_ & isIdentified) && hooks.destroyed) hooks.destroyed(*this);
  if (link_ & isRecorded) eraseRecord();
  // One by one: a child's `handleParent` may change other links.
  while (link_ & hasRecords) {
    Ptr<Entity> child;
    {
      LinkRecords& records = linkRecords();
      std::lock_guard const lock(records.mutex);
      auto const found = records.children.find(this);
      if (found == records.children.end()) break;
      child = found->second;
    }
    child->parentIs(Ptr<Entity>());
  }
}

void Entity::record(Entity& parent) {
  LinkRecords& records = linkRecords();
  std::lock_guard const lock(records.mutex);
  records.children.emplace(&parent, this);
  parent.link_ |= hasRecords;
  link_ |= isRecorded;
}

void Entity::eraseRecord() {
  LinkRecords& records = linkRecords();
  std::lock_guard const lock(records.mutex);
  auto const [first, last] = records.children.equal_range(parent_);
  for (auto at = first; at != last; ++at) {
    if (at->second != this) continue;
    records.children.erase(at);
    break;
  }
  link_ &= static_cast<std::uint8_t>(~isRecorded);
}

Name Entity::name() const { return name_; }

Ptr<Entity const> Entity::parent() const { return parent_; }
Ptr<Entity> Entity::parent() { return parent_; }

void Entity::parentIs(Ptr<Entity> const& parent) {
  bool const isOwner = (link_ & ownerSetsLink) != 0;
  link_ &= static_cast<std::uint8_t>(~ownerSetsLink);
  if (link_ & isRecorded) eraseRecord();
  if (parent && !isOwner) record(**parent);
  parent_ = parent.get();
  handleParent(parent);
  if (!parent && hooks.unparented) hooks.unparented(*this);
}

MoxAttr const* Entity::parentAttr() const {
  return parent_ && hooks.attribute ? hooks.attribute(*parent_, parentAttrId_) : nullptr;
}
AttributeId Entity::parentAttrId() const { return parentAttrId_; }
void Entity::parentAttrIdIs(AttributeId attribute) { parentAttrId_ = attribute; }

String8 Entity::uriPath() const { return fullName(); }

String8 Entity::fullName() const {
  if (!parent_) return name();
  String8 step = name();
  // Whoever keeps children outside of attributes, as a directory does, names them.
  if (parentAttrId_ != 0) {
    step = hooks.pathStep ? hooks.pathStep(*this)
                          : parent_->attributeString(parentAttrId_) + "[" + name() + "]";
  }
  String8 const above = parent_->fullName();
  return above.empty() ? step : above + "/" + step;
}

String8 Entity::attributeString(AttributeId) const { return "unknown"; }
void Entity::moxNotifieeAdapterIs(Ptr<Entity const> const&) {}
void Entity::handleParent(Ptr<Entity> const&) {}
bool Entity::moxHasAttrLogInterface() const { return false; }

void Entity::NotifieeConst::notifierIs(Ptr<PtrInterface const> const&) {
  PtrInterface::NotifieeConst::notifierIs(Ptr<PtrInterface const>());
}
void Entity::NotifieeConst::onParent() {}
void Entity::NotifieeConst::onVersion() {}
Entity::NotifieeConst::~NotifieeConst() = default;
Entity::Notifiee::~Notifiee() = default;

}  // namespace Mox
