// Watches an entity and all that it owns, whatever the types: one listener receives every change
// of the tree with its old and its new text. To watch one entity alone: AttributeWatch
// (generic/AttributeWalk.h). One thread, that of the entities.
#pragma once

#include <map>
#include <utility>

#include "Mox/Entity.h"
#include "generic/GenericIf.h"
#include "registry/MoxAttr.h"

namespace MOX_API Mox {

/// Subscribes to every entity of the tree, to those that appear later too, and keeps the text of
/// every value that can change; nothing is polled. What is in the tree at the start isn't reported.
///
/// The listener may change the tree, throw, and destroy the watch: a change that it makes is
/// reported at once, within its call.
class TreeWatch {
 public:
  class Node;
  class Listener;
  class Tree;
  enum class Holding : unsigned char {
    counted,  ///< keeps the entities of the tree alive
    weak,     ///< when the last reference to the root goes, the whole tree is reported as gone
  };

  /// `listener` outlives the watch. Requires: `root` is not null.
  TreeWatch(Ptr<Entity> const& root, Listener& listener, Holding holding = Holding::counted);
  ~TreeWatch();
  TreeWatch(TreeWatch const&) = delete;
  TreeWatch& operator=(TreeWatch const&) = delete;

  Node const& root() const { return **root_; }

 private:
  Ptr<Tree> tree_;
  Ptr<Node> root_;
};

/// A value, or a member of a collection of values.
struct TreeChange {
  MoxAttr const& attribute;
  /// Null for what is no collection; else the key, and its text as paths show it.
  Ptr<GenericIf const> key;
  String8 keyText;
  /// Null: wasn't there, isn't there any more.
  String8 const* before;
  String8 const* now;
};

class TreeWatch::Listener {
 public:
  virtual ~Listener() = default;
  /// An entity has come into the tree. Its scalars are not reported, being readable now; its
  /// members of collections follow as changes, and what it owns as entities.
  virtual void handleEntity(Node const&) {}
  /// An entity has left the tree. What it owns follows; the parent of those nodes is gone.
  virtual void handleEntityDel(Node const&) {}
  virtual void handleChange(Node const&, TreeChange const&) {}
  /// Called inside the catch block when another operation has thrown. Nothing of the tree is lost.
  virtual void handleException(Node const&) {}
};

/// One entity of the tree.
class TreeWatch::Node final : public GenericIf::Listener {
 public:
  Node(Ptr<Tree> const& tree, Node* parent, Ptr<Entity> const& entity);

  Ptr<GenericIf> const& generic() const { return generic_; }
  /// Null once the entity of a weak watch is destroyed.
  Ptr<Entity> entity() const;
  /// The full name that the entity had when it appeared.
  String8 const& path() const { return path_; }
  /// Null for the root.
  Ptr<Node> const& parent() const { return parent_; }
  bool isGone() const { return isGone_; }

 private:
  friend class TreeWatch;
  /// Attribute and text of the key, empty for none.
  using Slot = std::pair<AttributeId, String8>;

  void handleAttribute(GenericIf& of, AttributeId attribute,
                       Ptr<GenericIf const> const& key) override;
  void handleException(GenericIf& of, AttributeId attribute) override;
  void handleEnd(GenericIf& of) override;

  void appear(bool isReported);
  void check(MoxAttr const& attribute, Ptr<GenericIf const> const& key, bool isReported);
  void checkWhole(MoxAttr const& attribute, bool isReported);
  void valueIs(MoxAttr const& attribute, Ptr<GenericIf const> const& key, String8 const* now,
               bool isReported);
  void childIs(MoxAttr const& attribute, Ptr<GenericIf const> const& key, Ptr<Entity> const& child,
               bool isReported);
  /// Leaves the tree with all below.
  void drop(bool isReported);

  Ptr<Tree> tree_;
  Ptr<Node> parent_;
  Ptr<GenericIf> generic_;
  String8 path_;
  std::map<Slot, String8> values_;
  std::map<Slot, Ptr<Node>> children_;
  bool isGone_ = false;
};

}  // namespace Mox
