// The workloads' tree in this library's model: built, changed, counted and hashed through the
// generated classes of bench.mox. Used by the replication and the memory programs.
#pragma once

#include <BenchTree.h>

#include <array>
#include <vector>

#include "bench/Workload.h"

namespace bench {

using Setter = void (*)(Mox::Entity&, std::uint32_t);

template <class T, auto... setters>
inline constexpr std::array<Setter, sizeof...(setters)> settersOf{
    [](Mox::Entity& entity, std::uint32_t value) { (static_cast<T&>(entity).*setters)(value); }...};

/// The setter of attribute `attr` (from 1) of an object of `kind`.
inline Setter setterOf(std::uint32_t kind, std::uint32_t attr) {
  using namespace BenchTree;
#define S(n) &T::s##n##Is
  static constexpr auto slice = [] {
    using T = Slice;
    return settersOf<T, S(1), S(2)>;
  }();
  static constexpr auto chip = [] {
    using T = Chip;
    return settersOf<T, S(1)>;
  }();
  static constexpr auto serdes = [] {
    using T = Serdes;
    return settersOf<T, S(1), S(2), S(3), S(4), S(5), S(6), S(7), S(8), S(9), S(10)>;
  }();
  static constexpr auto port = [] {
    using T = Port;
    return settersOf<T, S(1), S(2), S(3), S(4), S(5), S(6), S(7), S(8), S(9), S(10), S(11), S(12),
                     S(13), S(14), S(15), S(16), S(17), S(18), S(19), S(20)>;
  }();
  static constexpr auto block = []<class T>(T const*) {
    return settersOf<T, S(1), S(2), S(3), S(4)>;
  };
#undef S
  static constexpr auto blockA = block(static_cast<BlockA const*>(nullptr));
  static constexpr auto blockB = block(static_cast<BlockB const*>(nullptr));
  static constexpr auto blockC = block(static_cast<BlockC const*>(nullptr));
  static constexpr auto blockD = block(static_cast<BlockD const*>(nullptr));
  static constexpr Setter const* tables[tree::kindCount] = {
      slice.data(),  chip.data(),   serdes.data(), blockA.data(), blockB.data(),
      blockC.data(), blockD.data(), port.data(),   nullptr};
  return tables[kind][attr - 1];
}

/// The tree and where each object stands in it, by the number of the object.
class Model {
 public:
  /// Builds the tree of `objects`.
  explicit Model(std::vector<tree::Object> const& objects)
      : slice_(new BenchTree::Slice("slice")), entities_(objects.size() + 1) {
    Mox::Ptr<BenchTree::Chip> chip;
    for (tree::Object const& object : objects) {
      Mox::Entity* entity = nullptr;
      switch (object.kind) {
        case tree::slice:
          slice_->idIs(object.id);
          slice_->descriptionIs(textOf(object));
          entity = slice_.get();
          break;
        case tree::chip:
          chip = slice_->chipIs(object.id, object.key);
          chip->descriptionIs(textOf(object));
          entity = chip.get();
          break;
        case tree::serdes:
          entity = chip->serdesIs(object.id, object.key).get();
          break;
        case tree::blockA:
          entity = lanedBlock(chip->blockAIs(object.id, object.key).get(), object);
          break;
        case tree::blockB:
          entity = lanedBlock(chip->blockBIs(object.id, object.key).get(), object);
          break;
        case tree::blockC:
          entity = lanedBlock(chip->blockCIs(object.id, object.key).get(), object);
          break;
        case tree::blockD: {
          auto const block = chip->blockDIs(object.id, object.key);
          block->descriptionIs(textOf(object));
          entity = block.get();
          break;
        }
        case tree::port:
          entity = chip->portIs(object.id, object.key).get();
          break;
        default: {
          auto const bag = chip->bagIs(object.id, object.key);
          for (std::uint32_t i = 0; i < tree::bagEntries; ++i) {
            bag->entryIs(Mox::String8(tree::bagKey(object.id, i)),
                         Mox::String8(tree::bagValue(object.id, i)));
          }
          entity = bag.get();
        }
      }
      for (std::uint32_t attr = 1; attr <= tree::scalarCount[object.kind]; ++attr) {
        setterOf(object.kind, attr)(*entity, tree::scalar(object.id, attr));
      }
      entities_[object.id] = entity;
    }
  }
  /// Takes a tree as it stands and finds `count` objects in it by their numbers.
  Model(Mox::Ptr<BenchTree::Slice> const& slice, std::size_t count)
      : slice_(slice), entities_(count + 1) {
    forEach(
        [this](std::uint32_t id, auto const& entity, std::uint32_t, std::uint32_t, std::uint32_t) {
          if (id < entities_.size()) {
            entities_[id] = const_cast<Mox::Entity*>(static_cast<Mox::Entity const*>(&entity));
          }
        });
  }

