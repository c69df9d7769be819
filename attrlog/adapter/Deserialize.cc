// The frame around every message and every marker, and the strings in pieces.
#include "attrlog/adapter/Deserialize.h"

#include <cstdlib>
#include <limits>
#include <optional>

#include "Mox/Dir.h"
#include "attrlog/adapter/Rows.h"

namespace Mox::NboAttrLog {
namespace {

/// The authority has changed the mode in which the entity is kept: it holds on every connection.
/// Mode `ended` also ends the mount of a root.
void applySync(MessageIn& message) {
  auto const mode = StreamAdapter::SyncModeInstance(message.in->nextU32());
  payloadEnd(message);
  if (message.reflect) return;
  applying(message);
  Sa& adapter = message.adapter;
  Ptr<Entity> const entity = adapter.moxNotifierEntity();
  EntityId const id = adapter.entityId();
  std::vector<AdapterHost*> const hosts = adapterHosts();
  for (AdapterHost* const host : hosts) {
    Ptr<Sa> const found(host->reactors.reactor(id));
    if (!found || found->moxNotifierEntity() != entity || !id.isUnified()) continue;
    found->flagsIs(applyingSync, true);
    found->syncModeIs(mode);
    found->flagsIs(applyingSync, false);
  }
  channelModeIs(adapter, MsgChannel::Mode::synced);
  if (mode != StreamAdapter::SyncMode::ended || !entity) return;
  Dir* const dir = dynamic_cast<Dir*>(entity->parent().get());
  if (!dir) return;
  adapter.flagsIs(changeFromLog, false);
  Ptr<Dir::Entry> const entry = dir->entry(entity->name());
  if (entry && entry->target() == entity) entry->operationIs(Dir::Entry::endMount);
}

/// Throws when the peer may not write the attribute.
void checkWritable(Sa const& adapter, AdapterHost const& host, AttributeId attribute) {
  if (!adapter.hasFlag(readOnlyRemote)) [[likely]]
    return;
  if (adapter.readOnlyRemoteOk(attribute) || adapter.convertedToWritable(false)) return;
  throwInternalException(messages::readOnlyProxy + adapter.rawEntity()->fullName() +
                         messages::readOnlyProxyPeer + String8(host.peer().peerName.c_str()));
}

}  // namespace

Compound readCompound(In& in, TypeRows const& type, AttributeId attribute) {
  Compound compound{attribute, in.position()};
  std::size_t const groupLength = in.nextU16();
  compound.keyEnd = in.nextU16();
  auto const consumed = [&] { return static_cast<std::size_t>(in.position() - compound.start); };
  while (consumed() < groupLength) {
    AttributeId const id = in.nextint();
    if (id == std::numeric_limits<AttributeId>::min()) continue;
    AttrRow const* row = type.find(std::abs(id));
    if (!row || !row->ownsChildren()) continue;
    compound.attribute = id;
    if (consumed() < groupLength) in.nextBytes(groupLength - consumed());
  }
  if (compound.attribute > 0) in.nextU32();
  return compound;
}

void Compound::argsEnd(In& in) const {
  if (keyEnd == 0) return;
  auto const consumed = static_cast<std::size_t>(in.position() - start);
  if (consumed > keyEnd) throw StreamException(StreamError::badLength);
  in.nextBytes(keyEnd - consumed);
}

namespace {

/// The mark that stands on an adapter while a message is applied through it.
class ReactorAnchor {
 public:
  explicit ReactorAnchor(Sa& adapter) : adapter_(adapter) {
    if (adapter.hasFlag(changeFromLog)) throwInternalException(messages::reactorActive);
    adapter.flagsIs(changeFromLog, true);
  }
  ~ReactorAnchor() { adapter_.flagsIs(changeFromLog, false); }
  ReactorAnchor(ReactorAnchor const&) = delete;
  ReactorAnchor& operator=(ReactorAnchor const&) = delete;

