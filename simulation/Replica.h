// What a subscriber makes of a tree from its notifications alone: after its first look at an entity
// it reads nothing but what a notification names. Compared with its tree it shows changes that
// nobody was notified of; compared with the replica of another process, where the trees differ.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "generic/AttributeWalk.h"
#include "generic/Text.h"
#include "simulation/Outline.h"

namespace Mox::Simulation {

/// Observes what the subscribers of one process get to see.
class ReplicaObserver {
 public:
  virtual ~ReplicaObserver() = default;
  /// A text or a number is in a replica now. `isNotified`: by a notification, else at first sight.
  virtual void seen(Entity const& entity, Attribute const& attribute, String8 const& text,
                    bool isNotified) = 0;
  /// The replica is up to date with this notification. May change anything; the replica may end.
  virtual void notified(Ptr<GenericIf> const& entity, Attribute const& attribute,
                        Ptr<GenericIf const> const& key) = 0;
};

/// Targets of references that compared trees hold at one place.
using TargetPairs = std::vector<std::pair<Entity const*, Entity const*>>;

/// One entity and all that it owns. It keeps none of them alive.
class Replica {
 public:
  /// `observer` outlives the replica.
  Replica(Ptr<Entity> const& entity, ReplicaObserver& observer);
  Replica(Replica const&) = delete;
  Replica& operator=(Replica const&) = delete;

  Ptr<GenericIf> const& object() const { return object_; }
  Entity const* entity() const { return entity_; }

  /// Where the tree differs from what its subscribers were notified of; empty if nowhere.
  std::string staleAt(std::string const& path);
  /// Where two trees differ first; empty if nowhere. Texts of references are those of the latest
  /// `staleAt`. `targets` gets the references of both.
  std::string difference(Replica const& other, std::string const& path, TargetPairs& targets) const;

  /// One of the entities of the tree, this one included.
  Replica const& any(Chance& chance) const;
  /// A target of one of this entity's references; null for none.
  Ptr<Entity> anyTarget(Chance& chance) const;

 private:
  struct Value {
    std::string text;
    Entity const* target = nullptr;  ///< of a reference; it may be gone
    std::unique_ptr<Replica> child;
  };
  /// An attribute; the members of a collection by the text of their key.
  struct Slot {
    Attribute const* attribute;
    Value value;
    std::map<std::string, Value> members;
  };

  void handle(AttributeId id, Ptr<GenericIf const> const& key);
  void read(Slot& slot, bool isNotified);
  void readMember(Slot& slot, Ptr<GenericIf const> const& key, Ptr<GenericIf> const& member,
                  bool isNotified);
  void store(Slot& slot, Value& value, Ptr<GenericIf> const& now, bool isNotified);
  std::string staleSlot(Slot& slot, std::string const& place);
  static std::string staleValue(Slot const& slot, Value& value, Ptr<GenericIf> const& now,
                                std::string const& place);
  static std::string differentValue(Value const& one, Value const& other, std::string const& place,
                                    TargetPairs& targets);
  Ptr<GenericIf> get(Slot const& slot) const;

  Entity const* entity_;
  MoxType const* type_;
  Ptr<GenericIf> object_;
  ReplicaObserver& observer_;
  std::vector<Slot> slots_;
  std::unique_ptr<AttributeWatch> watch_;
};

}  // namespace Mox::Simulation
