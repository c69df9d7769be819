// Watching a tree: a copy built from nothing but the reports is the tree after every step. For
// changes that are lost, reported twice or with a wrong old value, above all when listeners change
// the tree, throw or end the watch, and for entities that a watch keeps alive or follows too long.
#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <optional>
#include <random>

#include "Mox/Dir.h"
#include "generic/Text.h"
#include "generic/TreeWatch.h"
#include "tests/generic/Schema.h"

namespace {

using namespace Inventory::Arad;
using Mox::AttributeForm;
using Mox::Entity;
using Mox::Ptr;
using Mox::TreeWatch;
using schema::text;
using Lines = std::map<std::string, std::string>;

/// Scalars of one entity, or with `isWhole` all that a tree holds.
void read(Ptr<Entity> const& entity, bool isWhole, Lines& lines) {
  Ptr<Mox::GenericIf> const object = Mox::genericOf(entity);
  std::string const path = text(entity->fullName());
  lines[path] = "entity";
  for (Mox::MoxAttr const* attribute : Mox::contentOf(*entity->fwkType())) {
    std::string const at = path + "." + text(attribute->name());
    AttributeForm const form = attributeForm(*attribute);
    if (form == AttributeForm::value || form == AttributeForm::reference) {
      lines[at] = text(Mox::attributeGet({object, attribute, {}})->strRep());
    }
    if (!isWhole) continue;
    if (form == AttributeForm::child) {
      Ptr<Entity> const child = Mox::entityOf(Mox::attributeGet({object, attribute, {}}));
      if (child) read(child, true, lines);
    }
    if (!attribute->keyType()) continue;
    for (Mox::AttributeWalk walk(object, attribute->id()); walk; ++walk) {
      if (form == AttributeForm::children) {
        read(Mox::entityOf(walk.value()), true, lines);
      } else {
        lines[at + "[" + text(Mox::keyText(walk.key())) + "]"] = text(walk.value()->strRep());
      }
    }
  }
}

class Copy : public TreeWatch::Listener {
 public:
  void handleEntity(TreeWatch::Node const& node) override {
    EXPECT_FALSE(lines.contains(text(node.path()))) << node.path();
    read(node.entity(), false, lines);
    react();
  }
  void handleEntityDel(TreeWatch::Node const& node) override {
    std::string const path = text(node.path());
    EXPECT_EQ(lines.erase(path), 1u) << path;
    std::erase_if(lines, [&](auto const& line) { return line.first.starts_with(path + "."); });
    react();
  }
  void handleChange(TreeWatch::Node const& node, Mox::TreeChange const& change) override {
    std::string at = text(node.path()) + "." + text(change.attribute.name());
    if (change.key) at += "[" + text(change.keyText) + "]";
    EXPECT_EQ(lines.contains(at) ? lines[at] : "none",
              change.before ? text(*change.before) : "none")
        << at;
    if (change.now) {
      lines[at] = text(*change.now);
    } else {
      lines.erase(at);
    }
    react();
  }
  void handleException(TreeWatch::Node const&) override { ++failures; }

  Lines lines;
  std::function<void()> reaction;
  unsigned int failures = 0;

 private:
  void react() {
    if (reaction) reaction();
  }
};

class Tree {
 public:
  explicit Tree(unsigned int seed) : random(seed) {}

  /// One random change of one random place.
  void change() {
    Mox::Name const names[] = {"a", "b"};
    Mox::Name const name = names[below(2)];
    auto const slice = Mox::ptrCast<AradSlice>(roots->entryTarget(name));
    if (!slice || below(10) == 0) {
      bool const isDel = slice && below(2);
      roots->entryIs(name, isDel ? Ptr<Entity>() : Ptr<Entity>(new AradSlice(name)));
      return;
    }
    Ptr<Arad> const chip = slice->fap("f");
    if (!chip || below(30) == 0) {
      if (chip) slice->fapDel("f");
      return void(slice->fapIs("f", 1));
    }
    auto const lane = static_cast<unsigned short>(below(4));
    Ptr<Xlge> const block = *chip->xlgeIs(lane);
    switch (below(10)) {
      case 0:
        return void(chip->xlgeDel(lane));
      case 1:
        return block->serdesIs(below(4), below(2));
      case 2:
        return void(block->serdesDel(below(4)));
      case 3:
        return below(2) ? block->descriptionIs("x") : block->descriptionIs("y");
      case 4:
        return chip->ddrTuneSettingIs(below(2) ? "k.1" : "k]2", below(2) ? "v" : "w");
      case 5:
        return void(below(2) ? chip->pciDeviceDel() : *chip->pciDeviceIs("p"));
      case 6:
        return chip->xlgeNotify(lane);
      case 7:
        return void(*chip->portIs(lane, nullptr)->txConnectionIs(lane));
      case 8:
        return void(chip->portDel(lane));
      default:
        return slice->numPortsIs(below(3));
    }
  }
  unsigned short below(unsigned int bound) { return static_cast<unsigned short>(random() % bound); }
  Lines lines() const {
    Lines all;
    read(Ptr<Entity>(roots), true, all);
    return all;
  }

