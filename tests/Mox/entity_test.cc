// The base entity and directories: looks for links that hold or dangle, wrong paths, entries that
// outlive their directory, and objects used though nobody holds them.
#include "Mox/Entity.h"
#include "Mox/Hooks.h"

#include <gtest/gtest.h>

#include <string>

#include "AllocationGuard.h"
#include "Mox/Dir.h"

namespace Mox {
namespace {

/// A type with a collection (300) and a singleton (301).
class Box : public Entity {
 public:
  explicit Box(char const* name, char const* key = nullptr) : Entity(name), key_(key) {}
  String8 attributeString(AttributeId attribute) const override {
    return attribute == 300 ? "box" : attribute == 301 ? "lid" : Entity::attributeString(attribute);
  }
  /// What a type registry would tell of a box.
  static String8 pathStep(Entity const& child) {
    String8 const attribute = child.moxRawParent()->attributeString(child.parentAttrId());
    char const* const key = static_cast<Box const&>(child).key_;
    return attribute == "lid" ? attribute
                              : attribute + "[" + (key ? String8(key) : child.name()) + "]";
  }
  void handleParent(Ptr<Entity> const& parent) override {
    lastParent = parent ? parent->name() : Name("none");
  }
  Name lastParent;

 private:
  char const* key_;
};

void place(Entity& parent, AttributeId attribute, Entity& child) {
  child.parentAttrIdIs(attribute);
  child.parentIs(&parent);
}

TEST(Entities, KnowTheirParentWithoutHoldingIt) {
  Ptr<Box> const parent(new Box("p")), child(new Box("c"));
  place(*parent.get(), 300, *child.get());
  EXPECT_EQ(parent->references(), 1u);
  EXPECT_EQ(child->references(), 1u);
  EXPECT_EQ(child->parent(), parent);
  EXPECT_EQ(Ptr<Box const>(child)->parent(), parent);
  EXPECT_EQ(child->parentAttrId(), 300);
  EXPECT_EQ(child->lastParent, "p");
  static Entity* unparented = nullptr;
  hooks.unparented = [](Entity& entity) {
    unparented = &entity;
    EXPECT_EQ(entity.moxRawParent(), nullptr);
  };
  child->parentIs(parent);
  EXPECT_EQ(unparented, nullptr);
  child->parentIs(nullptr);
  EXPECT_EQ(unparented, child.get());
  hooks.unparented = nullptr;
  EXPECT_FALSE(child->parent());
  EXPECT_EQ(child->lastParent, "none");
  EXPECT_EQ(parent->version() + child->version(), 0u);
}

TEST(Entities, PathsComeFromTheParentChainAndTheKeys) {
  Ptr<Box> const slice(new Box("slice")), fap(new Box("fap0")), lane(new Box("", "5")),
      lid(new Box("whatever", "9"));
  struct Case {
    Entity& entity;
    char const* path;
  };
  auto* const hook = hooks.pathStep;
  hooks.pathStep = &Box::pathStep;
  EXPECT_EQ(lane->fullName(), "");
  place(*slice.get(), 300, *fap.get());
  place(*fap.get(), 300, *lane.get());
  place(*lane.get(), 301, *lid.get());
  for (Case const& c : {Case{*slice.get(), "slice"}, Case{*fap.get(), "slice/box[fap0]"},
                        Case{*lane.get(), "slice/box[fap0]/box[5]"},
                        Case{*lid.get(), "slice/box[fap0]/box[5]/lid"}}) {
    EXPECT_EQ(c.entity.fullName(), c.path);
    EXPECT_EQ(c.entity.uriPath(), c.path);
  }
  Ptr<Dir> const root(new Dir), mounts(new Dir("mounts"));
  root->entryIs("mounts", mounts);
  mounts->entryIs("slice", slice);
  EXPECT_EQ(lane->fullName(), "mounts/slice/box[fap0]/box[5]");
  hooks.pathStep = nullptr;
  EXPECT_EQ(fap->fullName(), "mounts/slice/box[fap0]") << "the name stands for the key";
  hooks.pathStep = hook;
}

#ifndef NDEBUG
TEST(Entities, UsedThoughNobodyHoldsThemEndADebugBuild) {
  char const* const text = "Assertion 'the object was made by new and is held by a Ptr' failed";
  EXPECT_DEATH(Box("on the stack").moxVersionInc(), text);
  EXPECT_DEATH((new Box("raw"))->moxVersionInc(), text);
  Ptr<Box> const child(new Box("c"));
  EXPECT_DEATH(child->moxOwnerIs(new Box("raw")), text);
}
#endif

TEST(Dirs, HoldTheirTargetsUntilTheEntryEnds) {
  Ptr<Box> const box(new Box("b"));
  Ptr<Dir> dir(new Dir("d"));
  Ptr<Dir::Entry> const entry = dir->entryIs("b", box);
  EXPECT_EQ(box->references(), 2u);
  EXPECT_EQ(box->parent(), dir);
  EXPECT_EQ(dir->entryIs("b", box), entry) << "the same target again changes nothing";
  EXPECT_EQ(dir->version(), 1u);
  EXPECT_EQ(dir->entry("b"), entry);
  EXPECT_FALSE(dir->entry("c"));
  entry->operationIs(2);
  EXPECT_EQ(dir->entryCount(), 1u);
  entry->operationIs(3);
  EXPECT_EQ(dir->entryCount(), 0u);
  EXPECT_FALSE(entry->target());
  EXPECT_FALSE(box->parent());
  EXPECT_EQ(box->references(), 1u);
  entry->operationIs(3);
  EXPECT_FALSE(dir->entryDel("b"));

  // Another target under the name ends the first, and the directory's end ends all.
  Ptr<Box> const second(new Box("second"));
  dir->entryIs("b", box);
  dir->entryIs("b", second);
  EXPECT_FALSE(box->parent());
  EXPECT_EQ(dir->entryCount(), 1u);
  for (int index = 0; index < 100; ++index) dir->entryIs(format("n%d", index), new Box("n"));
  Ptr<Dir::Entry> const last = dir->entry("b");
  dir = nullptr;
  EXPECT_FALSE(second->parent());
  EXPECT_EQ(second->references(), 1u);
  last->operationIs(3);
}

TEST(Dirs, AFailedAllocationLeavesTheEntityWhereItWas) {
  struct Subject {
    Ptr<Dir> dir{new Dir("d")};
    Ptr<Box> box{new Box("b")};
  };
  int const failed =
      allocationGuard::failEach([] { return std::make_unique<Subject>(); },
                                [name = Name("b")](auto& s) { s->dir->entryIs(name, s->box); },
                                [](auto& s, bool wasFailed) {
                                  EXPECT_EQ(s->dir->entryCount(), wasFailed ? 0u : 1u);
                                  EXPECT_EQ(s->box->parent() == nullptr, wasFailed);
                                  EXPECT_EQ(s->box->references(), wasFailed ? 1u : 2u);
                                });
  EXPECT_EQ(failed, 2);
}

}  // namespace
}  // namespace Mox
