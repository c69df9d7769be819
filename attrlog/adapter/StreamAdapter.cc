// The parts of a stream adapter that are the same for all entity types.
#include "attrlog/adapter/StreamAdapter.h"

#include "Mox/Exception.h"
#include "attrlog/adapter/AdapterHost.h"
#include "attrlog/adapter/Rows.h"
#include "registry/MoxAttr.h"

namespace Mox {

using NboAttrLog::AttrRow;

namespace {

/// What a new adapter starts with, whatever its parent's flags say.
PtrInterface::NotifieeConst::Mox_BitSet constructedFlags(std::uint32_t given) {
  constexpr std::uint32_t never = NboAttrLog::deferAll | NboAttrLog::writingOn |
                                  NboAttrLog::writingOff | NboAttrLog::inScheduledRun;
  return (given & ~never) | NboAttrLog::noFlowOut | NboAttrLog::needsNoCreation |
         NboAttrLog::weakReference;
}

}  // namespace

StreamAdapter::SyncMode StreamAdapter::SyncModeInstance(unsigned int value) {
  if (value > static_cast<unsigned int>(SyncMode::suspended)) throwRangeException("SyncMode");
  return static_cast<SyncMode>(value);
}

StreamAdapter::StreamAdapter(Mox_BitSet flags, Ptr<NboAttrLog::Out> const& out,
                             PtrInterface* channel)
    : Notifiee(constructedFlags(flags.word())), out_(out), channel_(channel) {
  // On a live connection every announcement is followed by the entity's whole state.
  NboAttrLog::AdapterHost const* const shared = host();
  if (shared && shared->isRunning()) syncMode_ = SyncMode::live;
  if (shared) out_->host()->reactors.outsideInc();
}

StreamAdapter::~StreamAdapter() {
  if (host() && !isRetired()) host()->reactors.outsideDec();
}

void StreamAdapter::handleSyncMode() {}

void StreamAdapter::syncModeIs(SyncMode mode) { syncMode_ = mode; }

NboAttrLog::Demuxer const* StreamAdapter::streamDemuxer() const {
  return out_ ? out_->demuxer() : nullptr;
}
NboAttrLog::Demuxer* StreamAdapter::streamDemuxer() { return out_ ? out_->demuxer() : nullptr; }

void StreamAdapter::notificationFlagsIs(Mox_BitSet bits) {
  Mox_BitSet merged = mox_bitSet();
  merged.notificationFlagsIs(bits);
  ownBitSetIs(merged);
  deriveFlags();
}

bool StreamAdapter::readOnlyRemoteOk(AttributeId) const { return false; }

void StreamAdapter::moxLifeIs(Life life) {
  Life const before = life_;
  life_ = life;
  // Somebody else may have set the bit meanwhile, to have every change deferred.
  if (before == Life::held) flagsIs(NboAttrLog::deferAll, false);
  deriveFlags();
}

void StreamAdapter::moxFlowOutIs(Ptr<NboAttrLog::FlowOut> const& flowOut) {
  flowOut_ = flowOut;
  deriveFlags();
}

void StreamAdapter::deriveFlags() {
  Mox_BitSet bits = mox_bitSet();
  bits.maskIs(NboAttrLog::noFlowOut, !flowOut_);
  bits.maskIs(NboAttrLog::needsNoCreation, true);
  bits.maskIs(NboAttrLog::writingOn, isAnnounced());
  bits.maskIs(NboAttrLog::writingOff, life_ == Life::retired);
  if (life_ == Life::held) bits.maskIs(NboAttrLog::deferAll, true);
  ownBitSetIs(bits);
}

void StreamAdapter::ownNotifierIs(Ptr<PtrInterface const> const& notifier) {
  PtrInterface::Notifiee::notifierIs(notifier);
  moxRegisteredIs(false);
}

Entity::MoxNboAttrLogSa::MoxNboAttrLogSa(Mox_BitSet flags, unsigned int,
                                         Ptr<NboAttrLog::Out> const& out, PtrInterface* channel,
                                         NboAttrLog::TypeRows const& rows)
    : StreamAdapter(flags, out, channel), rows_(rows) {}

Entity::MoxNboAttrLogSa::~MoxNboAttrLogSa() = default;

void Entity::MoxNboAttrLogSa::startLocalTransactions() {
  NboAttrLog::AdapterHost const* const shared = host();
  if (!shared || shared->mode() == NboAttrLog::ConnectionMode::closed ||
      !hasFlag(NboAttrLog::changeFromLog)) {
    return;
  }
  // A singleton has no members to sweep, and nothing would wake its child again.
  auto const type =
      syncMode() == SyncMode::live ? AttrTransactionType::begin : AttrTransactionType::end;
  for (AttrRow const& row : rows_) {
    if (row.isCollection()) handleAttrTransaction(row.id, type, 0);
  }
}

void Entity::MoxNboAttrLogSa::moxOnInit() { doAssignEntityId(); }

void Entity::MoxNboAttrLogSa::doAssignEntityId() {
  if (NboAttrLog::AdapterHost* const shared = host()) shared->assignEntityId(*this);
}

Ptr<Entity const> Entity::MoxNboAttrLogSa::moxNotifierEntity() const {
  return Ptr<Entity const>(rawEntity());
}
Ptr<Entity> Entity::MoxNboAttrLogSa::moxNotifierEntity() { return Ptr<Entity>(rawEntity()); }

void Entity::MoxNboAttrLogSa::freeResyncState(Ptr<NboAttrLog::FlowOut> const&) {}

AttributeId Entity::MoxNboAttrLogSa::handleAttrFlowOut(AttributeId) { return 0; }

void Entity::MoxNboAttrLogSa::doNotification(AttributeId, void const*) {}

void Entity::MoxNboAttrLogSa::handleAttrTransaction(AttributeId attribute, AttrTransactionType type,
                                                    unsigned int) {
  NboAttrLog::AdapterHost* const shared = host();
  if (!shared) return;
  Ptr<NboAttrLog::FlowIn> const flowIn = shared->flowIns.flowIn(entityId());
  if (!flowIn) return;
  if (type == AttrTransactionType::begin) {
    flowIn->openTransactionIs(attribute);
  } else if (flowIn->openTransaction() == attribute) {
    // An aborted collection stays open: what the peer sends next names its members again.
    AttrRow const* const row = rows_.find(attribute);
    if (type == AttrTransactionType::abort && row && row->isCollection()) return;
    flowIn->openTransactionIs(0);
    flowIn->handlingTransactionIs(false);
    // Nothing else needs it unless a value is still open.
    if (!flowIn->iter()) shared->flowIns.flowInDel(entityId());
  }
}

void Entity::MoxNboAttrLogSa::doRemountSelf(Ptr<NboAttrLog::Out> const& out) {
  NboAttrLog::AdapterHost* const shared = host();
  if (!shared) return;
  Ptr<Entity> const entity = moxNotifierEntity();
  // The derived walk still finds the children through the Out, which stays readable.
  shared->retire(*this);
  if (out && out->host() && entity) out->host()->announceIs(entity);
}

void Entity::MoxNboAttrLogSa::onNotificationException(AttributeId) {
  if (NboAttrLog::AdapterHost* const shared = host()) ++shared->stats.handlerExceptions;
}

void Entity::MoxNboAttrLogSa::onZeroReferences() {
  if (NboAttrLog::AdapterHost* const shared = host()) shared->retire(*this);
}

bool Entity::MoxNboAttrLogSa::handlingFlowInFor(AttributeId attribute) const {
  NboAttrLog::AdapterHost const* const shared = host();
  return shared && shared->inHand.isApplying(*this, attribute);
}

bool Entity::MoxNboAttrLogSa::convertedToWritable(bool) const { return false; }

void Entity::MoxNboAttrLogSa::doThrowReadOnly(Ptr<MoxAttr const> const& attribute) const {
  throwInternalException("change of " + (attribute ? String8(attribute->name()) : "an attribute") +
                         " of " + rawEntity()->fullName() + ", which is a read-only copy");
}

bool Entity::MoxNboAttrLogSa::prepareImmediateTransmission(AttributeId attribute,
                                                           bool shortOfBuffer) {
  if (hasFlag(NboAttrLog::inScheduledRun)) return true;
  NboAttrLog::FlowOut* const flowOut = this->flowOut();
  if (!flowOut) return true;
  NboAttrLog::FlowScheduler& scheduler = host()->scheduler;
  if (flowOut->attrId() == attribute && flowOut->valueIter() && !flowOut->valueIterKey()) {
    // A string in pieces has changed: its tail must not follow.
    freeResyncState(Ptr<NboAttrLog::FlowOut>(flowOut));
    flowOut->pendingAbortIs(attribute, true);
    scheduler.unpark(*this);
    return false;
  }
  scheduler.unpark(*this);
  if (shortOfBuffer || hasFlag(NboAttrLog::deferAll)) return false;
  AttrRow const* row = rows_.find(attribute);
  return row && row->form == WireForm::plain;
}

void Entity::MoxNboAttrLogSa::sendTransactionMarker(AttributeId attribute, AttrTransactionType type,
                                                    unsigned int number) {
  NboAttrLog::MsgHeader header;
  header.entityId = entityId();
  header.attributeId = attribute;
  Ptr<NboAttrLog::Out> const& out = nboAttrLogOut();
  out->frameIs(NboAttrLog::FrameKind::marker, header);
  out << Connection::Out::TransactToken::tokenBegin << static_cast<unsigned int>(type) << number
      << Connection::Out::TransactToken::tokenEnd;
}

bool Entity::MoxNboAttrLogSa::continueFlowOut() const {
  NboAttrLog::AdapterHost* const shared = host();
  return shared && shared->scheduler.continueFlowOut();
}

void Entity::MoxNboAttrLogSa::doFixChildFlags(Ptr<StreamAdapter> const& child) {
  child->moxLifeIs(child->life());
}

void Entity::MoxNboAttrLogSa::doEntityIdIs(EntityId const& id, NboAttrLog::Demuxer*, bool bound) {
  if (NboAttrLog::AdapterHost* const shared = host()) shared->reactorIs(id, *this, bound);
}

void Entity::MoxNboAttrLogSa::doThis() {
  if (NboAttrLog::AdapterHost* const shared = host()) shared->scheduler.transferIs(*this);
}

void Entity::MoxNboAttrLogSa::doBaseMoxNboAttrLogSaMsg(AttributeId, DeserializationOptions const&,
                                                       unsigned int, Ptr<NboAttrLog::In> const&) {
  if (NboAttrLog::AdapterHost* const shared = host()) ++shared->stats.unknownAttrs;
}

std::uint32_t Entity::MoxNboAttrLogSa::childFlags() const {
  return inheritedFlagsMask() & Mox_BitSet::notificationBitMask() & flags();
}

NboAttrLog::FlowOut* Entity::MoxNboAttrLogSa::createFlowOut(AttributeId attribute) {
  NboAttrLog::AdapterHost* const shared = host();
  if (!shared) return nullptr;
  NboAttrLog::FlowOut* const made =
      shared->scheduler.createFlowOut(*this, ConnectDesc(), false, 0x7fffffff);
  if (made) made->attrIdIs(attribute);
  return made;
}

}  // namespace Mox