 private:
  Sa& adapter_;
};

/// What most messages are, without what only other forms need.
void applyNumber(Sa& adapter, AttrRow const& row, unsigned int length) {
  AdapterHost* const host = adapter.host();
  if (!host) return;
  ReactorAnchor const anchor(adapter);
  checkWritable(adapter, *host, row.id);
  MessageIn message{adapter, *host, host->in, row.id, length, false};
  row.read(message);
}

/// The frame around every other message.
[[gnu::noinline]] void deserializeAny(Sa& adapter, TypeRows const& type, AttributeId attribute,
                                      StreamAdapter::DeserializationOptions const& options,
                                      unsigned int length, Ptr<In> const& in) {
  bool const reflect = static_cast<bool>(in);
  AdapterHost* const host = adapter.host();
  if (!host) return;
  std::optional<ReactorAnchor> anchor;
  if (!reflect) {
    anchor.emplace(adapter);
    checkWritable(adapter, *host, attribute);
  }
  MessageIn message{adapter, *host, reflect ? in : host->in, attribute, length, reflect};
  if (std::abs(attribute) == compoundAttribute && type.ownsChildren()) {
    message.compound = readCompound(**message.in, type, attribute);
    message.attribute = message.compound.attribute;
  }
  bool const deletes = message.attribute < 0;
  AttrRow const* const row = type.find(deletes ? -message.attribute : message.attribute);
  if (row && row->isInPieces()) message.flowIn = host->flowIns.flowIn(adapter.entityId()).get();
  if (auto const reader = !row ? nullptr : deletes ? row->readDel : row->read) {
    reader(message);
  } else if (message.attribute == syncAttribute) {
    applySync(message);
  } else {
    adapter.doBaseMoxNboAttrLogSaMsg(attribute, options, length, in);
  }
}

}  // namespace

void deserialize(Sa& adapter, TypeRows const& type, AttributeId attribute,
                 StreamAdapter::DeserializationOptions const& options, unsigned int length,
                 Ptr<In> const& in) {
  if (!in && attribute > 0) {
    AttrRow const* const row = type.find(attribute);
    if (row && row->isNumber()) return applyNumber(adapter, *row, length);
  }
  deserializeAny(adapter, type, attribute, options, length, in);
}

void channelModeIs(Sa& adapter, MsgChannel::Mode mode) {
  if (adapter.channel() == nullptr) return;
  if (auto* const entry = MsgChannel::constrainer().entry(adapter.channel())) entry->modeIs(mode);
}

void scanReference(MessageScan& message) {
  EntityId const id = message.in.nextEntityId();
  if (!id) return;
  Naming const naming = id.isUnified() ? message.reactors.naming(id) : Naming::unknown;
  if (naming == Naming::unknown) throw StreamException(StreamError::badId);
  if (naming == Naming::gone) message.namesGone = true;
}

void scanPiece(MessageScan& message) {
  if (message.in.bytesAvailable() == 0) return;
  unsigned int const word = message.in.nextU32();
  message.isOpen = (word & 0x80000000u) != 0;
  if (word == 0x80000000u) throw StreamException(StreamError::badPiece);
  message.in.take(word & 0x7fffffffu);
}

void readPieces(MessageIn& message, AttrRow const& row, void (*set)(Sa&, String8 const&)) {
  using Text = String8::Iterator;
  channelModeIs(message.adapter, MsgChannel::Mode::payloadRead);
  if (message.reflect) {
    row.notify(message.adapter, nullptr);
    return;
  }
  FlowIn* const flowIn = message.flowIn;
  // One value in pieces of an entity at a time.
  if (flowIn && flowIn->iter() && (flowIn->aid() != row.id || flowIn->idx())) {
    throw StreamException(StreamError::badPiece);
  }
  Text local;
  Text& text = flowIn ? *moxFlowInIterator<Text>(flowIn, row.id, false) : local;
  if (message.length != 0) {
    Ptr<Connection::In> const in(message.in);
    ConnectionInSizeAnchor const anchor{in, message.length};
    in >> text;
  }
  payloadEnd(message);
  bool const complete = text.pos() == 0;
  if (!complete) {
    if (!flowIn) {
      Ptr<FlowIn> const made = message.host.flowIns.flowInIs(message.adapter.entityId());
      moxFlowInIteratorIs(made.get(), row.id, text);
    }
    return;
  }
  {
    OpenValueAnchor const anchor(message.adapter, row.id, flowIn != nullptr);
    String8 const value(text);
    applying(message);
    set(message.adapter, value);
  }
  // The tail of what this end was sending itself must not follow what the peer has said.
  FlowOut* const own = message.adapter.flowOut();
  if (own && own->attrId() == row.id && own->valueIter() && !own->valueIterKey()) {
    message.adapter.freeResyncState(Ptr<FlowOut>(own));
    own->pendingAbortIs(row.id, true);
    row.bitIs(*own, true);
  }
}

namespace {

/// The sweep, with the marks of this connection on the members.
void sweep(Sa& adapter, AttrRow const& row, StreamAdapter::AttrTransactionType kind) {
  using Kind = StreamAdapter::AttrTransactionType;
  Ptr<Entity> const entity = adapter.moxNotifierEntity();
  AdapterHost const* const connection = adapter.host();
  if (!entity) return;
  if (kind == Kind::begin) {
    Marks::begin(**entity, row, connection);
  } else {
    Marks::enter(**entity, row, connection);
  }
  row.sweep(adapter, kind);
  if (kind == Kind::end) Marks::end(**entity, row, connection);
}

}  // namespace

bool transaction(Sa& adapter, TypeRows const& type, AttributeId attribute,
                 StreamAdapter::AttrTransactionType kind) {
  using Kind = StreamAdapter::AttrTransactionType;
  // A type that a transaction never touches leaves no record behind.
  if (type.count == 0 && !type.base) return true;
  AdapterHost* const host = adapter.host();
  if (!host) return true;
  EntityId const id = adapter.entityId();
  Ptr<FlowIn> flowIn = host->flowIns.flowIn(id);
  if (flowIn) {
    if (kind == Kind::end && attribute == flowIn->aid()) flowIn->handlingTransactionIs(true);
  } else if (!adapter.hasFlag(applyingSync) && kind == Kind::begin) {
    flowIn = host->flowIns.flowInIs(id);
    flowIn->aidIs(attribute);
  }
  AttrRow const* row = type.find(attribute);
  if (!row) return true;
  switch (row->form) {
    case WireForm::none:
    case WireForm::plain:
    case WireForm::reference:
      return true;
    case WireForm::pieces:
      if (!flowIn || flowIn->aid() != attribute) return false;
      if (kind != Kind::begin) host->flowIns.openValueDel(id, attribute);
      return true;
    case WireForm::singleton: {
      Ptr<Entity> const child = row->child(adapter);
      if (!child) return true;
      Ptr<Sa> const childAdapter = child->moxNboAttrLogSa(Ptr<Out const>(adapter.nboAttrLogOut()));
      if (childAdapter && kind == Kind::begin) childAdapter->flagsIs(boundByTransaction, true);
      return true;
    }
    case WireForm::valuesByString:
      if (flowIn && kind == Kind::abort) {
        host->flowIns.openValueDel(id, attribute);
        return true;
      }
      sweep(adapter, *row, kind);
      return true;
    case WireForm::entities:
    case WireForm::valuesById:
      sweep(adapter, *row, kind);
      return true;
  }
  return true;
}

void notify(Sa& adapter, TypeRows const& type, AttributeId attribute, void const* key) {
  AttrRow const* row = type.find(attribute < 0 ? -attribute : attribute);
  if (!row || row->isCollection() != (attribute < 0)) return;
  row->notify(adapter, key);
}

}  // namespace Mox::NboAttrLog
