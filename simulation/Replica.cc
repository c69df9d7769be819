#include "simulation/Replica.h"

#include "simulation/TreeText.h"

namespace Mox::Simulation {
namespace {

std::string shown(Ptr<GenericIf const> const& carrier) {
  String8 const text = carrier->strRep();
  return std::string(text.view());
}

bool isReference(Attribute const& attribute) {
  return !attribute.ownsChildren() && !attribute.values;
}

std::string brief(std::string const& text) { return text.substr(0, 60); }

}  // namespace

Replica::Replica(Ptr<Entity> const& entity, ReplicaObserver& observer)
    : entity_(entity.get()),
      type_(entity->fwkType()),
      object_(genericOf(entity)),
      observer_(observer) {
  object_->isWeakReferenceIs(true);
  for (Attribute const& attribute : Outline::of(*type_).attributes()) {
    slots_.push_back({&attribute, {}, {}});
  }
  watch_ = std::make_unique<AttributeWatch>(
      object_,
      [this](GenericIf&, AttributeId id, Ptr<GenericIf const> const& key) { handle(id, key); });
  for (Slot& slot : slots_) read(slot, false);
}

Ptr<GenericIf> Replica::get(Slot const& slot) const {
  return object_->attributeOp({slot.attribute->id(), GenericIf::AttributeOp::attrGet}, nullptr,
                              nullptr);
}

void Replica::handle(AttributeId id, Ptr<GenericIf const> const& key) {
  for (Slot& slot : slots_) {
    if (slot.attribute->id() != id) continue;
    if (!key) {
      read(slot, true);
    } else if (AttributeWalk const at(object_, id, key); at) {
      readMember(slot, key, at.value(), true);
    } else {
      slot.members.erase(shown(key));
    }
    // This replica may end in there.
    Ptr<GenericIf> const held = object_;
    return observer_.notified(held, *slot.attribute, key);
  }
}

void Replica::read(Slot& slot, bool isNotified) {
  if (!slot.attribute->isCollection()) return store(slot, slot.value, get(slot), isNotified);
  std::map<std::string, Value> before;
  before.swap(slot.members);
  for (AttributeWalk at(object_, slot.attribute->id()); at; ++at) {
    Ptr<GenericIf> const key = at.key();
    if (auto const known = before.find(shown(key)); known != before.end()) {
      slot.members.insert(before.extract(known));
    }
    readMember(slot, key, at.value(), isNotified);
  }
}

void Replica::readMember(Slot& slot, Ptr<GenericIf const> const& key, Ptr<GenericIf> const& member,
                         bool isNotified) {
  store(slot, slot.members[shown(key)], member, isNotified);
}

void Replica::store(Slot& slot, Value& value, Ptr<GenericIf> const& now, bool isNotified) {
  if (slot.attribute->ownsChildren()) {
    Ptr<Entity> const child = entityOf(now);
    if (child && value.child && value.child->entity() == child.get()) return;
    value.child.reset();
    if (child) value.child = std::make_unique<Replica>(child, observer_);
    return;
  }
  String8 const text = now->strRep();
  value.text = text.view();
  if (isReference(*slot.attribute)) {
    value.target = entityOf(now).get();
  } else {
    observer_.seen(*entity_, *slot.attribute, text, isNotified);
  }
}

std::string Replica::staleAt(std::string const& path) {
  for (Slot& slot : slots_) {
    std::string const place = path + "." + std::string(slot.attribute->attribute->name().view());
    if (std::string found = staleSlot(slot, place); !found.empty()) return found;
  }
  return {};
}

std::string Replica::staleSlot(Slot& slot, std::string const& place) {
  if (!slot.attribute->isCollection()) return staleValue(slot, slot.value, get(slot), place);
  std::size_t count = 0;
  for (AttributeWalk at(object_, slot.attribute->id()); at; ++at, ++count) {
    std::string const key = shown(at.key());
    auto const known = slot.members.find(key);
    std::string const member = memberPlace(place, key);
    if (known == slot.members.end()) return member + ": not notified";
    std::string found = staleValue(slot, known->second, at.value(), member);
    if (!found.empty()) return found;
  }
  return count == slot.members.size() ? std::string() : place + ": a removal was not notified";
}

std::string Replica::staleValue(Slot const& slot, Value& value, Ptr<GenericIf> const& now,
                                std::string const& place) {
  if (slot.attribute->ownsChildren()) {
    Entity const* const child = entityOf(now).get();
    if ((value.child ? value.child->entity() : nullptr) != child) return place + ": another child";
    return value.child ? value.child->staleAt(place) : std::string();
  }
  std::string const text = shown(now);
  if (isReference(*slot.attribute)) {
    if (value.target != entityOf(now).get()) return place + ": another target";
    // The path of a target follows where that is now.
    value.text = text;
  } else if (value.text != text) {
    return place + ": notified of " + brief(value.text) + ", now " + brief(text);
  }
  return {};
}

std::string Replica::difference(Replica const& other, std::string const& path,
                                TargetPairs& targets) const {
  if (type_ != other.type_) return path + ": types differ";
  if (entity_->name() != other.entity_->name()) return path + ": names differ";
  std::string found;
  for (std::size_t at = 0; at != slots_.size() && found.empty(); ++at) {
    Slot const& one = slots_[at];
    Slot const& two = other.slots_[at];
    std::string const place = path + "." + std::string(one.attribute->attribute->name().view());
    found = differentValue(one.value, two.value, place, targets);
    for (auto const& [key, value] : one.members) {
      if (!found.empty()) break;
      std::string const member = memberPlace(place, key);
      auto const known = two.members.find(key);
      found = known == two.members.end() ? member + ": only in the first"
                                         : differentValue(value, known->second, member, targets);
    }
    if (found.empty() && one.members.size() != two.members.size()) {
      found = place + ": more in the second";
    }
  }
  return found;
}

std::string Replica::differentValue(Value const& one, Value const& other, std::string const& place,
                                    TargetPairs& targets) {
  if (one.text != other.text) return place + ": " + brief(one.text) + " and " + brief(other.text);
  if (one.target || other.target) targets.emplace_back(one.target, other.target);
  if (bool(one.child) != bool(other.child)) {
    return place + (one.child ? ": only in the first" : ": only in the second");
  }
  return one.child ? one.child->difference(*other.child, place, targets) : std::string();
}

Replica const& Replica::any(Chance& chance) const {
  std::vector<Replica const*> children;
  for (Slot const& slot : slots_) {
    if (slot.value.child) children.push_back(slot.value.child.get());
    for (auto const& [key, value] : slot.members) {
      if (value.child) children.push_back(value.child.get());
    }
  }
  if (children.empty() || chance.oneIn(4)) return *this;
  return children[chance.below(static_cast<unsigned int>(children.size()))]->any(chance);
}

Ptr<Entity> Replica::anyTarget(Chance& chance) const {
  std::vector<Slot const*> references;
  for (Slot const& slot : slots_) {
    if (slot.value.target) references.push_back(&slot);
  }
  if (references.empty()) return {};
  return entityOf(get(*references[chance.below(static_cast<unsigned int>(references.size()))]));
}

}  // namespace Mox::Simulation
