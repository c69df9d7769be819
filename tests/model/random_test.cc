// A whole slice tree changed at random, beside a plain reference of what it has to be: every value,
// version, read count, parent and notification of every entity, after every step.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "SchemaTable.h"

namespace {

using Mox::AttributeId;
using Mox::AttributeText;
using Mox::Entity;
using Mox::Ptr;
using Mox::String8;
using schemaTable::Attribute;
using schemaTable::operations;
using schemaTable::samples;
using schemaTable::text;
using schemaTable::Type;
using schemaTable::Watch;

String8 string8(std::string const& from) { return from.c_str(); }

/// What one entity has to be.
struct Node {
  Type const* type = nullptr;
  std::vector<Attribute> attributes;
  std::vector<std::string> arguments;
  std::map<AttributeId, std::string> values;
  std::map<AttributeId, std::map<std::string, std::string>> members;
  std::map<AttributeId, std::map<std::string, std::unique_ptr<Node>>> children;  ///< singletons: ""
  std::uint32_t version = 0;
  std::uint32_t reads = 0;
  Node* parent = nullptr;
  AttributeId parentAttribute = 0;
  std::string heard;

  Entity* entity = nullptr;
  Ptr<Entity> held;  ///< of entities without a parent
  std::unique_ptr<Watch> watch;

  /// Read by the wrapper that holds it, whenever that is looked at.
  bool countsReads() const { return !type->name.ends_with("JerichoNifSerdesTuning"); }
  void change(std::string const& name) {
    ++version;
    heard += name + " v" + std::to_string(version) + "\n";
  }
};

class Walk {
 public:
  explicit Walk(unsigned int seed) : random_(seed) {
    auto root = std::make_unique<Node>();
    root->held = schemaTable::make("Inventory::Arad::AradSlice");
    fill(*root, schemaTable::type("AradSlice"), {"'slice'"}, "");
    bind(*root, **root->held);
    free_.push_back(std::move(root));
  }

  void run(int steps) {
    for (int i = 0; i < steps && !testing::Test::HasFailure(); ++i) {
      std::string const what = step();
      SCOPED_TRACE("step " + std::to_string(i) + ": " + what);
      forEach([&](Node& node) { check(node); });
      if (i % 50 == 0) forEach([&](Node& node) { checkValues(node); });
    }
  }
  std::size_t most() const { return most_; }
  std::set<std::string> const& done() const { return done_; }

 private:
  unsigned int below(std::size_t limit) { return static_cast<unsigned int>(random_() % limit); }
  template <class Visit>
  void forEach(Visit const& visit) {
    for (auto const& root : free_) forEach(*root, visit);
  }
  template <class Visit>
  static void forEach(Node& node, Visit const& visit) {
    visit(node);
    for (auto& [id, members] : node.children) {
      for (auto& [key, child] : members) forEach(*child, visit);
    }
  }

  std::string sample(std::string const& type) {
    auto const& all = samples(type);
    return all[below(all.size())];
  }
  /// Keys from a wider range, where there is one, so that maps grow and shrink.
  std::string key(std::string const& type) {
    if (type == "U32" || type == "U16") return std::to_string(below(24));
    if (type == "String8") return "'k" + std::to_string(below(24)) + "'";
    return sample(type);
  }
  /// As paths and notifications show a key.
  static std::string shown(Attribute const& attribute, std::string const& key) {
    return attribute.keyType == "Name" ? key.substr(1, key.size() - 2) : key;
  }

