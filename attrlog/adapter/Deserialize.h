// The readers of the attribute log: one message applied through the entity's setters, or reflected
// with this end's value; and the sweep of a transaction. Every value of a message is read before
// the first setter is called, so that a bad message changes nothing.
//
// The templates take the same descriptors as the writers (SerializeCollection.h); for scalars also
// Value, get(entity), set(entity, value), on(adapter); for children Args, a tuple of the
// constructor arguments with the key first, and is(entity, args...), del(entity, key).
#pragma once

#include <tuple>
#include <utility>

#include "Mox/Exception.h"
#include "Mox/NboAttrLogFlow.h"
#include "attrlog/adapter/AdapterHost.h"
#include "attrlog/adapter/EntityIds.h"
#include "attrlog/adapter/SerializeCollection.h"
#include "attrlog/adapter/StreamAdapter.h"

namespace MOX_API Mox {
namespace NboAttrLog {

/// The frame of every message: mode, reactor mark, permission, dispatch, clean-up.
void deserialize(Sa& adapter, TypeRows const& type, AttributeId attribute,
                 StreamAdapter::DeserializationOptions const& options, unsigned int length,
                 Ptr<In> const& in);
/// The frame of every transaction marker. True: the attribute's form calls for the base.
bool transaction(Sa& adapter, TypeRows const& type, AttributeId attribute,
                 StreamAdapter::AttrTransactionType type_);
/// Calls the handler that an id stands for; an unknown id does nothing.
void notify(Sa& adapter, TypeRows const& type, AttributeId attribute, void const* key);

/// Reads the front of a compound message: its own id, or the one among those that it offers which
/// the type owns children under.
Compound readCompound(In& in, TypeRows const& type, AttributeId attribute);

/// The strings: pieces are joined in a FlowIn, and applied when whole.
void readPieces(MessageIn& message, AttrRow const& row, void (*set)(Sa&, String8 const&));

/// What the reader has reached is noted on the adapter's message channel, when it has one.
void channelModeIs(Sa& adapter, MsgChannel::Mode mode);

/// From here on the message counts as applied.
inline void applying(MessageIn& message) { message.host.inHand.appliedIs(); }

/// Nothing but `rest` bytes may stand behind the values that were read.
inline void payloadEnd(MessageIn const& message, std::size_t rest = 0) {
  if (message.in->bytesAvailable() != rest) throw StreamException(StreamError::badLength);
}

// What stands in a message, gone over without making a value of it.

template <class T>
struct IsReference : std::false_type {};
template <class T>
struct IsReference<Ptr<T>> : std::true_type {};

/// An id that leads nowhere ends the stream.
void scanReference(MessageScan& message);
void scanPiece(MessageScan& message);

template <class T>
void scanValue(MessageScan& message) {
  if constexpr (IsReference<T>::value) {
    scanReference(message);
  } else if constexpr (requires { WireValue<T>::size; }) {
    message.in.take(WireValue<T>::size);
  } else {
    message.in.take(message.in.nextU32());
  }
}

template <class... T>
void scanValues(MessageScan& message) {
  (scanValue<T>(message), ...);
}
/// Constructor arguments, the key first, and the id.
template <class D>
void scanChild(MessageScan& message) {
  [&]<class... T>(std::type_identity<std::tuple<T...>>) {
    scanValues<T...>(message);
  }(std::type_identity<typename D::Args>());
  message.compound.argsEnd(message.in);
  message.in.take(8);
}

/// The key at the front of a payload. Enumerators that this end doesn't know are not counted here.
template <class Key>
Key peekKey(In& payload) {
  if constexpr (MoxEnum<Key>) {
    return static_cast<Key>(payload.nextint());
  } else {
    return WireValue<Key>::read(payload);
  }
}

template <class D>
void readScalar(MessageIn& message) {
  auto const value = WireValue<typename D::Value>::read(*message.in.get());
  payloadEnd(message);
  if constexpr (IsReference<typename D::Value>::value) {
    channelModeIs(message.adapter, MsgChannel::Mode::payloadRead);
  }
  if (message.reflect) {
    D::on(static_cast<typename D::Sa&>(message.adapter));
    return;
  }
  if constexpr (requires { D::takes(value); }) {
    if (!D::takes(value)) throw StreamException(StreamError::badValue);
  }
  applying(message);
  D::set(entityOf<D>(message.adapter), value);
}

template <class D>
void readPiecesOf(MessageIn& message) {
  readPieces(message, D::row(),
             [](Sa& adapter, String8 const& value) { D::set(entityOf<D>(adapter), value); });
}

/// The mark goes from what the messages name. A subscriber may have removed the entity meanwhile.
template <class D>
void unmark(Sa& adapter, typename D::Key const& key) {
  if (!adapter.rawEntity()) return;
  if (auto const member = D::find(entityOf<D>(adapter), key)) member->moxMarkedForDeletionIs(false);
}

template <class D>
void readValueKey(MessageIn& message) {
  auto const key = WireValue<typename D::Key>::read(*message.in.get());
  auto const value = WireValue<typename D::Value>::read(*message.in.get());
  payloadEnd(message);
  channelModeIs(message.adapter, MsgChannel::Mode::payloadRead);
  if (message.reflect) {
    D::on(static_cast<typename D::Sa&>(message.adapter), key);
    return;
  }
  applying(message);
  D::set(entityOf<D>(message.adapter), key, value);
  unmark<D>(message.adapter, key);
}

/// While a text that has become whole is applied. Its record ends behind that, though a subscriber
/// throws: nothing of this text may stand before the next.
class OpenValueAnchor {
 public:
  /// `isOpen`: it came in pieces.
  OpenValueAnchor(Sa const& adapter, AttributeId attribute, bool isOpen)
      : host_(isOpen ? adapter.host() : nullptr), id_(adapter.entityId()), attribute_(attribute) {}
  ~OpenValueAnchor() {
    if (host_) host_->flowIns.openValueDel(id_, attribute_);
  }
  OpenValueAnchor(OpenValueAnchor const&) = delete;
  OpenValueAnchor& operator=(OpenValueAnchor const&) = delete;