  Ptr<Mox::Dir> roots{new Mox::Dir};
  std::mt19937 random;
};

TEST(TreeWatch, ACopyMadeOfTheReportsIsTheTree) {
  char const* const chosen = std::getenv("TREE_SEED");
  unsigned int const seed = chosen ? std::atoi(chosen) : std::random_device()();
  SCOPED_TRACE("TREE_SEED=" + std::to_string(seed));
  for (auto const holding : {TreeWatch::Holding::counted, TreeWatch::Holding::weak}) {
    Tree tree(seed);
    for (int i = 0; i < 50; ++i) tree.change();
    Copy copy, late;
    copy.lines = tree.lines();
    std::optional<TreeWatch> watch(std::in_place, Ptr<Entity>(tree.roots), copy, holding);
    std::unique_ptr<TreeWatch> second;
    unsigned int throws = 0;
    int depth = 0;
    copy.reaction = [&] {
      if (depth == 3 || tree.below(3) != 0) return;
      ++depth;
      tree.change();
      --depth;
      if (tree.below(4) == 0) ++throws, throw 1;
    };
    // A watch that its own listener ends.
    late.reaction = [&] { second = nullptr; };
    for (int i = 0; i < 120; ++i) {
      late.lines = tree.lines();
      second = std::make_unique<TreeWatch>(Ptr<Entity>(tree.roots), late, holding);
      tree.change();
      ASSERT_EQ(copy.lines, tree.lines()) << i;
      ASSERT_EQ(copy.failures, throws);
    }
    second = nullptr;
    copy.reaction = nullptr;
    bool const isWeak = holding == TreeWatch::Holding::weak;
    EXPECT_EQ(tree.roots->references() & 0x1fffffff, isWeak ? 1u : 2u);
    tree.roots = nullptr;
    EXPECT_EQ(copy.lines.empty(), isWeak);
  }
}

TEST(TreeWatch, ADirectoryIsReadAndChangedLikeAnyEntity) {
  Ptr<Mox::Dir> const roots(new Mox::Dir);
  Ptr<AradSlice> const slice(new AradSlice("s"));
  Ptr<Mox::GenericIf> const object = Mox::genericOf(Ptr<Entity>(roots));
  Mox::MoxAttr const* const entry = Mox::attributeByName(*Mox::Dir::_fwkType(), "entry");
  std::string seen;
  Mox::AttributeWatch const watch(
      object, [&](Mox::GenericIf&, Mox::AttributeId id, Ptr<Mox::GenericIf const> const& key) {
        seen += std::to_string(id) + text(key->strRep()) + std::to_string(roots->version()) + " ";
      });
  Ptr<Mox::GenericIf> const list(new Mox::GenericIf::List_(
      {Mox::carrier(Mox::Name("n")), Mox::genericOf(Ptr<Entity>(slice))}));
  object->attributeOp({entry->id(), Mox::GenericIf::AttributeOp::attrSet}, nullptr, list);
  EXPECT_EQ(slice->parent(), Ptr<Entity>(roots));
  roots->entryIs("n", Ptr<Entity>(slice));
  roots->entryIs("n", Ptr<Entity>(new AradSlice("t")));
  Mox::AttributePlace const place{object, entry, Mox::carrier(Mox::Name("n"))};
  EXPECT_EQ(attributeGet(place)->strRep(), "'t'");
  EXPECT_TRUE(attributeDel(place));
  EXPECT_FALSE(attributeDel(place));
  EXPECT_EQ(seen, "258'n'1 258'n'3 258'n'4 ");
  EXPECT_EQ(roots->attributeString(258), "entry");
  // A change without a key: everything is compared.
  Copy copy;
  roots->entryIs("n", Ptr<Entity>(slice));
  read(Ptr<Entity>(roots), true, copy.lines);
  TreeWatch const tree(Ptr<Entity>(roots), copy);
  tree.root().generic()->hasNotificationActiveIs(false);
  roots->entryDel("n");
  roots->entryIs("m", Ptr<Entity>(new AradSlice("m")));
  tree.root().generic()->hasNotificationActiveIs(true);
  tree.root().generic()->onAttribute(258);
  Lines now;
  read(Ptr<Entity>(roots), true, now);
  EXPECT_EQ(copy.lines, now);
}

}  // namespace