  void fill(Node& node, Type const& type, std::vector<std::string> const& arguments,
            std::string const& key) {
    node.type = &type;
    node.attributes = schemaTable::attributes(type);
    node.arguments = arguments;
    for (Attribute const& attribute : node.attributes) {
      if (attribute.isConstant() || attribute.isScalar() || attribute.kind == "reference") {
        node.values[attribute.id] = schemaTable::defaultOf(type.name, attribute, key);
      }
    }
  }
  /// The entity of a node that was just made. What its map added to the version is not foreseen.
  static void bind(Node& node, Entity& entity) {
    node.entity = &entity;
    node.version = entity.version();
    node.reads = entity.readCount();
    node.watch = std::make_unique<Watch>(entity);
  }
  /// Links inside a map change versions of its members, and of nobody else.
  static void relinked(std::map<std::string, std::unique_ptr<Node>>& siblings) {
    for (auto& [key, sibling] : siblings) {
      if (!sibling->entity) continue;
      EXPECT_LE(sibling->entity->version() - sibling->version, 8u);
      sibling->version = sibling->entity->version();
    }
  }
  std::unique_ptr<Node> made(Node& owner, Attribute const& attribute,
                             std::vector<std::string> const& arguments) {
    auto node = std::make_unique<Node>();
    fill(*node, schemaTable::type(attribute.type), arguments,
         attribute.isCollection() ? arguments[0] : "");
    for (std::size_t i = 0; i < arguments.size(); ++i) {
      for (Attribute const& own : node->attributes) {
        if (own.isConstant() && own.name == attribute.arguments[i].name) {
          node->values[own.id] = arguments[i];
        }
      }
    }
    node->parent = &owner;
    node->parentAttribute = attribute.id;
    return node;
  }
  /// A node leaves its parent. With `held` its entity lives on by itself.
  void leave(std::unique_ptr<Node> node, Ptr<Entity> held) {
    node->parent = nullptr;
    if (!held) return;
    node->held = std::move(held);
    node->version = node->entity->version();
    free_.push_back(std::move(node));
  }

  std::string step() {
    std::vector<Node*> all;
    forEach([&](Node& node) { all.push_back(&node); });
    most_ = std::max(most_, all.size());
    if (free_.size() > 1 && below(40) == 0) return letGo();
    // Chips and ports more often than the many small things.
    Node* picked = all[below(all.size())];
    for (int i = 0; i < 3; ++i) {
      Node* const other = all[below(all.size())];
      if (other->attributes.size() > picked->attributes.size() && below(2)) picked = other;
    }
    Node& node = *picked;
    if (node.attributes.empty()) return "nothing";
    Attribute const& attribute = node.attributes[below(node.attributes.size())];
    std::string const name = node.type->name + "." + attribute.name;
    std::string what;
    if (below(4) == 0) {
      what = read(node, attribute);
    } else if (attribute.isScalar() || attribute.kind == "reference") {
      what = set(node, attribute);
    } else if (attribute.kind == "value collection") {
      what = setMember(node, attribute);
    } else if (attribute.kind == "child collection") {
      // A chip takes many others along.
      what = below(node.parent ? 5 : 25) ? add(node, attribute) : remove(node, attribute);
    } else if (attribute.kind == "child") {
      what = below(3) ? replace(node, attribute) : remove(node, attribute);
    } else {
      what = read(node, attribute);
    }
    done_.insert(attribute.kind + " " + what.substr(0, what.find(' ')));
    return name + ": " + what;
  }

  std::string set(Node& node, Attribute const& attribute) {
    std::string const value = sample(attribute.type);
    operations(*node.entity, attribute.id).set(*node.entity, String8(), string8(value));
    std::string& stored = node.values[attribute.id];
    if (stored == value) return "same " + value;
    stored = value;
    node.change(attribute.name);
    if (attribute.name == "pllClock") {
      node.reads += value == "''" ? 1 : value == "'clockA'" ? 2 : 3;
    }
    return "set " + value;
  }

  std::string setMember(Node& node, Attribute const& attribute) {
    std::string const at = key(attribute.keyType);
    AttributeText const& by = operations(*node.entity, attribute.id);
    auto& members = node.members[attribute.id];
    auto const found = members.find(at);
    if (below(3) == 0) {
      by.del(*node.entity, string8(at));
      if (found == members.end()) return "miss " + at;
      members.erase(found);
      node.change(attribute.name + "[" + at + "]");
      return "del " + at;
    }
    std::string const value = sample(attribute.type);
    by.set(*node.entity, string8(at), string8(value));
    if (found != members.end() && found->second == value) return "same " + at;
    members[at] = value;
    node.change(attribute.name + "[" + at + "]");
    return "set " + at;
  }

  std::vector<std::string> randomArguments(Attribute const& attribute) {
    std::vector<std::string> all;
    for (auto const& argument : attribute.arguments) all.push_back(sample(argument.type));
    if (attribute.isCollection()) all[0] = key(attribute.keyType);
    return all;
  }
  static std::vector<String8> texts(std::vector<std::string> const& from) {
    std::vector<String8> all;
    for (auto const& one : from) all.push_back(string8(one));
    return all;
  }

