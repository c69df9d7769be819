// The writers of collections: one key, and the walk over all of them. A walk stands for any length
// of time: between runs it keeps the next key, never a pointer into the collection, and what
// changes behind its back reaches the peer as dirty keys, behind the end marker.
//
// Each template takes a descriptor `D` of one attribute, made by the schema compiler:
//   Sa, FlowOut, Entity, Key     the adapter, its FlowOut, the entity, the key type
//   id                           the attribute's id
//   row()                        the attribute's row
//   dirtyKeys(FlowOut&)          the map of dirty keys
//   dirtyIs, dirtyDel            moxIsXDirtyIs and moxIsXDirtyDel of the FlowOut
//   begin(entity), at(entity, key)   iterators at the first member, and at a key's position
//   find(entity, key)            the map's member, or null; counts as a read
// and for children: Child, lookup(entity, key), writeArgs; for values: Value.
#pragma once

#include <cstddef>

#include "Mox/Assertion.h"
#include "Mox/Exception.h"
#include "Mox/NboAttrLogFlow.h"
#include "attrlog/adapter/Serialize.h"
#include "attrlog/link/Demuxer.h"
#include "attrlog/wire/WireValue.h"

namespace MOX_API Mox {
namespace NboAttrLog {

template <class D>
typename D::Entity& entityOf(Sa& adapter) {
  return static_cast<typename D::Entity&>(*adapter.rawEntity());
}
template <class D>
typename D::FlowOut* flowOutOf(Sa& adapter) {
  return static_cast<typename D::FlowOut*>(adapter.flowOut());
}

/// Makes a key dirty in a FlowOut that is made if there is none.
template <class D>
typename D::FlowOut* markKey(Sa& adapter, typename D::Key const& key) {
  FlowOut* flowOut = adapter.flowOut();
  if (flowOut == nullptr) flowOut = adapter.createFlowOut(D::id);
  if (flowOut == nullptr) return nullptr;
  auto* typed = static_cast<typename D::FlowOut*>(flowOut);
  D::dirtyIs(*typed, key, true);
  return typed;
}

/// Tells a noted change of a key again when the message in hand is through.
template <class D>
void noteKey(Sa& adapter, typename D::Key const& key) {
  adapter.streamDemuxer()->noteSlot(adapter, [&adapter, key] { D::row().tell(adapter, &key); });
}

/// A header for a key's message, and its begin token and key.
template <class D>
Ptr<Out> const& keyMessageBegin(Sa& adapter, bool deleted, typename D::Key const& key) {
  MsgHeader header;
  header.entityId = adapter.entityId();
  header.attributeId = deleted ? -D::id : D::id;
  Ptr<Out> const& out = adapter.nboAttrLogOut();
  out->nextHeaderIs(header);
  out << Connection::Out::TransactToken::tokenBegin;
  WireValue<typename D::Key>::write(out, key);
  return out;
}

/// Send one key now, or leave its mark: shared by children and by values under numbers.
template <class D>
bool decideKey(Sa& adapter, typename D::Key const& key) {
  bool const sufficient = adapter.nboAttrLogOut()->hasSufficientBuffer();
  if (adapter.hasFlag(noFlowOut)) {
    if (adapter.hasFlag(inScheduledRun) || (sufficient && !adapter.hasFlag(deferAll))) return true;
    markKey<D>(adapter, key);
    return false;
  }
  bool const now = adapter.prepareImmediateTransmission(D::id, false);
  if (!now || !sufficient) {
    markKey<D>(adapter, key);
    return false;
  }
  if (auto* flowOut = flowOutOf<D>(adapter)) D::dirtyDel(*flowOut, key);
  return true;
}

// One key.

template <class D>
void serializeChildKey(Sa& adapter, typename D::Key const& key,
                       Ptr<typename D::Child> const& child) {
  Gate const passed = gate(adapter, D::row(), &key);
  if (passed == Gate::fromLog) {
    ChangeFromLogAnchor const anchor(adapter);
    if (child) bindChild(adapter, child);
    return;
  }
  if (passed == Gate::noted) noteKey<D>(adapter, key);
  if (passed != Gate::open || !decideKey<D>(adapter, key)) return;
  if (!child) {
    keyMessageBegin<D>(adapter, true, key) << Connection::Out::TransactToken::tokenEnd;
    return;
  }
  Ptr<Sa> childAdapter;
  while (!childAdapter) {
    try {
      Expect const expect(Exception::attrLogRecordId);
      childAdapter = childAdapterIs(adapter, D::id, adapter.childFlags(), child, 1,
                                    adapter.channel(), &D::writeArgs);
    } catch (AttrLogRecordException const&) {
      continue;
    } catch (EntityIdUnavailableException const&) {
      if (auto* flowOut = markKey<D>(adapter, key)) blockFlowOut(adapter, *flowOut);
      return;
    } catch (...) {
      // Too long for the peer: still owed.
      markKey<D>(adapter, key);
      throw;
    }
  }
  adapter.doFixChildFlags(childAdapter);
  if (adapter.syncMode() == StreamAdapter::SyncMode::live || adapter.hasFlag(inScheduledRun)) {
    childAdapter->doThis();
  }
}

template <class D>
void serializeValueKey(Sa& adapter, typename D::Key const& key, typename D::Value const& value,
                       bool deleted) {
  Gate const passed = gate(adapter, D::row(), &key);
  if (passed == Gate::noted) noteKey<D>(adapter, key);
  if (passed != Gate::open || !decideKey<D>(adapter, key)) return;
  Ptr<Out> const& out = keyMessageBegin<D>(adapter, deleted, key);
  if (!deleted) WireValue<typename D::Value>::write(out, value);
  out << Connection::Out::TransactToken::tokenEnd;
}

/// A string under a string key. True: the key's message, or its last piece, went out.
template <class D>
bool serializeStringKey(Sa& adapter, String8 const& key, String8 const& value, bool deleted) {
  using Position = String8::IteratorConst;
  Gate const passed = gate(adapter, D::row(), &key);
  if (passed == Gate::noted) noteKey<D>(adapter, key);
  if (passed != Gate::open) return passed == Gate::nothing;
  Ptr<Out> const& out = adapter.nboAttrLogOut();
  bool const scheduled = adapter.hasFlag(inScheduledRun);

  auto* flowOut = adapter.hasFlag(noFlowOut) ? nullptr : flowOutOf<D>(adapter);
  std::size_t const estimate = deleted
                                   ? pessimisticMessageSizeEstimate(key.length())
                                   : pessimisticMessageSizeEstimate(key.length(), value.length());
  bool const shortOfBuffer =
      !out->hasBuffer() || out->freeSpace() < estimate + out->bufferBlockSize();
  if (pessimisticMessageSizeEstimate(key.length()) >= out->bufferBlockSize()) {
    assertionFailed(D::estimateAssertion, D::source, __LINE__, __func__);
  }

  if (flowOut != nullptr && !scheduled) {
    if (flowOut->attrId() == D::id && moxFlowOutValueKeyMatches<String8>(*flowOut, key)) {
      // This very value is on its way in pieces: it begins again behind an abort.
      flowOut->pendingAbortIs(D::id, true);
      moxFlowOutValueDeq<Position>(*flowOut);
      moxFlowOutValueEnq(*flowOut, Position(value));
      return false;
    }
    bool const now = adapter.prepareImmediateTransmission(D::id, false);
    if (!now || shortOfBuffer || estimate > out->maxMessageSize()) {
      D::dirtyIs(*flowOut, key, true);
      return false;
    }
  }
  if (flowOut == nullptr && adapter.hasFlag(deferAll) && !scheduled) {
    markKey<D>(adapter, key);
    return false;
  }

  if (deleted) {
    if (shortOfBuffer && !scheduled) {
      markKey<D>(adapter, key);
      return false;
    }
    keyMessageBegin<D>(adapter, true, key) << Connection::Out::TransactToken::tokenEnd;
    return true;
  }

  Position position = scheduled && flowOut != nullptr && flowOut->valueIter() != nullptr
                          ? moxFlowOutValueDeq<Position>(*flowOut)
                          : Position(value);
  bool started = position.pos() != 0;
  if (started && position.eot()) return true;
  for (;;) {
    if (flowOut != nullptr) {
      if ((scheduled && !adapter.continueFlowOut()) ||
          std::min(estimate, out->maxMessageSize()) > out->freeSpace()) {
        moxFlowOutValueEnq(*flowOut, position);
        moxFlowOutValueKeyEnq(*flowOut, key);
        if (!scheduled) D::dirtyIs(*flowOut, key, true);
        return false;
      }
    } else if (started || (shortOfBuffer && !out->hasSufficientBuffer())) {
      if (auto* made = markKey<D>(adapter, key)) {
        made->outstandingKeysIs(1);
        moxFlowOutValueEnq(*made, position);
        moxFlowOutValueKeyEnq(*made, key);
      }
      return false;
    }
    keyMessageBegin<D>(adapter, false, key);
    {
      ConnectionOutSizeAnchor const anchor{Ptr<Connection::Out>(out)};
      // What keeps the frame within a message, but never nothing.
      std::size_t const spent = pessimisticMessageSizeEstimate(key.length());
      std::size_t const most = out->maxMessageSize();
      out->sizeLimitIs(std::max<std::size_t>(most > spent ? most - spent : 0, 256));
      out << position;
    }
    out << Connection::Out::TransactToken::tokenEnd;
    if (position.eot()) return true;
    started = true;
  }
}

/// `onX(key)`: looks the key up and says what is found.
template <class D>
void serializeValueOf(Sa& adapter, typename D::Key const& key) {
  auto const member = D::find(entityOf<D>(adapter), key);
  serializeValueKey<D>(adapter, key, member ? member->value() : typename D::Value(), !member);
}
template <class D>
bool serializeStringOf(Sa& adapter, String8 const& key) {
  auto const member = D::find(entityOf<D>(adapter), key);
  return serializeStringKey<D>(adapter, key, member ? member->value() : String8(), !member);
}

// The walk. `Step` says one member. `members` is true when all of them are through, false when the
// walk stopped: its result is then this function's.

template <class D, class Step>
bool walkMembers(Sa& adapter, Step const& step, typename D::FlowOut* flowOut, bool& members) {
  using Type = StreamAdapter::AttrTransactionType;
  typename D::Entity& entity = entityOf<D>(adapter);
  members = false;
  if (flowOut != nullptr && flowOut->bookmark() == nullptr) {
    adapter.sendTransactionMarker(D::id, Type::begin, 0);
  }
  auto member = flowOut != nullptr && flowOut->bookmark() != nullptr
                    ? D::at(entity, moxFlowOutBookmarkDeq<typename D::Key>(*flowOut))
                    : D::begin(entity);
  bool blocked = false;
  bool stopped = false;
  for (; member; ++member) {
    try {
      step(member);
    } catch (...) {
      // The collection stays begun: the next run goes on with this member.
      if (flowOut != nullptr) moxFlowOutBookmarkEnq(*flowOut, member.key());
      throw;
    }
    flowOut = flowOutOf<D>(adapter);
    if (flowOut == nullptr) continue;
    blocked = flowOut->isBlocked();
    if (!adapter.continueFlowOut() || blocked) {
      stopped = true;
      break;
    }
  }
  // The member in hand is done, unless it still waits for an id.
  if (stopped && !blocked) ++member;
  // No end marker behind a value that is still open: the caller sees to that first.
  if (!stopped || (!member && flowOut->valueIterKey() != nullptr)) {
    members = true;
    return true;
  }
  if (member) {
    moxFlowOutBookmarkEnq(*flowOut, member.key());
    return false;
  }
  adapter.sendTransactionMarker(D::id, Type::end, 0);
  D::row().bitIs(*flowOut, true);
  return flowOut->isBlocked() ? false : D::dirtyKeys(*flowOut).size() == 0;
}

template <class D, class Dirty>
bool walkDirtyKeys(Sa& adapter, Dirty const& sayKey) {
  auto* flowOut = flowOutOf<D>(adapter);
  if (flowOut == nullptr || flowOut->attrId() != D::id) return true;
  if (!D::row().bit(*flowOut)) {
    D::row().bitIs(*flowOut, true);
    adapter.sendTransactionMarker(D::id, StreamAdapter::AttrTransactionType::end, 0);
  }
  Ptr<FlowOut> const hold(flowOut);
  for (typename D::DirtyKeys::Iterator entry(&D::dirtyKeys(*flowOut)); entry; ++entry) {
    if (!adapter.continueFlowOut()) return false;
    typename D::Key const key = entry->key();
    if (!sayKey(key)) return false;
    if (flowOut->isBlocked()) return false;
    D::dirtyDel(*flowOut, key);
  }
  return true;
}

/// True when the gate lets a walk pass; otherwise `result` is the walk's.
inline bool walkPasses(Sa& adapter, AttributeId attribute, bool& result) {
  if (adapter.hasFlag(applyingSync)) return result = false;
  bool const fromLog = adapter.hasFlag(changeFromLog);
  if (!fromLog && adapter.handlingFlowInFor(attribute)) return result = false;
  result = true;
  if (fromLog || adapter.hasFlag(writingOff | boundByTransaction) || !adapter.hasFlag(writingOn) ||
      !adapter.nboAttrLogOut()) {
    return false;
  }
  if (adapter.hasFlag(readOnlyHere) && !adapter.convertedToWritable(false)) {
    adapter.doThrowReadOnly(attribute);
  }
  return true;
}

/// True when the members have been walked and only dirty keys remain.
template <class D>
bool isWalked(typename D::FlowOut* flowOut) {
  return flowOut != nullptr &&
         ((flowOut->moxDataBits() & FlowOut::walkOver) != 0 || D::row().bit(*flowOut));
}

/// A collection whose members go in one message each: `sayMember(key, member)` says one of the
/// walk, `sayKey(key)` a dirty one.
template <class D, class SayMember, class SayKey>
bool serializeMembers(Sa& adapter, SayMember const& sayMember, SayKey const& sayKey) {
  bool result = false;
  if (!walkPasses(adapter, D::id, result)) return result;
  auto* flowOut = flowOutOf<D>(adapter);
  if (!isWalked<D>(flowOut)) {
    bool members = false;
    bool const done = walkMembers<D>(
        adapter,
        [&](auto const& member) {
          typename D::Key const key = member.key();
          sayMember(key, member);
          auto* now = flowOutOf<D>(adapter);
          if (now != nullptr && !now->isBlocked()) D::dirtyDel(*now, key);
        },
        flowOut, members);
    if (!members) return done;
  }
  return walkDirtyKeys<D>(adapter, [&](typename D::Key const& key) {
    sayKey(key);
    return true;
  });
}

template <class D>
bool serializeChildren(Sa& adapter) {
  return serializeMembers<D>(
      adapter,
      [&](auto const& key, auto const& member) {
        serializeChildKey<D>(adapter, key, D::childOf(*member));
      },
      [&](auto const& key) {
        serializeChildKey<D>(adapter, key, D::lookup(entityOf<D>(adapter), key));
      });
}

template <class D>
bool serializeValues(Sa& adapter) {
  return serializeMembers<D>(
      adapter,
      [&](auto const& key, auto const& member) {
        serializeValueKey<D>(adapter, key, member.value(), false);
      },
      [&](auto const& key) { serializeValueOf<D>(adapter, key); });
}

template <class D>
bool serializeStrings(Sa& adapter) {
  bool result = false;
  if (!walkPasses(adapter, D::id, result)) return result;
  auto* flowOut = flowOutOf<D>(adapter);
  if (flowOut != nullptr && flowOut->attrId() == D::id && flowOut->valueIterKey() != nullptr) {
    // A value was left in pieces. If its key is gone meanwhile, that is what there is to say.
    String8 const key = moxFlowOutValueKeyDeq<String8>(*flowOut);
    bool const present = static_cast<bool>(D::find(entityOf<D>(adapter), key));
    if (!present) moxFlowOutValueDeq<String8::IteratorConst>(*flowOut);
    if (!serializeStringKey<D>(adapter, key, String8(), !present)) {
      D::dirtyIs(*flowOut, key, true);
      return false;
    }
    D::dirtyDel(*flowOut, key);
  }
  if (!isWalked<D>(flowOut)) {
    bool members = false;
    bool const done = walkMembers<D>(
        adapter,
        [&](auto const& member) {
          String8 const key = member.key();
          bool const through = serializeStringKey<D>(adapter, key, member.value(), false);
          if (!through) {
            markKey<D>(adapter, key);
          } else if (auto* now = flowOutOf<D>(adapter)) {
            D::dirtyDel(*now, key);
          }
        },
        flowOut, members);
    if (!members) return done;
    flowOut = flowOutOf<D>(adapter);
    if (flowOut != nullptr && flowOut->valueIterKey() != nullptr) {
      // The last value stays open: the next run ends it, and skips the walk.
      D::dirtyIs(*flowOut, *static_cast<String8*>(flowOut->valueIterKey()), true);
      flowOut->moxDataBitsIs(flowOut->moxDataBits() | FlowOut::walkOver);
      return false;
    }
  }
  return walkDirtyKeys<D>(adapter,
                          [&](String8 const& key) { return serializeStringOf<D>(adapter, key); });
}

}  // namespace NboAttrLog
}  // namespace Mox
