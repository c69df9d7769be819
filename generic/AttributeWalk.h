// A walk over a collection attribute that cleans up by itself, and a watch that ends by itself:
// what clients use in place of bare cursors and listeners.
#pragma once

#include <functional>
#include <utility>

#include "generic/GenericIf.h"

namespace MOX_API Mox {

/// Stands on a member or at the end. Survives whatever happens to the collection meanwhile: a
/// member that is taken out keeps its place until the next step.
class AttributeWalk {
 public:
  AttributeWalk() = default;
  /// At the first member.
  AttributeWalk(Ptr<GenericIf> const& of, AttributeId collection)
      : at_(of->attributeIterator(collection)) {}
  /// At the member with this key, or at the end.
  AttributeWalk(Ptr<GenericIf> const& of, AttributeId collection, Ptr<GenericIf const> const& key)
      : at_(of->attributeIteratorKey(collection, key)) {}
  AttributeWalk(AttributeWalk const& other) : at_(other.at_) {
    if (at_.genericIf) at_.state = at_.genericIf->attributeIterator_iterClone(other.at_);
  }
  AttributeWalk(AttributeWalk&& other) noexcept
      : at_{other.at_.genericIf, other.at_.attribute, std::exchange(other.at_.state, nullptr)} {}
  AttributeWalk& operator=(AttributeWalk other) noexcept {
    std::swap(at_.genericIf, other.at_.genericIf);
    std::swap(at_.attribute, other.at_.attribute);
    std::swap(at_.state, other.at_.state);
    return *this;
  }
  ~AttributeWalk() {
    if (at_.genericIf) at_.genericIf->attributeIterator_iterDel(at_);
  }

  explicit operator bool() const {
    return at_.genericIf && at_.genericIf->attributeIterator_nonNull(at_);
  }
  /// Read only. Null at the end.
  Ptr<GenericIf> key() const {
    return at_.genericIf ? at_.genericIf->attributeIterator_iterKey(at_) : Ptr<GenericIf>();
  }
  /// The carrier of a value, or the generic object of an entity. Null at the end.
  Ptr<GenericIf> value() const {
    return at_.genericIf ? at_.genericIf->attributeIterator_iterObj(at_) : Ptr<GenericIf>();
  }
  void advance() {
    if (at_.genericIf) at_.genericIf->attributeIterator_iterInc(at_);
  }
  AttributeWalk& operator++() {
    advance();
    return *this;
  }

 private:
  GenericIf::AttributeIteratorConst at_;
};

/// Calls a function for every change of what a generic object stands for, as long as it lives. One
/// for each generic object; `clone()` makes more.
class AttributeWatch : private GenericIf::Listener {
 public:
  /// `key` is null unless one key of a collection changed; a collection without a key has changed
  /// in several places.
  using Told =
      std::function<void(GenericIf& of, AttributeId attribute, Ptr<GenericIf const> const& key)>;
  AttributeWatch(Ptr<GenericIf> const& of, Told told) : of_(of), told_(std::move(told)) {
    of_->listenerIs(this);
  }
  ~AttributeWatch() override { of_->listenerIs(nullptr); }
  AttributeWatch(AttributeWatch const&) = delete;
  AttributeWatch& operator=(AttributeWatch const&) = delete;

 private:
  void handleAttribute(GenericIf& of, AttributeId attribute,
                       Ptr<GenericIf const> const& key) override {
    told_(of, attribute, key);
  }

  Ptr<GenericIf> of_;
  Told told_;
};

}  // namespace Mox
