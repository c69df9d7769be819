// Events in the lives of a connection's adapters, and the operations of entities and of In that
// need them.
#include "attrlog/adapter/AdapterHost.h"

#include <algorithm>
#include <cstdlib>
#include <unordered_map>

#include "Mox/Exception.h"
#include "attrlog/adapter/EntityIds.h"
#include "attrlog/adapter/Marks.h"
#include "attrlog/adapter/Rows.h"
#include "attrlog/adapter/Serialize.h"
#include "attrlog/wire/WireValue.h"

namespace Mox {
namespace NboAttrLog {
namespace {

std::vector<AdapterHost*>& hosts() {
  static std::vector<AdapterHost*> all;
  return all;
}

}  // namespace

std::vector<AdapterHost*> const& adapterHosts() { return hosts(); }

AdapterHost::AdapterHost(LinkOptions const& options, Demuxer* demuxer)
    : options(options),
      in(new In({demuxer, this, &waker})),
      out(new Out({demuxer, this, &waker}, &exchange, in.get(), options.outCapacity)),
      scheduler(*this),
      announcer(*this),
      repeats(*this),
      demuxer_(demuxer),
      nonce_(options.processNonce ? options.processNonce : newEntityId().value()) {
  hosts().push_back(this);
}

AdapterHost::~AdapterHost() { std::erase(hosts(), this); }

// The connection.

void AdapterHost::greetedIs(Greeting const& peer) {
  peer_ = peer;
  out->peerMaxPayloadIs(peer.maxPayload);
  mode_ = ConnectionMode::running;
  recordsSlots_ = mayPeerWrite();
}

StreamAdapter::Mox_BitSet AdapterHost::rootFlags(bool isExported) const {
  std::uint32_t flags = weakReference;
  if (isExported) {
    if (!mayPeerWrite()) flags |= readOnlyRemote;
  } else {
    flags |= notAuthority;
    if (!mayWrite()) flags |= readOnlyHere;
  }
  return StreamAdapter::Mox_BitSet(flags);
}

void AdapterHost::close() {
  mode_ = ConnectionMode::closed;
  for (Ptr<Sa> const& adapter : reactors.all()) retire(**adapter);
  scheduler.clear();
  announcer.clear();
  repeats.clear();
  reactors.clear();
  flowIns.clear();
  inHand.clear();
  exchange.clearSlots();
  out->close();
  in->close();
  std::erase(hosts(), this);
}

// Adapters.

void AdapterHost::assignEntityId(Sa& adapter) {
  Ptr<Entity> const entity = adapter.moxNotifierEntity();
  bool const isOrphan = adapter.origin() == StreamAdapter::Origin::exportedOrphan;
  MsgChannel::Constrainer const& brought = MsgChannel::constrainer();
  EntityId id = isOrphan ? identities->idOf(**entity) : EntityId();
  bool isOwn = identities->isOwn(id);
  if (brought.deserializingEid() && entity->parent().get() == brought.deserializingInParent()) {
    id = brought.deserializingEid();
  } else if (Ptr<Sa> const other = id ? Ptr<Sa>() : entity->moxNboAttrLogSa(Ptr<Out const>())) {
    if (other.get() != &adapter) id = other->entityId();
  }
  // An entity without a parent comes back under its id, behind the withdrawal.
  if (isOrphan && reactors.isGone(id)) announcer.sendWithdrawals();
  bool const isGone = reactors.isGone(id) && (!isOrphan || announcer.isWithdrawalOwed(id));
  if (!id || reactors.reactor(id) != nullptr || isGone) {
    id = newEntityId();
    isOwn = true;
  }
  // An id stays with the entity that it names, also where another one still has it elsewhere.
  bool const isFree = !identities->idOf(**entity) && identities->entity(id) == nullptr;
  if (isOrphan && isFree) identities->idIs(**entity, id, isOwn);
  reactorIs(id, adapter, false);
}

void AdapterHost::reactorIs(EntityId id, Sa& adapter, bool isBound) {
  Ptr<Sa> const hold(&adapter);
  if (adapter.entityId() != id) {
    if (reactors.reactor(adapter.entityId()) == &adapter) {
      // An equal child came under another id: what was open or owed under the old one is void.
      scheduler.unannounce(adapter);
      dropTransactions(adapter);
      reactors.remove(adapter.entityId());
      if (isRunning()) reactors.goneIs(adapter.entityId());
    }
    adapter.entityIdIs(id);
  }
  if (reactors.reactor(id) != &adapter) {
    if (Sa* const other = reactors.reactor(id)) retire(*other);
    reactors.enter(adapter);
  }
  Ptr<Sa> const elsewhere = adapter.rawEntity()->moxNboAttrLogSaForMsgChannel(hold);
  if (elsewhere && elsewhere->entityId() != id) Reactors::idsDifferIs();
  if (!isBound) return;
  if (adapter.origin() != StreamAdapter::Origin::importedOrphan) {
    adapter.originIs(StreamAdapter::Origin::bound);
  }
  adapter.isTransferBegunIs(false);
  if (inHand.startsTransfer()) {
    scheduler.holdIs(adapter);
  } else {
    scheduler.announcedIs(adapter);
  }
  scheduler.wake(adapter.rawEntity());
}

void AdapterHost::announcedIs(Sa& adapter) {
  if (adapter.origin() == StreamAdapter::Origin::exportedOrphan) {
    announcer.sentIs(adapter);
  }
  scheduler.announcedIs(adapter);
  scheduler.wake(adapter.rawEntity());
}

void AdapterHost::reclaim(Sa& adapter) {
  beginAnew(adapter, StreamAdapter::Origin::exportedOrphan);
  adapter.isTransferBegunIs(false);
  scheduler.announcedIs(adapter);
  scheduler.transferIs(adapter);
}

void AdapterHost::beginAnew(Sa& adapter, StreamAdapter::Origin origin) {
  Ptr<Entity> const entity = adapter.moxNotifierEntity();
  for (TypeRows const* rows = &adapter.rows(); rows != nullptr; rows = rows->base) {
    remountChildren(adapter, **entity, *rows);
  }
  scheduler.unannounce(adapter);
  dropTransactions(adapter);
  adapter.originIs(origin);
  adapter.notificationFlagsIs(rootFlags(origin == StreamAdapter::Origin::exportedOrphan));
}

void AdapterHost::retire(Sa& adapter) {
  if (adapter.isRetired()) return;
  Ptr<Sa> const hold(&adapter);
  EntityId const id = adapter.entityId();
  bool const isInTable = reactors.reactor(id) == &adapter;
  if (isInTable && adapter.isAnnounced() && isRunning()) {
    reactors.goneIs(id);
    if (adapter.origin() == StreamAdapter::Origin::exportedOrphan) {
      announcer.withdrawnIs(id);
      waker.wake();
    }
  }
  if (isInTable) dropTransactions(adapter);
  scheduler.retire(adapter);
  adapter.moxDoZombieReactors(true);
  adapter.notifierIs(Ptr<PtrInterface const>());
  if (isInTable) reactors.remove(id);
  reactors.outsideDec();
  // Its own handler may be on the stack.
  graveyard_.push_back(hold);
}

/// What is open on an adapter that goes: a value in pieces, a transaction.
void AdapterHost::dropTransactions(Sa& adapter) {
  flowIns.flowInDel(adapter.entityId());
  Ptr<Entity> const entity = adapter.moxNotifierEntity();
  // A change of the sync mode opens transactions without a marker and without a FlowIn.
  if (!entity || Marks::openCount() == 0) return;
  for (TypeRows const* type = &adapter.rows(); type != nullptr; type = type->base) {
    for (AttrRow const& row : *type) {
      if (row.isCollection()) Marks::drop(**entity, row, this);
    }
  }
}

void AdapterHost::checkEphemeralEntityDeletion(Entity* child, EntityId id) {
  if (child == nullptr) return;
  Ptr<Sa> const adapter = child->moxNboAttrLogSa(Ptr<Out const>(out));
  if (adapter && adapter->entityId() != id) retire(**adapter);
}

/// What the peer writes about the slot before it has seen this frame is void. During an entity's
/// first transfer the peer writes nothing about it.
void AdapterHost::recordSlot(Sa const& adapter, AttributeId attribute, std::size_t keySize) {
  if (!isAuthority(adapter)) return;
  FlowOut const* const flowOut = adapter.flowOut();
  if (flowOut != nullptr && flowOut->isFull() && !flowOut->isCompleteSent()) return;
  auto const* const key = reinterpret_cast<char const*>(out->lastPayload());
  exchange.slotSent(adapter.entityId(), attribute, {key, keySize});
}

// Reports.

void AdapterHost::tooLong(std::string place) {
  if (std::find(tooLongReported_.begin(), tooLongReported_.end(), place) !=
      tooLongReported_.end()) {
    return;
  }
  ++stats.tooLong;
  report("can't send " + place + ": message too long for the log");
  constexpr std::size_t mostRemembered = 1000;
  if (tooLongReported_.size() < mostRemembered) tooLongReported_.push_back(std::move(place));
}

void AdapterHost::sendComplete(EntityId id) {
  MsgHeader header;
  header.entityId = id;
  out->frameIs(FrameKind::complete, header);
  out << Connection::Out::TransactToken::tokenBegin << Connection::Out::TransactToken::tokenEnd;
}

LinkDebt AdapterHost::debt() const {
  LinkDebt debt;
  reactors.forEach([&](Sa const& adapter) {
    FlowOut* const flowOut = adapter.flowOut();
    if (flowOut == nullptr) return;
    ++debt.entities;
    debt.oldestMs = std::max(debt.oldestMs, nowMs - flowOut->owedSinceMs());
    for (TypeRows const* rows = &adapter.rows(); rows != nullptr; rows = rows->base) {
      for (AttrRow const& row : *rows) {
        debt.attributes += row.owesItself(*flowOut) ? 1 : 0;
        debt.keys += row.owedKeys(*flowOut);
      }
    }
  });
  return debt;
}

std::string AdapterHost::brokenInvariant() const {
  std::string broken;
  flowIns.forEachId([&](EntityId id) {
    if (reactors.reactor(id) == nullptr) broken = "H1: a FlowIn without an adapter";
  });
  if (!inHand.isIdle()) broken = "H2: a message is still in hand";
  if (broken.empty()) broken = reactors.brokenInvariant();
  if (broken.empty()) broken = scheduler.brokenInvariant();
  if (char const* const wrong = exchange.brokenInvariant()) broken = wrong;
  return broken;
}

std::string placeText(Entity::MoxNboAttrLogSa const& adapter, AttributeId attribute) {
  Entity const* const entity = adapter.rawEntity();
  if (entity == nullptr) return "an entity that is gone";
  return std::string(entity->fullName().view()) + "." +
         std::string(entity->attributeString(attribute).view());
}

void InHand::sendAllNoted() {
  for (auto& [noted, notify] : std::exchange(noted_, {})) {
    if (noted->isRetired()) continue;
    try {
      notify();
    } catch (std::exception const&) {
      // As from any handler: a change of a read-only copy, or one that the peer would not take.
      noted->onNotificationException(0);
    }
  }
}

// What In asks of the connection.

Ptr<Entity> In::nextEntity() {
  EntityId const id = nextEntityId();
  AdapterHost const* const shared = host();
  if (!id) return {};
  Ptr<Entity> const entity = shared ? shared->reactors.entity(id) : Ptr<Entity>();
  if (!entity && (!shared || shared->reactors.naming(id) == Naming::unknown)) {
    throw StreamException(StreamError::badId);
  }
  return entity;
}

void In::unknownEnumsInc() {
  if (AdapterHost* const shared = host()) ++shared->stats.unknownEnums;
}

unsigned long long referenceId(Ptr<Out> const& out, Entity const* target) {
  return target ? target->entityId(out, true, true, true).value() : 0;
}

}  // namespace NboAttrLog
}  // namespace Mox