  BenchTree::Slice& slice() const { return **slice_; }
  /// The object with this number; null for none.
  Mox::Entity* entity(std::uint32_t id) const { return entities_[id]; }
  bool hasAll() const {
    for (std::size_t id = 1; id < entities_.size(); ++id) {
      if (!entities_[id]) return false;
    }
    return true;
  }

  /// Calls `visit(id, entity, kind, parent, key)` for each object.
  template <class Visit>
  void forEach(Visit const& visit) const {
    std::uint32_t const root = slice_->id();
    visit(root, **slice_, tree::slice, 0u, 0u);
    for (auto chip = slice_->chipIteratorConst(); chip; ++chip) {
      std::uint32_t const id = chip->id();
      visit(id, **chip, tree::chip, root, chip->index());
      auto const all = [&](auto member, std::uint32_t kind) {
        for (; member; ++member) visit(member->id(), **member, kind, id, member->index());
      };
      all(chip->serdesIteratorConst(), tree::serdes);
      all(chip->blockAIteratorConst(), tree::blockA);
      all(chip->blockBIteratorConst(), tree::blockB);
      all(chip->blockCIteratorConst(), tree::blockC);
      all(chip->blockDIteratorConst(), tree::blockD);
      all(chip->portIteratorConst(), tree::port);
      all(chip->bagIteratorConst(), tree::bag);
    }
  }

  /// The content hash, and the number of values that went into it.
  std::uint64_t hash(std::uint64_t& values) const {
    std::uint64_t sum = 0;
    values = 0;
    forEach([&](std::uint32_t id, auto const& entity, std::uint32_t kind, std::uint32_t parent,
                std::uint32_t key) {
      sum += tree::hashObject({id, kind, parent, key});
      std::uint32_t attr = 0;
      auto const scalar = [&](std::uint32_t value) {
        sum += tree::hashScalar(id, ++attr, value);
        ++values;
      };
      if constexpr (requires { entity.s1(); }) scalar(entity.s1());
      if constexpr (requires { entity.s3(); }) {
        scalar(entity.s2());
        scalar(entity.s3());
        scalar(entity.s4());
      }
      if constexpr (requires { entity.s10(); }) {
        for (std::uint32_t const value :
             {entity.s5(), entity.s6(), entity.s7(), entity.s8(), entity.s9(), entity.s10()}) {
          scalar(value);
        }
      }
      if constexpr (requires { entity.s20(); }) {
        for (std::uint32_t const value :
             {entity.s11(), entity.s12(), entity.s13(), entity.s14(), entity.s15(), entity.s16(),
              entity.s17(), entity.s18(), entity.s19(), entity.s20()}) {
          scalar(value);
        }
      }
      if constexpr (requires { entity.description(); }) {
        sum += tree::hashText(id, entity.description().view());
        ++values;
      }
      if constexpr (requires { entity.laneIteratorConst(); }) {
        for (auto lane = entity.laneIteratorConst(); lane; ++lane) {
          sum += tree::hashLane(id, lane.key(), lane.value());
          ++values;
        }
      }
      if constexpr (requires { entity.entryIteratorConst(); }) {
        for (auto entry = entity.entryIteratorConst(); entry; ++entry) {
          sum += tree::hashBag(id, entry.key().view(), entry.value().view());
          ++values;
        }
      }
    });
    return sum;
  }

  /// Changes of all objects so far: each one raises the version of its object by 1.
  std::uint64_t changes() const {
    std::uint64_t sum = 0;
    for (Mox::Entity const* entity : entities_) {
      if (entity) sum += entity->version();
    }
    return sum;
  }

 private:
  static Mox::String8 textOf(tree::Object const& object) {
    return Mox::String8(tree::text(object.id, object.kind));
  }
  template <class Block>
  static Block* lanedBlock(Block* block, tree::Object const& object) {
    block->descriptionIs(textOf(object));
    for (std::uint32_t j = 0; j < tree::lanesPerBlock; ++j) {
      block->laneIs(tree::laneId(object.key, j), tree::laneValue(object.id, j));
    }
    return block;
  }

  Mox::Ptr<BenchTree::Slice> slice_;
  std::vector<Mox::Entity*> entities_;
};

}  // namespace bench
