// A walk over a collection attribute that cleans up by itself, and a watch that ends by itself:
// what clients use in place of bare cursors and listeners.
#pragma once

#include <functional>
#include <utility>

#include "generic/GenericIf.h"

namespace MOX_API Mox {

/// At a member or at the end. Survives whatever happens to the collection meanwhile: a
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

/// Calls a function for every change of what a generic object stands for, until the watch is
/// destroyed, which its own functions may do. Holds the generic object, and with it the entity
/// unless the object is weak.
class AttributeWatch {
 public:
  /// `key` is null unless one key of a collection changed; a collection without a key has changed
  /// in several places.
  using Changed =
      std::function<void(GenericIf& of, AttributeId attribute, Ptr<GenericIf const> const& key)>;
  /// Another function of the watch has thrown; called inside the catch block.
  using Failed = std::function<void(GenericIf& of, AttributeId attribute)>;
  /// The last reference to the entity of a weak generic object went.
  using Ended = std::function<void(GenericIf& of)>;

  AttributeWatch(Ptr<GenericIf> const& of, Changed changed, Failed failed = {}, Ended ended = {})
      : of_(of), functions_(new Functions) {
    functions_->changed = std::move(changed);
    functions_->failed = std::move(failed);
    functions_->ended = std::move(ended);
    of_->listenerIs(functions_);
  }
  ~AttributeWatch() { of_->listenerDel(functions_); }
  AttributeWatch(AttributeWatch const&) = delete;
  AttributeWatch& operator=(AttributeWatch const&) = delete;

 private:
  /// Held while one of them runs, by the generic object.
  struct Functions : GenericIf::Listener {
    void handleAttribute(GenericIf& of, AttributeId attribute,
                         Ptr<GenericIf const> const& key) override {
      changed(of, attribute, key);
    }
    void handleException(GenericIf& of, AttributeId attribute) override {
      if (failed) failed(of, attribute);
    }
    void handleEnd(GenericIf& of) override {
      if (ended) ended(of);
    }

    Changed changed;
    Failed failed;
    Ended ended;
  };

  Ptr<GenericIf> of_;
  Ptr<Functions> functions_;
};

}  // namespace Mox
