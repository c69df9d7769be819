// Compares what the tree says now with what is remembered of it.
#include "tools/inventoryctl/Watch.h"

#include <set>
#include <string_view>

#include "tools/common/Json.h"

namespace Tools {
namespace {

using Mox::AttributeForm;
using Mox::Entity;
using Mox::GenericIf;
using Mox::MoxAttr;
using Mox::Ptr;

}  // namespace

Watch::Watch(Mox::Dir& roots, bool isJson, Write write)
    : roots_(&roots), rootsVersion_(roots.version()), isJson_(isJson), write_(std::move(write)) {
  scanRoots(false);
}

Watch::~Watch() {
  for (auto const& [generic, known] : byGeneric_) known->node.generic()->listenerIs(nullptr);
}

void Watch::rootsCheck() {
  if (rootsVersion_ == roots_->version()) return;
  rootsVersion_ = roots_->version();
  scanRoots(true);
}

void Watch::scanRoots(bool tells) {
  std::map<std::string, Ptr<Entity>> present;
  for (auto const& root : rootsOf(**roots_)) {
    present.emplace(withoutControlBytes(toStd(root->name())), root);
  }
  auto const before = std::exchange(knownRoots_, present);
  for (auto const& [path, root] : before) {
    auto const now = present.find(path);
    if (now == present.end() || now->second != root) {
      tellEntity("deleted", root, path);
      entityDel(root);
    }
  }
  for (auto const& [path, root] : present) {
    if (!known_.contains(root.get())) entityIs(root, path, tells);
  }
}

void Watch::entityIs(Ptr<Entity> const& entity, std::string const& path, bool tells) {
  if (tells) tellEntity("created", entity, path);
  auto& place = known_[entity.get()];
  place = std::make_unique<Known>(entity, path);
  Known& known = *place;
  if (!known.node.generic()) return;
  byGeneric_[known.node.generic().get()] = &known;
  known.node.generic()->listenerIs(this);
  for (MoxAttr const* attribute : known.node.attributes()) {
    // What can be set comes as a change if it isn't what a new entity has.
    AttributeForm const form = Mox::attributeForm(*attribute);
    bool const isSettable = form == AttributeForm::value || form == AttributeForm::reference;
    attributeCheck(known, *attribute, {}, tells && !isSettable);
  }
}

void Watch::entityDel(Ptr<Entity> const& entity) {
  auto const at = known_.find(entity.get());
  if (at == known_.end()) return;
  std::unique_ptr<Known> const gone = std::move(at->second);
  known_.erase(at);
  if (gone->node.generic()) {
    byGeneric_.erase(gone->node.generic().get());
    gone->node.generic()->listenerIs(nullptr);
  }
  for (auto const& [slot, child] : gone->children) entityDel(child);
}

void Watch::handleAttribute(GenericIf& of, Mox::AttributeId id, Ptr<GenericIf const> const& key) {
  auto const at = byGeneric_.find(&of);
  if (at == byGeneric_.end()) return;
  MoxAttr const* const attribute = at->second->node.entity()->fwkType()->attr(id);
  if (attribute) attributeCheck(*at->second, *attribute, key, true);
}

void Watch::attributeCheck(Known& known, MoxAttr const& attribute, Ptr<GenericIf const> const& key,
                           bool tells) {
  Node const node = known.node;
  if (!isCollection(attribute) && ownsEntities(attribute)) {
    childIs(known, attribute, nullptr, node.child(attribute), tells);
  } else if (!isCollection(attribute)) {
    std::string const value = node.value(attribute);
    valueIs(known, attribute, nullptr, &value, tells);
  } else if (key) {
    std::string const text = toStd(Mox::keyText(key));
    std::optional<Member> const member = node.member(attribute, key);
    memberIs(known, attribute, &text, member ? &*member : nullptr, tells);
  } else {
    std::set<std::string> gone;
    for (auto const& [slot, value] : known.values) {
      if (slot.first == attribute.id()) gone.insert(slot.second);
    }
    for (auto const& [slot, child] : known.children) {
      if (slot.first == attribute.id()) gone.insert(slot.second);
    }
    for (Member const& member : node.members(attribute)) {
      gone.erase(member.key);
      memberIs(known, attribute, &member.key, &member, tells);
    }
    for (std::string const& each : gone) memberIs(known, attribute, &each, nullptr, tells);
  }
}

void Watch::memberIs(Known& known, MoxAttr const& attribute, std::string const* key,
                     Member const* member, bool tells) {
  if (ownsEntities(attribute)) {
    childIs(known, attribute, key, member ? member->child : Ptr<Entity>(), tells);
  } else {
    valueIs(known, attribute, key, member ? &member->value : nullptr, tells);
  }
}

void Watch::valueIs(Known& known, MoxAttr const& attribute, std::string const* key,
                    std::string const* value, bool tells) {
  Slot const slot(attribute.id(), key ? *key : "");
  auto const old = known.values.find(slot);
  bool const isKnown = old != known.values.end();
  if (isKnown == (value != nullptr) && (!isKnown || old->second == *value)) return;
  if (tells) tellValue(known, attribute, key, isKnown ? &old->second : nullptr, value);
  if (value) {
    known.values[slot] = *value;
  } else {
    known.values.erase(old);
  }
}

void Watch::childIs(Known& known, MoxAttr const& attribute, std::string const* key,
                    Ptr<Entity> const& child, bool tells) {
  Slot const slot(attribute.id(), key ? *key : "");
  std::string const path = attributePath(known.path, attribute, key);
  auto const at = known.children.find(slot);
  Ptr<Entity> const old = at != known.children.end() ? at->second : Ptr<Entity>();
  if (old == child) return;
  if (old) {
    if (tells) tellEntity("deleted", old, path);
    known.children.erase(at);
    entityDel(old);
  }
  if (child) {
    known.children[slot] = child;
    entityIs(child, path, tells);
  }
}

bool Watch::isWanted(std::string const& path) const {
  if (!path.starts_with(only_)) return false;
  constexpr std::string_view separators = "/.[";
  return only_.empty() || path.size() == only_.size() ||
         separators.find(path[only_.size()]) != std::string_view::npos;
}

void Watch::tellEntity(char const* event, Ptr<Entity> const& entity, std::string const& path) {
  if (!isWanted(path)) return;
  bool const isCreated = std::string_view(event) == "created";
  if (!isJson_) {
    write_(std::string(event) + " " + path + (isCreated ? ": " + titleOf(**entity) : ""));
    return;
  }
  std::string line = "{\"event\": " + jsonText(event) + ", \"entity\": " + jsonText(path);
  if (isCreated) {
    line += ", \"type\": " + jsonText(toStd(entity->fwkType()->qualifiedName())) +
            ", \"name\": " + jsonText(toStd(entity->name()));
  }
  write_(line + "}");
}

void Watch::tellValue(Known const& known, MoxAttr const& attribute, std::string const* key,
                      std::string const* old, std::string const* value) {
  std::string const path = attributePath(known.path, attribute, key);
  if (!isWanted(path)) return;
  char const* const event = old && value ? "changed" : value ? "added" : "removed";
  if (!isJson_) {
    write_(std::string(event) + " " + path + ": " + (old ? *old : "") +
           (old && value ? " -> " : "") + (value ? *value : ""));
    return;
  }
  std::string line = "{\"event\": " + jsonText(event) + ", \"entity\": " + jsonText(known.path) +
                     ", \"attribute\": " + jsonText(toStd(attribute.name()));
  if (key) line += ", \"key\": " + jsonText(plainKey(*key, attribute));
  if (old) line += ", \"old\": " + jsonValue(*old, attribute);
  if (value) line += ", \"new\": " + jsonValue(*value, attribute);
  write_(line + "}");
}

}  // namespace Tools
