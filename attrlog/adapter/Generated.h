// The support header of generated adapters: makes the row of an attribute from its descriptor.
// Only generated code includes it.
#pragma once

#include "attrlog/adapter/Adapter.h"
#include "attrlog/adapter/Deserialize.h"
#include "attrlog/adapter/Serialize.h"
#include "attrlog/adapter/SerializeCollection.h"

namespace MOX_API Mox {
namespace NboAttrLog {

template <class D>
void notifyScalar(Sa& adapter, void const*) {
  D::on(static_cast<typename D::Sa&>(adapter));
}
template <class D>
void notifyKey(Sa& adapter, void const* key) {
  D::on(static_cast<typename D::Sa&>(adapter), *static_cast<typename D::Key const*>(key));
}

template <class D>
constexpr AttrRow rowBegin() {
  AttrRow row{};
  row.id = D::data.id;
  row.form = D::data.form;
  row.dirtyMask = D::data.dirtyMask;
  row.fixedLength = D::data.fixedLength;
  row.keyLength = D::data.keyLength;
  row.word = D::FlowOut::moxDirtyWordPlace();
  row.owes = [](Sa&, FlowOut& flowOut, In&) {
    return D::row().bit(flowOut) || (flowOut.attrId() == D::id && flowOut.valueIter() != nullptr);
  };
  return row;
}

/// True when a message about the child can still come of what is owed: one that is absent, or that
/// the peer doesn't know.
template <class Child>
bool owesChild(Sa& adapter, Ptr<Child> const& child) {
  return !child || !child->moxNboAttrLogSa(Ptr<Out const>(adapter.nboAttrLogOut()));
}

template <class D>
constexpr AttrRow scalarRow() {
  static_assert(D::data.fixedLength == WireValue<typename D::Value>::fixedLength);
  AttrRow row = rowBegin<D>();
  row.writeValue = [](Sa& adapter, Ptr<Out> const& out) {
    WireValue<typename D::Value>::write(out, D::get(entityOf<D>(adapter)));
  };
  row.notify = &notifyScalar<D>;
  row.read = &readScalar<D>;
  row.shape = &scanValue<typename D::Value>;
  return row;
}
template <class D>
constexpr AttrRow plainRow() {
  return scalarRow<D>();
}
template <class D>
constexpr AttrRow referenceRow() {
  AttrRow row = scalarRow<D>();
  row.writeValue = nullptr;
  row.target = [](Sa& adapter) { return Ptr<Entity const>(D::get(entityOf<D>(adapter))); };
  return row;
}

template <class D>
constexpr AttrRow piecesRow() {
  AttrRow row = rowBegin<D>();
  row.text = [](Sa& adapter) { return D::get(entityOf<D>(adapter)); };
  row.notify = &notifyScalar<D>;
  row.read = &readPiecesOf<D>;
  row.shape = &scanPiece;
  row.freeSlots = [](FlowOut& flowOut) { moxFlowOutValueDeq<String8::IteratorConst>(flowOut); };
  return row;
}

template <class D>
constexpr AttrRow singletonRow() {
  AttrRow row = rowBegin<D>();
  row.child = [](Sa& adapter) { return Ptr<Entity>(D::get(entityOf<D>(adapter))); };
  row.childAdapter = [](Sa& adapter, Ptr<Entity> const& child) {
    return childAdapterIs(adapter, D::id, adapter.childFlags(), child, 1, adapter.channel(),
                          &D::writeArgs, transfersChildren(adapter));
  };
  row.notify = &notifyScalar<D>;
  row.read = &readSingleton<D>;
  row.readDel = &readSingletonDel<D>;
  row.shape = &scanChild<D>;
  row.owes = [](Sa& adapter, FlowOut& flowOut, In&) {
    return D::row().bit(flowOut) && owesChild(adapter, D::get(entityOf<D>(adapter)));
  };
  row.partChild = [](Sa& adapter, In&) {
    childAdapterDel(adapter, Ptr<Entity>(D::get(entityOf<D>(adapter))));
  };
  row.remount = [](Sa& adapter, Entity& entity) {
    childAdapterDel(adapter, Ptr<Entity>(D::get(static_cast<typename D::Entity&>(entity))));
  };
  return row;
}

template <class D>
constexpr AttrRow collectionRow() {
  using Key = typename D::Key;
  if constexpr (requires { WireValue<Key>::size; }) {
    static_assert(D::data.keyLength == WireValue<Key>::size);
  } else {
    static_assert(D::data.keyLength == AttributeRow::variableKey);
  }
  AttrRow row = rowBegin<D>();
  row.writeKey = [](void const* key, Ptr<Out> const& out) {
    WireValue<Key>::write(out, *static_cast<Key const*>(key));
  };
  row.notifyOf = [](Sa& adapter, In& payload) {
    D::on(static_cast<typename D::Sa&>(adapter), peekKey<Key>(payload));
  };
  row.owes = [](Sa&, FlowOut& flowOut, In& payload) {
    auto& typed = static_cast<typename D::FlowOut&>(flowOut);
    Key const key = peekKey<Key>(payload);
    if (D::dirtyKeys(typed)[key] != nullptr) return true;
    if constexpr (std::same_as<Key, String8>) {
      return flowOut.attrId() == D::id && moxFlowOutValueKeyMatches<String8>(flowOut, key);
    }
    return false;
  };
  row.notify = &notifyKey<D>;
  row.readDel = &readKeyDel<D>;
  row.dirtyKeyCount = [](FlowOut& flowOut) {
    return std::size_t{D::dirtyKeys(static_cast<typename D::FlowOut&>(flowOut)).size()};
  };
  row.sweep = &sweepMembers<D>;
  row.marksTake = &takeMarks<D>;
  row.freeSlots = [](FlowOut& flowOut) { moxFlowOutBookmarkDeq<typename D::Key>(flowOut); };
  return row;
}

template <class D>
constexpr AttrRow childCollectionRow() {
  AttrRow row = collectionRow<D>();
  row.read = &readChildKey<D>;
  row.shape = &scanChild<D>;
  row.owes = [](Sa& adapter, FlowOut& flowOut, In& payload) {
    auto const key = peekKey<typename D::Key>(payload);
    return D::dirtyKeys(static_cast<typename D::FlowOut&>(flowOut))[key] != nullptr &&
           owesChild(adapter, D::lookup(entityOf<D>(adapter), key));
  };
  row.partChild = [](Sa& adapter, In& payload) {
    auto const key = peekKey<typename D::Key>(payload);
    childAdapterDel(adapter, Ptr<Entity>(D::lookup(entityOf<D>(adapter), key)));
  };
  row.walk = &serializeChildren<D>;
  row.remount = [](Sa& adapter, Entity& entity) {
    auto& typed = static_cast<typename D::Entity&>(entity);
    for (auto member = D::begin(typed); member; ++member) {
      typename D::Key const key = member.key();
      childAdapterDel(adapter, Ptr<Entity>(D::lookup(typed, key)));
    }
  };
  return row;
}

template <class D>
constexpr AttrRow valueCollectionRow() {
  AttrRow row = collectionRow<D>();
  row.read = &readValueKey<D>;
  row.shape = &scanValues<typename D::Key, typename D::Value>;
  row.walk = &serializeValues<D>;
  return row;
}

template <class D>
constexpr AttrRow stringCollectionRow() {
  AttrRow row = collectionRow<D>();
  row.read = &readStringKey<D>;
  row.shape = [](MessageScan& message) {
    scanValue<typename D::Key>(message);
    scanPiece(message);
  };
  row.walk = &serializeStrings<D>;
  row.freeSlots = [](FlowOut& flowOut) {
    moxFlowOutBookmarkDeq<String8>(flowOut);
    moxFlowOutValueDeq<String8::IteratorConst>(flowOut);
    moxFlowOutValueKeyDeq<String8>(flowOut);
  };
  return row;
}

/// One dirty key of a collection.
template <class Self, class K>
using DirtyKey = KeyMember<Self, K, bool>;

/// `moxIsXDirtyIs(key, bool)`: a hit stores the mark, a miss adds an entry whatever the mark.
template <class Member, class Map, class Key>
void dirtyKeyIs(Map& map, Key const& key, bool dirty) {
  if (Member* present = map[key]) {
    present->valueIs(dirty);
  } else {
    map.newMember(Ptr<Member>(new Member(key, dirty)));
  }
}
/// `moxIsXDirtyDel(key)`: takes the entry out and gives back its mark; false without one.
template <class Map, class Key>
bool dirtyKeyDel(Map& map, Key const& key) {
  Ptr<typename Map::MemberType> const present(map[key]);
  if (!present) return false;
  bool const dirty = present->value();
  map.deleteMember(present);
  return dirty;
}

/// The walk of a base type, and the end of the chain.
template <class Base>
AttributeId flowOutOfBase(Sa& adapter, AttributeId start) {
  return static_cast<Base&>(adapter).Base::handleAttrFlowOut(start);
}

}  // namespace NboAttrLog
}  // namespace Mox