 private:
  AdapterHost* host_;
  EntityId id_;
  AttributeId attribute_;
};

/// The peer has said a value that this end was sending in pieces: the tail of the old one must not
/// follow. The next run says an abort and then what is here now.
template <class D>
void dropOwnPieces(Sa& adapter, typename D::Key const& key) {
  if constexpr (std::same_as<typename D::Key, String8>) {
    auto* flowOut = flowOutOf<D>(adapter);
    if (!flowOut || flowOut->attrId() != D::id ||
        !moxFlowOutValueKeyMatches<String8>(*flowOut, key)) {
      return;
    }
    moxFlowOutValueDeq<String8::IteratorConst>(*flowOut);
    moxFlowOutValueKeyDeq<String8>(*flowOut);
    flowOut->pendingAbortIs(D::id, true);
    D::dirtyIs(*flowOut, key, true);
  }
}

template <class D>
void readStringKey(MessageIn& message) {
  using Text = String8::Iterator;
  Ptr<Connection::In> const in(message.in);
  ConnectionInSizeAnchor const anchor{in, message.length};
  String8 const key = message.in->nextString();
  channelModeIs(message.adapter, MsgChannel::Mode::payloadRead);
  if (message.reflect) {
    D::on(static_cast<typename D::Sa&>(message.adapter), key);
    return;
  }
  FlowIn* const flowIn = message.flowIn;
  bool const matches = flowIn && flowIn->idx() && moxFlowInIdxMatches<String8>(flowIn, key);
  // One value in pieces of an entity at a time.
  if (flowIn && flowIn->iter() && flowIn->aid() != D::id) {
    throw StreamException(StreamError::badPiece);
  }
  Text local;
  Text& text = matches ? *moxFlowInIterator<Text>(flowIn, D::id, false) : local;
  if (message.length != 0) in >> text;
  payloadEnd(message);
  bool const complete = text.pos() == 0;
  FlowIns& flowIns = message.host.flowIns;
  EntityId const id = message.adapter.entityId();
  if (!complete) {
    if (matches) return;
    if (flowIn && flowIn->iter()) throw StreamException(StreamError::badPiece);
    Ptr<FlowIn> const made = flowIns.flowInIs(id);
    moxFlowInIdxEnq(made.get(), key);
    moxFlowInIteratorIs(made.get(), D::id, text);
    return;
  }
  {
    OpenValueAnchor const anchor(message.adapter, D::id, matches);
    String8 const value(text);
    applying(message);
    D::set(entityOf<D>(message.adapter), key, value);
    unmark<D>(message.adapter, key);
  }
  dropOwnPieces<D>(message.adapter, key);
}

/// The key of a deletion. A member under an enumerator that this end doesn't know may come but goes
/// only by a sweep or with its parent: its deletion fails with a range exception, is counted and
/// passed over.
template <class Key>
Key readDeletedKey(MessageIn& message) {
  if constexpr (MoxEnum<Key>) {
    unsigned int const number = message.in->nextU32();
    payloadEnd(message);
    applying(message);
    return enumInstance<Key>(number);
  } else {
    return WireValue<Key>::read(*message.in.get());
  }
}

template <class D>
void readKeyDel(MessageIn& message) {
  auto const key = readDeletedKey<typename D::Key>(message);
  payloadEnd(message);
  if (message.reflect) {
    D::on(static_cast<typename D::Sa&>(message.adapter), key);
    return;
  }
  applying(message);
  D::del(entityOf<D>(message.adapter), key);
  dropOwnPieces<D>(message.adapter, key);
}

/// The constructor arguments of a child, in the order of the stream.
template <class Args>
Args readArgs(In& in) {
  return [&]<class... T>(std::type_identity<std::tuple<T...>>) {
    return Args{WireValue<T>::read(in)...};
  }(std::type_identity<Args>());
}

template <class D>
auto applyArgs(Sa& adapter, typename D::Args const& args) {
  return std::apply([&](auto const&... arg) { return D::is(entityOf<D>(adapter), arg...); }, args);
}

/// The id behind a child's arguments. It is only looked at: the adapter that binds the child takes
/// it. `present` gives the child that stands there now: no other entity may have the id.
template <class Present>
EntityId peekChildId(MessageIn& message, Present const& present) {
  In& in = *message.in.get();
  payloadEnd(message, 8);
  unsigned char const* const position = in.position();
  EntityId const id = in.nextEntityId();
  in.positionIs(position);
  Sa const* const holder = message.host.reactors.reactor(id);
  if (!id.isUnified() || id == orphanTarget || (holder && holder->rawEntity() != present())) {
    throw StreamException(StreamError::badId);
  }
  return id;
}

/// True when the child stands there without an adapter under the id that came for it, since a
/// subscriber's change took the mark meanwhile. The mark is set again.
inline bool isUnbound(MessageIn& message, EntityId id, unsigned char const* position) {
  Sa& adapter = message.adapter;
  if (!adapter.rawEntity() || !adapter.host() || message.host.reactors.reactor(id)) return false;
  message.in->positionIs(position);
  adapter.flagsIs(changeFromLog, true);
  return true;
}

/// A child of a collection.
template <class D>
void readChildKey(MessageIn& message) {
  In& in = *message.in.get();
  Sa& adapter = message.adapter;
  auto& typed = static_cast<typename D::Sa&>(adapter);
  auto const args = readArgs<typename D::Args>(in);
  typename D::Key const key = std::get<0>(args);
  message.compound.argsEnd(in);
  if (message.reflect) {
    D::on(typed, key);
    return;
  }
  unsigned char const* const position = in.position();
  Ptr<typename D::Child> const present = D::lookup(entityOf<D>(adapter), key);
  EntityId const id = peekChildId(message, [&] { return present.get(); });
  applying(message);
  Ptr<typename D::Child> child;
  try {
    Expect const expect(Exception::nameInUseId);
    if (adapter.hasFlag(changeFromLog)) {
      message.host.checkEphemeralEntityDeletion(present.get(), id);
    }
    {
      MsgChannel::DeserializingEidAnchor const anchor(id, adapter.rawEntity());
      child = applyArgs<D>(adapter, args);
    }
    if (adapter.hasFlag(changeFromLog) && adapter.rawEntity()) D::on(typed, key);
  } catch (NameInUseException const&) {
    // A child of other parameters sits under the key: it is replaced.
    if (!adapter.rawEntity()) return;
    D::del(entityOf<D>(adapter), key);
    if (!adapter.rawEntity()) return;
    adapter.flagsIs(changeFromLog, true);
    child = applyArgs<D>(adapter, args);
  }
  if (child) child->moxMarkedForDeletionIs(false);
  channelModeIs(adapter, MsgChannel::Mode::payloadRead);
  unmark<D>(adapter, key);
  if (isUnbound(message, id, position)) D::on(typed, key);
}

template <class D>
void readSingleton(MessageIn& message) {
  In& in = *message.in.get();
  Sa& adapter = message.adapter;
  auto& typed = static_cast<typename D::Sa&>(adapter);
  auto const args = readArgs<typename D::Args>(in);
  message.compound.argsEnd(in);
  if (message.reflect) {
    D::on(typed);
    return;
  }
  unsigned char const* const position = in.position();
  EntityId const id = peekChildId(message, [&] { return D::get(entityOf<D>(adapter)).get(); });
  applying(message);
  Ptr<typename D::Child> child;
  {
    MsgChannel::DeserializingEidAnchor const anchor(id, adapter.rawEntity());
    child = applyArgs<D>(adapter, args);
  }
  if (adapter.hasFlag(changeFromLog) && adapter.rawEntity()) D::on(typed);
  if (child) child->moxMarkedForDeletionIs(false);
  channelModeIs(adapter, MsgChannel::Mode::payloadRead);
  if (isUnbound(message, id, position)) D::on(typed);
}

template <class D>
void readSingletonDel(MessageIn& message) {
  payloadEnd(message);
  if (message.reflect) {
    D::on(static_cast<typename D::Sa&>(message.adapter));
    return;
  }
  applying(message);
  D::del(entityOf<D>(message.adapter));
}

template <class D>
void takeMarks(Entity& entity, MarkedMembers& marked) {
  for (auto member = D::begin(static_cast<typename D::Entity&>(entity)); member; ++member) {
    if (!member->moxMarkedForDeletion()) continue;
    member->moxMarkedForDeletionIs(false);
    marked.emplace_back(member.operator->());
  }
}

/// Begin marks every member, end deletes those still marked; until a pass is quiet.
template <class D>
void sweepMembers(Sa& adapter, StreamAdapter::AttrTransactionType type) {
  using Type = StreamAdapter::AttrTransactionType;
  Ptr<typename D::Entity> const entity(&entityOf<D>(adapter));
  for (;;) {
    std::uint32_t const before = D::stamp(**entity);
    for (auto member = D::begin(**entity); member; ++member) {
      if (type == Type::begin) {
        member->moxMarkedForDeletionIs(true);
      } else if (type == Type::end && member->moxMarkedForDeletion()) {
        typename D::Key const key = member.key();
        ChangeFromLogAnchor const anchor(adapter);
        adapter.flagsIs(changeFromLog, true);
        D::del(**entity, key);
      }
    }
    if (D::stamp(**entity) == before) return;
  }
}

}  // namespace NboAttrLog
}  // namespace Mox