  std::string add(Node& node, Attribute const& attribute) {
    auto arguments = randomArguments(attribute);
    auto& children = node.children[attribute.id];
    auto const found = children.find(shown(attribute, arguments[0]));
    bool const isPresent = found != children.end();
    // Otherwise hardly ever the same.
    if (isPresent && below(2)) arguments = found->second->arguments;
    AttributeText const& by = operations(*node.entity, attribute.id);
    Ptr<Entity> member;
    bool isRefused = false;
    try {
      member = by.add(*node.entity, texts(arguments));
    } catch (Mox::NameInUseException const&) {
      isRefused = true;
    }
    if (isPresent) {
      Node& present = *found->second;
      for (std::size_t i = 1; i < arguments.size(); ++i) {
        ++present.reads;
        if (arguments[i] == present.arguments[i]) continue;
        EXPECT_TRUE(isRefused);
        return "refuse " + arguments[0] + " by " + attribute.arguments[i].name;
      }
      EXPECT_FALSE(isRefused);
      EXPECT_EQ(member.get(), present.entity);
      ++node.version;
      return "again " + arguments[0];
    }
    EXPECT_FALSE(isRefused);
    node.change(attribute.name + "[" + shown(attribute, arguments[0]) + "]");
    auto child = made(node, attribute, arguments);
    bind(*child, **member);
    children[shown(attribute, arguments[0])] = std::move(child);
    relinked(children);
    return "add " + arguments[0];
  }

  std::string replace(Node& node, Attribute const& attribute) {
    auto const arguments = randomArguments(attribute);
    AttributeText const& by = operations(*node.entity, attribute.id);
    auto& children = node.children[attribute.id];
    auto const found = children.find("");
    Ptr<Entity> old;
    if (found != children.end()) {
      if (below(2)) {
        old = by.child(*node.entity);
        ++node.reads;
      }
      for (auto const& argument : attribute.arguments) {
        if (argument.name != "name") ++found->second->reads;
      }
    }
    Ptr<Entity> const member = by.add(*node.entity, texts(arguments));
    if (found != children.end()) {
      ++node.version;
      if (found->second->arguments == arguments) {
        EXPECT_EQ(member.get(), found->second->entity);
        return "again " + arguments[0];
      }
      leave(std::move(found->second), old);
      children.erase(found);
    }
    node.change(attribute.name);
    auto child = made(node, attribute, arguments);
    bind(*child, **member);
    children[""] = std::move(child);
    return "replace " + arguments[0];
  }

  std::string remove(Node& node, Attribute const& attribute) {
    AttributeText const& by = operations(*node.entity, attribute.id);
    auto& children = node.children[attribute.id];
    std::string at;
    if (attribute.isCollection()) {
      at = shown(attribute, key(attribute.keyType));
      if (!children.empty() && below(2)) {
        at = std::next(children.begin(), below(children.size()))->first;
      }
    }
    auto const found = children.find(at);
    Ptr<Entity> held;
    if (found != children.end() && below(2)) {
      Mox::MemberText member;
      if (attribute.isCollection()) {
        EXPECT_TRUE(by.member(*node.entity, string8(at), member));
        held = member.child;
      } else {
        held = by.child(*node.entity);
      }
      ++node.reads;
    }
    by.del(*node.entity, string8(at));
    if (found == children.end()) return "miss " + at;
    node.change(attribute.name + (attribute.isCollection() ? "[" + at + "]" : ""));
    leave(std::move(found->second), held);
    children.erase(found);
    relinked(children);
    return "del " + at;
  }

  /// Drops an entity without a parent, and sometimes keeps something of what it owned.
  std::string letGo() {
    std::size_t const at = 1 + below(free_.size() - 1);
    std::unique_ptr<Node> const root = std::move(free_[at]);
    free_.erase(free_.begin() + static_cast<std::ptrdiff_t>(at));
    std::vector<std::pair<std::unique_ptr<Node>, Ptr<Entity>>> kept;
    for (auto& [id, members] : root->children) {
      for (auto& [key, child] : members) {
        if (below(4) == 0) {
          Ptr<Entity> const entity(child->entity);
          kept.emplace_back(std::move(child), entity);
        }
      }
      std::erase_if(members, [](auto const& member) { return !member.second; });
    }
    EXPECT_EQ(root->held->references() & Mox::VFPtrInterface::countMask, 1u);
    root->held = nullptr;
    for (auto& [node, entity] : kept) leave(std::move(node), entity);
    // What was not kept has died without a word to its own subscribers.
    forEach(*root, [](Node& node) { EXPECT_EQ(node.watch->take(), ""); });
    return "let go of " + root->type->name;
  }

