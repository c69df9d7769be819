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

/// Sends a noted change of a key when the message in hand is done.
template <class D>
void noteKey(Sa& adapter, typename D::Key const& key) {
  adapter.host()->inHand.note(adapter, [&adapter, key] { D::row().notify(adapter, &key); });
}

/// The message of a key that is gone.
template <class D>
void sendKeyDel(Sa& adapter, typename D::Key const& key) {
  MessageOut message(adapter, -D::id, true);
  WireValue<typename D::Key>::write(message.out(), key);
  message.keyEnd();
  message.commit();
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

/// What became of a key of a walk.
enum class KeySent {
  done,     ///< its mark can go
  owed,     ///< its mark stays: the peer would not take the message
  stopped,  ///< its mark stays, and so does the walk
};

template <class D>
KeySent serializeChildKey(Sa& adapter, typename D::Key const& key,
                          Ptr<typename D::Child> const& child) {
  Gate const passed = gate(adapter, D::row(), &key);
  if (passed == Gate::fromLog) {
    ChangeFromLogAnchor const anchor(adapter);
    if (child) bindChild(adapter, child);
    return KeySent::done;
  }
  if (passed == Gate::noted) noteKey<D>(adapter, key);
  if (passed != Gate::open || !decideKey<D>(adapter, key)) return KeySent::done;
  if (!child) {
    sendKeyDel<D>(adapter, key);
    return KeySent::done;
  }
  Ptr<Sa> childAdapter;
  try {
    childAdapter = childAdapterIs(adapter, D::id, adapter.childFlags(), child, 1, adapter.channel(),
                                  &D::writeArgs, transfersChildren(adapter));
  } catch (EntityIdUnavailableException const&) {
    if (auto* flowOut = markKey<D>(adapter, key)) blockFlowOut(*flowOut);
    return KeySent::stopped;
  } catch (MessageTooLong const&) {
    markKey<D>(adapter, key);
    reportTooLong(adapter, D::id);
    return KeySent::owed;
  }
  adapter.doFixChildFlags(childAdapter);
  if (transfersChildren(adapter)) childAdapter->doThis();
  return KeySent::done;
}

template <class D>
void serializeValueKey(Sa& adapter, typename D::Key const& key, typename D::Value const& value,
                       bool deleted) {
  Gate const passed = gate(adapter, D::row(), &key);
  if (passed == Gate::noted) noteKey<D>(adapter, key);
  if (passed != Gate::open || !decideKey<D>(adapter, key)) return;
  if (deleted) return sendKeyDel<D>(adapter, key);
  MessageOut message(adapter, D::id, true);
  WireValue<typename D::Key>::write(message.out(), key);
  message.keyEnd();
  WireValue<typename D::Value>::write(message.out(), value);
  message.commit();
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
    sendKeyDel<D>(adapter, key);
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
    MessageOut message(adapter, D::id, true);
    WireValue<String8>::write(out, key);
    message.keyEnd();
    {
      ConnectionOutSizeAnchor const anchor{Ptr<Connection::Out>(out)};
      // What keeps the frame within a message, but never nothing.
      std::size_t const spent = pessimisticMessageSizeEstimate(key.length());
      std::size_t const most = out->maxMessageSize();
      out->sizeLimitIs(std::max<std::size_t>(most > spent ? most - spent : 0, 256));
      out << position;
    }
    message.commit();
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

// The walk. The FlowOut is taken once, at its start: one that a member's change makes meanwhile
// belongs to that change. `Step` sends one member. `isWalked` is true when all of them are done,
// false when the walk stopped: its result is then this function's.

template <class D, class Step>
bool walkMembers(Sa& adapter, Step const& step, typename D::FlowOut* flowOut, bool& isWalked) {
  using Type = StreamAdapter::AttrTransactionType;
  typename D::Entity& entity = entityOf<D>(adapter);
  isWalked = false;
  if (flowOut != nullptr && flowOut->bookmark() == nullptr) {
    adapter.sendTransactionMarker(D::id, Type::begin, 0);
  }
  auto member = flowOut != nullptr && flowOut->bookmark() != nullptr
                    ? D::at(entity, moxFlowOutBookmarkDeq<typename D::Key>(*flowOut))
                    : D::begin(entity);
  bool isBlocked = false;
  bool isStopped = false;
  for (; member; ++member) {
    try {
      step(member);
    } catch (...) {
      // The collection stays begun: the next run goes on with this member.
      if (flowOut != nullptr) moxFlowOutBookmarkEnq(*flowOut, member.key());
      throw;
    }
    if (flowOut == nullptr) continue;
    isBlocked = flowOut->isBlocked();
    if (!adapter.continueFlowOut() || isBlocked) {
      isStopped = true;
      break;
    }
  }
  // The member in hand is done, unless it still waits for an id.
  if (isStopped && !isBlocked) ++member;
  // No end marker behind a value that is still open: the caller sees to that first.
  if (!isStopped || (!member && flowOut->valueIterKey() != nullptr)) {
    isWalked = true;
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

/// `SendKey` sends one dirty key.
template <class D, class SendKey>
bool walkDirtyKeys(Sa& adapter, typename D::FlowOut* flowOut, SendKey const& sendKey) {
  if (flowOut == nullptr || flowOut->attrId() != D::id) return true;
  if (!D::row().bit(*flowOut)) {
    D::row().bitIs(*flowOut, true);
    adapter.sendTransactionMarker(D::id, StreamAdapter::AttrTransactionType::end, 0);
  }
  for (typename D::DirtyKeys::Iterator entry(&D::dirtyKeys(*flowOut)); entry; ++entry) {
    if (!adapter.continueFlowOut()) return false;
    typename D::Key const key = entry->key();
    KeySent const sent = sendKey(key);
    if (sent == KeySent::stopped || flowOut->isBlocked()) return false;
    if (sent == KeySent::done) D::dirtyDel(*flowOut, key);
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
    adapter.doThrowReadOnly(descriptorOf(adapter, attribute));
  }
  return true;
}

/// True when the members have been walked and only dirty keys remain.
template <class D>
bool isWalked(typename D::FlowOut* flowOut) {
  return flowOut != nullptr &&
         ((flowOut->moxDataBits() & FlowOut::walkOver) != 0 || D::row().bit(*flowOut));
}

/// A collection whose members go in one message each: `sendMember(key, member)` sends one of the
/// walk, `sendKey(key)` a dirty one.
template <class D, class SendMember, class SendKey>
bool serializeMembers(Sa& adapter, SendMember const& sendMember, SendKey const& sendKey) {
  bool result = false;
  if (!walkPasses(adapter, D::id, result)) return result;
  Ptr<typename D::FlowOut> const hold(flowOutOf<D>(adapter));
  auto* const flowOut = hold.get();
  if (!isWalked<D>(flowOut)) {
    bool isDone = false;
    bool const walked = walkMembers<D>(
        adapter,
        [&](auto const& member) {
          typename D::Key const key = member.key();
          KeySent const sent = sendMember(key, member);
          if (flowOut != nullptr && sent == KeySent::done) D::dirtyDel(*flowOut, key);
        },
        flowOut, isDone);
    if (!isDone) return walked;
  }
  return walkDirtyKeys<D>(adapter, flowOut, sendKey);
}

template <class D>
bool serializeChildren(Sa& adapter) {
  auto const send = [&](auto const& key, auto const& child) {
    return serializeChildKey<D>(adapter, key, child);
  };
  return serializeMembers<D>(
      adapter, [&](auto const& key, auto const& member) { return send(key, D::childOf(*member)); },
      [&](auto const& key) { return send(key, D::lookup(entityOf<D>(adapter), key)); });
}

template <class D>
bool serializeValues(Sa& adapter) {
  return serializeMembers<D>(
      adapter,
      [&](auto const& key, auto const& member) {
        serializeValueKey<D>(adapter, key, member.value(), false);
        return KeySent::done;
      },
      [&](auto const& key) {
        serializeValueOf<D>(adapter, key);
        return KeySent::done;
      });
}

template <class D>
bool serializeStrings(Sa& adapter) {
  bool result = false;
  if (!walkPasses(adapter, D::id, result)) return result;
  Ptr<typename D::FlowOut> const hold(flowOutOf<D>(adapter));
  auto* const flowOut = hold.get();
  if (flowOut != nullptr && flowOut->attrId() == D::id && flowOut->valueIterKey() != nullptr) {
    // A value was left in pieces. If its key is gone meanwhile, its removal is what is owed.
    String8 const key = moxFlowOutValueKeyDeq<String8>(*flowOut);
    bool const isPresent = static_cast<bool>(D::find(entityOf<D>(adapter), key));
    if (!isPresent) moxFlowOutValueDeq<String8::IteratorConst>(*flowOut);
    if (!serializeStringKey<D>(adapter, key, String8(), !isPresent)) {
      D::dirtyIs(*flowOut, key, true);
      return false;
    }
    D::dirtyDel(*flowOut, key);
  }
  if (!isWalked<D>(flowOut)) {
    bool isDone = false;
    bool const walked = walkMembers<D>(
        adapter,
        [&](auto const& member) {
          String8 const key = member.key();
          if (!serializeStringKey<D>(adapter, key, member.value(), false)) {
            markKey<D>(adapter, key);
          } else if (flowOut != nullptr) {
            D::dirtyDel(*flowOut, key);
          }
        },
        flowOut, isDone);
    if (!isDone) return walked;
    if (flowOut != nullptr && flowOut->valueIterKey() != nullptr) {
      // The last value stays open: the next run ends it, and skips the walk.
      D::dirtyIs(*flowOut, *static_cast<String8*>(flowOut->valueIterKey()), true);
      flowOut->moxDataBitsIs(flowOut->moxDataBits() | FlowOut::walkOver);
      return false;
    }
  }
  return walkDirtyKeys<D>(adapter, flowOut, [&](String8 const& key) {
    return serializeStringOf<D>(adapter, key) ? KeySent::done : KeySent::stopped;
  });
}

}  // namespace NboAttrLog
}  // namespace Mox
