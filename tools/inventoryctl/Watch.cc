// Compares what the tree says now with what is remembered of it.
#include "tools/inventoryctl/Watch.h"

#include <vector>

#include "tools/common/Dump.h"

namespace Tools {
namespace {

using Mox::AttributeText;
using Mox::Entity;
using Mox::Ptr;
using Mox::String8;
using Form = Mox::AttributeText::Form;

std::string keyText(String8 const* key) { return key ? toStd(*key) : std::string(); }

}  // namespace

Watch::Watch(Mox::Dir& roots, bool isJson, Write write)
    : roots_(&roots), rootsVersion_(roots.version()), isJson_(isJson), write_(std::move(write)) {
  scanRoots(false);
}

Watch::~Watch() = default;

void Watch::rootsCheck() {
  if (rootsVersion_ == roots_->version()) return;
  rootsVersion_ = roots_->version();
  scanRoots(true);
}

void Watch::scanRoots(bool tells) {
  std::map<std::string, Ptr<Entity>> present;
  for (auto const& root : sortedRoots(**roots_)) present.emplace(toStd(root->fullName()), root);
  auto const before = std::exchange(knownRoots_, present);
  for (auto const& [path, root] : before) {
    auto const now = present.find(path);
    if (now == present.end() || now->second != root) {
      tellEntity("deleted", **root, path);
      entityDel(root);
    }
  }
  for (auto const& [path, root] : present) {
    if (!known_.contains(root.get())) entityIs(root, path, tells);
  }
}

void Watch::entityIs(Ptr<Entity> const& entity, std::string const& path, bool tells) {
  Mox::TypeText const* const type = typeText(**entity);
  if (!type || !type->observe) return;
  if (tells) tellEntity("created", **entity, path);
  auto& place = known_[entity.get()];
  place = std::make_unique<Known>();
  Known& known = *place;
  known.entity = entity;
  known.path = path;
  known.observer = type->observe(**entity, *this);
  type->forEach([&](AttributeText const& attribute) {
    if (attribute.form == Form::scalar) {
      std::string const value = toStd(attribute.value(**entity));
      // What can be set comes as a change if it isn't what a new entity has.
      valueIs(known, attribute, nullptr, &value, tells && !attribute.set);
    } else if (attribute.form == Form::child) {
      childIs(known, attribute, nullptr, attribute.child(**entity), tells);
    } else {
      for (Mox::MemberText const& member : sortedMembers(**entity, attribute)) {
        if (attribute.form == Form::children) {
          childIs(known, attribute, &member.key, member.child, tells);
        } else {
          std::string const value = toStd(member.value);
          valueIs(known, attribute, &member.key, &value, tells);
        }
      }
    }
  });
}

void Watch::entityDel(Ptr<Entity> const& entity) {
  auto const at = known_.find(entity.get());
  if (at == known_.end()) return;
  std::unique_ptr<Known> const gone = std::move(at->second);
  known_.erase(at);
  gone->observer = nullptr;
  for (auto const& [slot, child] : gone->children) entityDel(child);
}

void Watch::handleAttribute(Entity& entity, Mox::AttributeId id, String8 const* key) {
  auto const at = known_.find(&entity);
  Mox::TypeText const* const type = typeText(entity);
  AttributeText const* const attribute = type ? type->find(id) : nullptr;
  if (at == known_.end() || !attribute) return;
  Known& known = *at->second;
  Mox::MemberText member;
  bool const isMember = key && attribute->member && attribute->member(entity, *key, member);
  switch (attribute->form) {
    case Form::scalar: {
      std::string const value = toStd(attribute->value(entity));
      valueIs(known, *attribute, nullptr, &value, true);
      break;
    }
    case Form::child:
      childIs(known, *attribute, nullptr, attribute->child(entity), true);
      break;
    case Form::values: {
      std::string const value = toStd(member.value);
      valueIs(known, *attribute, key, isMember ? &value : nullptr, true);
      break;
    }
    case Form::children:
      childIs(known, *attribute, key, isMember ? member.child : Ptr<Entity>(), true);
      break;
  }
}

void Watch::valueIs(Known& known, AttributeText const& attribute, String8 const* key,
                    std::string const* value, bool tells) {
  Slot const slot(attribute.id, keyText(key));
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

void Watch::childIs(Known& known, AttributeText const& attribute, String8 const* key,
                    Ptr<Entity> const& child, bool tells) {
  Slot const slot(attribute.id, keyText(key));
  std::string const path = attributePath(known.path, attribute, key);
  auto const at = known.children.find(slot);
  Ptr<Entity> const old = at != known.children.end() ? at->second : Ptr<Entity>();
  if (old == child) return;
  if (old) {
    if (tells) tellEntity("deleted", **old, path);
    known.children.erase(at);
    entityDel(old);
  }
  if (child) {
    known.children[slot] = child;
    entityIs(child, path, tells);
  }
}

void Watch::tellEntity(char const* event, Entity const& entity, std::string const& path) {
  bool const isCreated = std::string_view(event) == "created";
  if (!isJson_) {
    write_(std::string(event) + " " + path + (isCreated ? ": " + entityTitle(entity) : ""));
    return;
  }
  std::string line = "{\"event\": " + jsonText(event) + ", \"entity\": " + jsonText(path);
  if (isCreated) {
    line += ", \"type\": " + jsonText(typeText(entity)->qualifiedName) +
            ", \"name\": " + jsonText(toStd(entity.name()));
  }
  write_(line + "}");
}

void Watch::tellValue(Known const& known, AttributeText const& attribute, String8 const* key,
                      std::string const* old, std::string const* value) {
  char const* const event = old && value ? "changed" : value ? "added" : "removed";
  if (!isJson_) {
    write_(std::string(event) + " " + attributePath(known.path, attribute, key) + ": " +
           (old ? *old : "") + (old && value ? " -> " : "") + (value ? *value : ""));
    return;
  }
  std::string line = "{\"event\": " + jsonText(event) + ", \"entity\": " + jsonText(known.path) +
                     ", \"attribute\": " + jsonText(attribute.name);
  if (key) line += ", \"key\": " + jsonText(plainText(*key, attribute.keyKind));
  if (old) line += ", \"old\": " + jsonValue(String8(*old), attribute.kind);
  if (value) line += ", \"new\": " + jsonValue(String8(*value), attribute.kind);
  write_(line + "}");
}

}  // namespace Tools