  std::string read(Node& node, Attribute const& attribute) {
    AttributeText const& by = operations(*node.entity, attribute.id);
    Mox::MemberText member;
    ++node.reads;
    if (attribute.kind == "value collection") {
      std::string const at = key(attribute.keyType);
      auto const& members = node.members[attribute.id];
      auto const found = members.find(at);
      EXPECT_EQ(by.member(*node.entity, string8(at), member), found != members.end());
      if (found != members.end()) {
        EXPECT_EQ(text(member.value), found->second);
      }
      return "read " + at;
    }
    auto const& children = node.children[attribute.id];
    if (attribute.kind == "child collection") {
      std::string const at = shown(attribute, key(attribute.keyType));
      auto const found = children.find(at);
      EXPECT_EQ(by.member(*node.entity, string8(at), member), found != children.end());
      EXPECT_EQ(member.child.get(), found == children.end() ? nullptr : found->second->entity);
      return "read " + at;
    }
    if (attribute.kind == "child") {
      EXPECT_EQ(by.child(*node.entity).get(),
                children.empty() ? nullptr : children.begin()->second->entity);
      return "read";
    }
    EXPECT_EQ(text(by.value(*node.entity)), node.values[attribute.id]);
    return "read";
  }

  void check(Node& node) {
    Entity const& entity = *node.entity;
    EXPECT_EQ(entity.version(), node.version) << node.type->name;
    if (node.countsReads()) {
      EXPECT_EQ(entity.readCount(), node.reads) << node.type->name;
    }
    EXPECT_EQ(entity.parent().get(), node.parent ? node.parent->entity : nullptr);
    if (node.parent) {
      EXPECT_EQ(entity.parentAttrId(), node.parentAttribute);
    }
    EXPECT_EQ(node.watch->take(), std::exchange(node.heard, "")) << node.type->name;
    EXPECT_EQ(entity.references() & Mox::VFPtrInterface::countMask, 1u) << node.type->name;
  }

  /// Everything that getters and iterators give.
  void checkValues(Node& node) {
    for (Attribute const& attribute : node.attributes) {
      SCOPED_TRACE(node.type->name + "." + attribute.name);
      AttributeText const& by = operations(*node.entity, attribute.id);
      if (!attribute.isCollection()) {
        read(node, attribute);
        continue;
      }
      std::map<std::string, std::string> seen;
      std::map<std::string, Entity*> seenChildren;
      by.members(*node.entity, [&](Mox::MemberText const& member) {
        seen[text(member.key)] = text(member.value);
        seenChildren[text(member.key)] = member.child.get();
      });
      if (attribute.kind == "value collection") {
        EXPECT_EQ(seen, node.members[attribute.id]);
        continue;
      }
      std::map<std::string, Entity*> expected;
      for (auto const& [key, child] : node.children[attribute.id]) expected[key] = child->entity;
      EXPECT_EQ(seenChildren, expected);
    }
  }

  schemaTable::Board board_;
  std::mt19937 random_;
  std::vector<std::unique_ptr<Node>> free_;  ///< the slice first, then what clients hold
  std::size_t most_ = 0;
  std::set<std::string> done_;
};

TEST(Model, ARandomTreeIsAlwaysWhatItsReferenceSays) {
  std::set<std::string> done;
  std::size_t most = 0;
  // MODEL_SEED repeats or widens the search; a failure names its seed.
  char const* const given = std::getenv("MODEL_SEED");
  unsigned int const base = given ? static_cast<unsigned int>(std::strtoul(given, nullptr, 10)) : 1;
  std::printf("MODEL_SEED=%u\n", base);
  for (unsigned int seed = base; seed < base + 4 && !HasFailure(); ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    Walk walk(seed);
    walk.run(2500);
    done.insert(walk.done().begin(), walk.done().end());
    most = std::max(most, walk.most());
  }
  // The walk went where it was meant to go.
  EXPECT_GT(most, 60u);
  for (char const* expected :
       {"value set", "value same", "reference set", "value collection set", "value collection same",
        "value collection del", "value collection miss", "child collection add",
        "child collection again", "child collection refuse", "child collection del",
        "child collection miss", "child replace", "child again", "child del", "child miss"}) {
    EXPECT_TRUE(done.contains(expected)) << expected;
  }
}

}  // namespace
