// Every notification is compared with what is kept, and that is stored before the listener is
// called: a change that a listener makes meets the new state, and a scan that goes on behind it
// finds nothing left to report.
#include "generic/TreeWatch.h"

#include <deque>
#include <set>
#include <vector>

#include "generic/Text.h"

namespace Mox {
namespace {

using Op = GenericIf::AttributeOp;

}  // namespace

/// What all nodes of one watch share.
class TreeWatch::Tree : public PtrInterface {
 public:
  Tree(Listener& listener, Holding holding) : listener_(&listener), holding_(holding) {}

  Holding holding() const { return holding_; }
  void end() {
    listener_ = nullptr;
    leaving_.clear();
  }
  void leave(Ptr<Node> const& node) { leaving_.push_back(node); }
  /// Reports the nodes that have left. Called before anything else is compared, so that a change
  /// that a listener makes meanwhile isn't reported between them: paths are unique at all times.
  void leavingReport() {
    while (!leaving_.empty()) {
      Ptr<Node> const node(std::move(leaving_.front()));
      leaving_.pop_front();
      report(**node, [&](Listener& listener) { listener.handleEntityDel(**node); });
    }
  }
  /// Calls the listener unless the watch is destroyed.
  template <class Call>
  void report(Node const& node, Call const& call) {
    if (!listener_) return;
    try {
      call(*listener_);
    } catch (...) {
      if (listener_) listener_->handleException(node);
    }
  }

 private:
  Listener* listener_;
  Holding holding_;
  std::deque<Ptr<Node>> leaving_;
};

TreeWatch::TreeWatch(Ptr<Entity> const& root, Listener& listener, Holding holding)
    : tree_(new Tree(listener, holding)), root_(new Node(tree_, nullptr, root)) {
  root_->appear(false);
}

TreeWatch::~TreeWatch() {
  tree_->end();
  root_->drop(false);
}

TreeWatch::Node::Node(Ptr<Tree> const& tree, Node* parent, Ptr<Entity> const& entity)
    : tree_(tree), parent_(parent), generic_(genericOf(entity)), path_(entity->fullName()) {
  if (tree_->holding() == Holding::weak) generic_->isWeakReferenceIs(true);
}

Ptr<Entity> TreeWatch::Node::entity() const { return entityOf(generic_); }

void TreeWatch::Node::handleAttribute(GenericIf&, AttributeId id, Ptr<GenericIf const> const& key) {
  tree_->leavingReport();
  MoxAttr const* const attribute = isGone_ ? nullptr : generic_->type()->attr(id);
  if (attribute) check(*attribute, key, true);
}

void TreeWatch::Node::handleException(GenericIf&, AttributeId) {
  tree_->report(*this, [](TreeWatch::Listener&) { throw; });
}

void TreeWatch::Node::handleEnd(GenericIf&) { drop(true); }

void TreeWatch::Node::appear(bool isReported) {
  generic_->listenerIs(this);
  std::vector<MoxAttr const*> const content = contentOf(**generic_->type());
  for (MoxAttr const* attribute : content) {
    AttributeForm const form = attributeForm(*attribute);
    if (form == AttributeForm::value || form == AttributeForm::reference) {
      check(*attribute, nullptr, false);
    }
  }
  if (isReported) {
    tree_->report(*this, [&](TreeWatch::Listener& listener) { listener.handleEntity(*this); });
  }
  for (MoxAttr const* attribute : content) {
    AttributeForm const form = attributeForm(*attribute);
    if (form != AttributeForm::value && form != AttributeForm::reference) {
      check(*attribute, nullptr, isReported);
    }
  }
}

/// Of a collection one key, or all of it if `key` is null.
void TreeWatch::Node::check(MoxAttr const& attribute, Ptr<GenericIf const> const& key,
                            bool isReported) {
  if (isGone_) return;
  auto const get = [&] { return generic_->attributeOp({attribute.id(), Op::attrGet}, key, {}); };
  switch (attributeForm(attribute)) {
    case AttributeForm::children:
      if (!key) return checkWhole(attribute, isReported);
      [[fallthrough]];
    case AttributeForm::child:
      return childIs(attribute, key, entityOf(get()), isReported);
    case AttributeForm::values:
      if (!key) return checkWhole(attribute, isReported);
      if (!valueOf<bool>(generic_->attributeOp({attribute.id(), Op::attrExists}, key, {}))) {
        return valueIs(attribute, key, nullptr, isReported);
      }
      [[fallthrough]];
    case AttributeForm::value:
    case AttributeForm::reference: {
      String8 const now = get()->strRep();
      return valueIs(attribute, key, &now, isReported);
    }
    default:;  // never changes
  }
}

void TreeWatch::Node::checkWhole(MoxAttr const& attribute, bool isReported) {
  std::set<String8> gone;
  for (auto const& [slot, value] : values_) {
    if (slot.first == attribute.id()) gone.insert(slot.second);
  }
  for (auto const& [slot, child] : children_) {
    if (slot.first == attribute.id()) gone.insert(slot.second);
  }
  for (AttributeWalk at(generic_, attribute.id()); at && !isGone_; ++at) {
    Ptr<GenericIf const> const key(at.key());
    gone.erase(keyText(key));
    check(attribute, key, isReported);
  }
  for (String8 const& key : gone) check(attribute, keyFromText(attribute, key), isReported);
}

void TreeWatch::Node::valueIs(MoxAttr const& attribute, Ptr<GenericIf const> const& key,
                              String8 const* now, bool isReported) {
  Slot const slot(attribute.id(), key ? keyText(key) : String8());
  auto const at = values_.find(slot);
  bool const wasThere = at != values_.end();
  if (wasThere ? now && at->second == *now : !now) return;
  String8 const before = wasThere ? at->second : String8();
  if (now) {
    values_[slot] = *now;
  } else {
    values_.erase(at);
  }
  if (!isReported) return;
  TreeChange const change{attribute, key, slot.second, wasThere ? &before : nullptr, now};
  tree_->report(*this,
                [&](TreeWatch::Listener& listener) { listener.handleChange(*this, change); });
}

void TreeWatch::Node::childIs(MoxAttr const& attribute, Ptr<GenericIf const> const& key,
                              Ptr<Entity> const& child, bool isReported) {
  Slot const slot(attribute.id(), key ? keyText(key) : String8());
  auto const at = children_.find(slot);
  if (at != children_.end()) {
    if (child && at->second->entity() == child) return;
    Ptr<Node> const old(at->second);
    children_.erase(at);
    old->drop(isReported);
    // A listener may have changed this place again: `child` may be out of date.
    return check(attribute, key, isReported);
  }
  if (!child) return;
  Ptr<Node> const node(new Node(tree_, this, child));
  children_[slot] = node;
  node->appear(isReported);
}

void TreeWatch::Node::drop(bool isReported) {
  if (isGone_) return;
  std::vector<Ptr<Node>> leaving{this};
  for (std::size_t i = 0; i < leaving.size(); ++i) {
    Node& node = **leaving[i];
    node.isGone_ = true;
    node.generic_->listenerDel(&node);
    for (auto const& [slot, child] : node.children_) leaving.push_back(child);
    node.children_.clear();
  }
  if (!isReported) return;
  for (Ptr<Node> const& node : leaving) tree_->leave(node);
  tree_->leavingReport();
}

}  // namespace Mox
