// The single slots of a FlowOut and a FlowIn, typed: where a stopped walk, a value in pieces and
// its key wait. Writers and readers of the attribute log call these; each slot holds one item.
#pragma once

#include <memory>

#include "Mox/Assertion.h"
#include "Mox/AttributeId.h"
#include "Mox/String8.h"

namespace MOX_API Mox {

inline constexpr char nboAttrLogFlowSource[] = "Mox/NboAttrLogFlow";

/// Takes the item out of a slot through `setter`; `fallback` when the slot is empty.
template <class T, class Flow, class Base>
T moxFlowSlotDeq(Flow& flow, void* slot, void (Base::*setter)(void*), T fallback) {
  if (slot == nullptr) return fallback;
  std::unique_ptr<T> item(static_cast<T*>(slot));
  (flow.*setter)(nullptr);
  return std::move(*item);
}

/// The key of the next member of a stopped walk.
template <class K, class FlowOut>
void moxFlowOutBookmarkEnq(FlowOut& rsc, K const& key) {
  if (rsc.bookmark()) assertionFailed("!rsc->bookmark()", nboAttrLogFlowSource, 23, __func__);
  rsc.bookmarkIs(new K(key));
}
/// The key type's default without a bookmark.
template <class K, class FlowOut>
K moxFlowOutBookmarkDeq(FlowOut& rsc) {
  return moxFlowSlotDeq<K>(rsc, rsc.bookmark(), &FlowOut::bookmarkIs, K());
}

/// The position in a string that is being sent in pieces.
template <class Iterator, class FlowOut>
void moxFlowOutValueEnq(FlowOut& rsc, Iterator const& iterator) {
  if (rsc.valueIter()) assertionFailed("!rsc->valueIter()", nboAttrLogFlowSource, 51, __func__);
  rsc.valueIterIs(new Iterator(iterator));
}
/// The beginning of an empty string without one.
template <class Iterator, class FlowOut>
Iterator moxFlowOutValueDeq(FlowOut& rsc) {
  return moxFlowSlotDeq<Iterator>(rsc, rsc.valueIter(), &FlowOut::valueIterIs, Iterator());
}

/// The key of the value that the position belongs to.
template <class K, class FlowOut>
void moxFlowOutValueKeyEnq(FlowOut& rsc, K const& key) {
  if (rsc.valueIterKey()) {
    assertionFailed("!rsc->valueIterKey()", nboAttrLogFlowSource, 84, __func__);
  }
  rsc.valueIterKeyIs(new K(key));
}
template <class K, class FlowOut>
K moxFlowOutValueKeyDeq(FlowOut& rsc) {
  return moxFlowSlotDeq<K>(rsc, rsc.valueIterKey(), &FlowOut::valueIterKeyIs, K());
}
template <class K, class FlowOut>
bool moxFlowOutValueKeyMatches(FlowOut const& rsc, K const& key) {
  return rsc.valueIterKey() && *static_cast<K const*>(rsc.valueIterKey()) == key;
}

/// The string received so far. Without one: null when `onlyIfPresent`, else a new, empty one.
template <class Iterator, class FlowIn>
Iterator* moxFlowInIterator(FlowIn* rrc, AttributeId attribute, bool onlyIfPresent) {
  if (rrc->iter()) return static_cast<Iterator*>(rrc->iter());
  if (onlyIfPresent) return nullptr;
  auto made = std::make_unique<Iterator>();
  if (rrc->iter()) assertionFailed("!rrc->iter()", nboAttrLogFlowSource, 115, __func__);
  rrc->aidIs(attribute);
  rrc->iterIs(made.get());
  return made.release();
}
template <class Iterator, class FlowIn>
void moxFlowInIteratorIs(FlowIn* rrc, AttributeId attribute, Iterator const& iterator) {
  auto made = std::make_unique<Iterator>(iterator);
  if (rrc->iter()) assertionFailed("!rrc->iter()", nboAttrLogFlowSource, 128, __func__);
  rrc->aidIs(attribute);
  rrc->iterIs(made.release());
}
template <class Iterator, class FlowIn>
void moxFlowInIteratorDel(FlowIn* rrc, AttributeId) {
  delete static_cast<Iterator*>(rrc->iter());
  rrc->iterIs(nullptr);
  rrc->aidIs(0);
}

/// The key of the value that is being received in pieces.
template <class K, class FlowIn>
void moxFlowInIdxEnq(FlowIn* rsc, K const& key) {
  if (rsc->idx()) assertionFailed("!rsc->idx()", nboAttrLogFlowSource, 195, __func__);
  rsc->idxIs(new K(key));
}
template <class K, class FlowIn>
bool moxFlowInIdxMatches(FlowIn const* rsc, K const& key) {
  return rsc->idx() && *static_cast<K const*>(rsc->idx()) == key;
}
template <class K, class FlowIn>
K moxFlowInIdxDeq(FlowIn* rsc) {
  return moxFlowSlotDeq<K>(*rsc, rsc->idx(), &FlowIn::idxIs, K());
}

}  // namespace Mox
