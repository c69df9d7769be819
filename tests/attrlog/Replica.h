// What a subscriber makes of a tree from its notifications alone, and comparisons of trees with
// each other and with such a replica. Driven by the types' own tables.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>

#include "Mox/Entity.h"
#include "model/TypeText.h"
#include "registry/MoxType.h"

namespace Mox::NboAttrLog::test {

/// Where two trees differ first, with both values; empty if nowhere. Compares values, parameters,
/// keys, and what references name.
inline std::string difference(Entity const& a, Entity const& b, std::string const& path) {
  using Form = AttributeText::Form;
  if (a.fwkType() != b.fwkType()) return path + ": types differ";
  if (a.name() != b.name()) return path + ": names differ";
  std::string found;
  a.fwkType()->typeText()->forEach([&](AttributeText const& attribute) {
    if (!found.empty()) return;
    auto const place = [&] { return path + "." + attribute.name; };
    auto const children = [&](Ptr<Entity> const& one, Ptr<Entity> const& other,
                              std::string const& where) {
      if (bool(one) != bool(other)) {
        found = where + (one ? ": only in the first" : ": only in the second");
      } else if (one) {
        found = difference(**one, **other, where);
      }
    };
    switch (attribute.form) {
      case Form::scalar: {
        String8 const one = attribute.value(a);
        String8 const other = attribute.value(b);
        if (one.view() != other.view()) {
          found = place() + ": " + std::string(one.view().substr(0, 60)) + " and " +
                  std::string(other.view().substr(0, 60));
        }
        break;
      }
      case Form::child:
        children(attribute.child(a), attribute.child(b), place());
        break;
      case Form::values:
      case Form::children: {
        int surplus = 0;
        attribute.members(b, [&](MemberText const&) { --surplus; });
        attribute.members(a, [&](MemberText const& member) {
          ++surplus;
          if (!found.empty()) return;
          std::string const where = place() + "[" + std::string(member.key.view()) + "]";
          MemberText other;
          if (!attribute.member(b, member.key, other)) {
            found = where + ": only in the first";
          } else if (member.child) {
            children(member.child, other.child, where);
          } else if (member.value.view() != other.value.view()) {
            found = where + ": values differ";
          }
        });
        if (found.empty() && surplus != 0) found = place() + ": more in the second";
        break;
      }
    }
  });
  return found;
}

/// One subscriber for each entity of a tree. After its first look at an entity it learns nothing
/// but by notifications.
class Replica final : public EntityObserver {
 public:
  /// Hears each text that a subscriber gets to see, and whether it was told or found there.
  using Seen = std::function<void(Entity const&, AttributeText const&, String8 const& text)>;
  struct Watch {
    Seen seen;
    /// What a subscriber does behind a notification; it may change anything.
    std::function<void(Entity&, AttributeText const&, String8 const* key)> react;
    std::uint64_t notifications = 0;
    std::string last;  ///< what the last one was about
  };

  Replica(Entity& entity, Watch& watch)
      : entity_(&entity), type_(entity.fwkType()->typeText()), watch_(watch) {
    observer_ = type_->observe(entity, *this);
    type_->forEach([&](AttributeText const& attribute) {
      if (attribute.isCollection()) {
        attribute.members(entity, [&](MemberText const& member) {
          memberIs(entity, attribute, std::string(member.key.view()), member);
        });
      } else {
        refresh(entity, attribute);
      }
    });
  }

  Entity const* entity() const { return entity_; }

  void handleAttribute(Entity& entity, AttributeId id, String8 const* key) override {
    Watch& watch = watch_;
    ++watch.notifications;
    AttributeText const& attribute = *type_->find(id);
    watch.last = std::string(entity.fullName().view()) + "." + attribute.name;
    MemberText member;
    if (key == nullptr) {
      refresh(entity, attribute);
    } else if (attribute.member(entity, *key, member)) {
      memberIs(entity, attribute, std::string(key->view()), member);
    } else {
      slots_[id].members.erase(std::string(key->view()));
    }
    // This replica may end in there.
    if (watch.react) watch.react(entity, attribute, key);
  }

  /// Where the tree differs from what its subscribers were told; empty if nowhere.
  std::string difference(Entity const& tree, std::string const& path) const {
    std::string found;
    type_->forEach([&](AttributeText const& attribute) {
      if (!found.empty()) return;
      std::string const place = path + "." + attribute.name;
      static Slot const none;
      auto const at = slots_.find(attribute.id);
      Slot const& slot = at == slots_.end() ? none : at->second;
      if (attribute.isCollection()) {
        std::size_t count = 0;
        attribute.members(tree, [&](MemberText const& member) {
          ++count;
          if (!found.empty()) return;
          std::string const key(member.key.view());
          auto const known = slot.members.find(key);
          if (known == slot.members.end()) {
            found = place + "[" + key + "]: nobody was told";
          } else {
            found = known->second.difference(member.value, member.child, place + "[" + key + "]");
          }
        });
        if (found.empty() && count != slot.members.size()) {
          found = place + ": nobody was told of a removal";
        }
      } else {
        found = slot.value.difference(
            attribute.form == AttributeText::Form::scalar ? attribute.value(tree) : String8(),
            attribute.form == AttributeText::Form::child ? attribute.child(tree) : Ptr<Entity>(),
            place);
      }
    });
    return found;
  }

 private:
  struct Value {
    String8 text;
    std::unique_ptr<Replica> child;

    std::string difference(String8 const& now, Ptr<Entity> const& entity,
                           std::string const& path) const {
      if (text.view() != now.view()) {
        return path + ": " + std::string(text.view().substr(0, 60)) + " was told, " +
               std::string(now.view().substr(0, 60)) + " stands there";
      }
      if ((child ? child->entity() : nullptr) != entity.get()) return path + ": another child";
      return child ? child->difference(**entity, path) : std::string();
    }
  };
  struct Slot {
    Value value;
    std::map<std::string, Value> members;
  };

  void refresh(Entity& entity, AttributeText const& attribute) {
    Value& value = slots_[attribute.id].value;
    if (attribute.form == AttributeText::Form::child)
      return childIs(value, attribute.child(entity));
    value.text = attribute.value(entity);
    if (watch_.seen) watch_.seen(entity, attribute, value.text);
  }
  void memberIs(Entity& entity, AttributeText const& attribute, std::string const& key,
                MemberText const& member) {
    Value& value = slots_[attribute.id].members[key];
    if (attribute.form == AttributeText::Form::children) return childIs(value, member.child);
    value.text = member.value;
    if (watch_.seen) watch_.seen(entity, attribute, value.text);
  }
  void childIs(Value& value, Ptr<Entity> const& child) {
    if ((value.child ? value.child->entity() : nullptr) == child.get()) return;
    value.child.reset();
    if (child) value.child = std::make_unique<Replica>(**child, watch_);
  }

  Entity const* entity_;
  TypeText const* type_;
  Watch& watch_;
  std::map<AttributeId, Slot> slots_;
  Ptr<PtrInterface> observer_;
};

}  // namespace Mox::NboAttrLog::test
