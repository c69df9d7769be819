// The parts of a stream adapter that are the same for all entity types.
#include "attrlog/adapter/StreamAdapter.h"

#include "Mox/Exception.h"
#include "attrlog/adapter/Rows.h"
#include "attrlog/link/Demuxer.h"

namespace Mox {

using NboAttrLog::AttrForm;
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
  NboAttrLog::Demuxer const* owner = connection();
  if (owner && owner->greeted()) syncMode_ = SyncMode::live;
}

StreamAdapter::~StreamAdapter() = default;

void StreamAdapter::handleSyncMode() {}

void StreamAdapter::syncModeIs(SyncMode mode) { syncMode_ = mode; }

void StreamAdapter::ownNotifierIs(Ptr<PtrInterface const> const& notifier) {
  PtrInterface const* const old = moxLiveNotifier();
  PtrInterface const* const fresh = notifier.get();
  if (old != fresh && isWeakReference()) {
    // The base counts the new one and releases the old one; a weak adapter does neither.
    if (old) ptrInc(old);
    PtrInterface::Notifiee::notifierIs(notifier);
    if (fresh) ptrDec(fresh);
  } else {
    PtrInterface::Notifiee::notifierIs(notifier);
  }
  moxRegisteredIs(false);
}

Entity::MoxNboAttrLogSa::MoxNboAttrLogSa(Mox_BitSet flags, unsigned int,
                                         Ptr<NboAttrLog::Out> const& out, PtrInterface* channel,
                                         NboAttrLog::TypeRows const& rows)
    : StreamAdapter(flags, out, channel), rows_(rows) {}

Entity::MoxNboAttrLogSa::~MoxNboAttrLogSa() = default;

void Entity::MoxNboAttrLogSa::startLocalTransactions() {
  NboAttrLog::Demuxer const* owner = connection();
  if (!owner || owner->mode() == NboAttrLog::Demuxer::Mode::closed ||
      !hasFlag(NboAttrLog::changeFromLog)) {
    return;
  }
  auto const type =
      syncMode() == SyncMode::live ? AttrTransactionType::begin : AttrTransactionType::end;
  for (AttrRow const& row : rows_) {
    if (row.isCollection() || row.form == AttrForm::singleton) {
      handleAttrTransaction(row.id, type, 0);
    }
  }
}

void Entity::MoxNboAttrLogSa::moxOnInit() { doAssignEntityId(); }

void Entity::MoxNboAttrLogSa::doAssignEntityId() {
  if (NboAttrLog::Demuxer* owner = connection()) owner->assignEntityId(*this);
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
  NboAttrLog::Demuxer* owner = streamDemuxer();
  Ptr<NboAttrLog::FlowIn> const flowIn =
      owner ? owner->flowIn(entityId()) : Ptr<NboAttrLog::FlowIn>();
  if (!flowIn) return;
  AttrRow const* row = rows_.find(attribute);
  if (!row || !row->isCollection()) return;
  if (type == AttrTransactionType::begin) {
    flowIn->openTransactionIs(attribute);
  } else if (type == AttrTransactionType::end) {
    flowIn->openTransactionIs(0);
    flowIn->handlingTransactionIs(false);
    // Nothing else needs it unless a value is still open.
    if (!flowIn->iter()) owner->flowInDel(entityId());
  }
}

void Entity::MoxNboAttrLogSa::doRemountSelf(Ptr<NboAttrLog::Out> const& out) {
  NboAttrLog::Demuxer* owner = connection();
  if (!owner) return;
  Ptr<Entity> const entity = moxNotifierEntity();
  // The derived walk still finds the children through the Out, which stays readable.
  owner->retire(*this);
  NboAttrLog::Demuxer* const next = out ? out->demuxer() : nullptr;
  if (next && entity) next->exportIs(entity);
}

void Entity::MoxNboAttrLogSa::onNotificationException(AttributeId) {
  if (NboAttrLog::Demuxer* owner = connection()) owner->handlerExceptionsInc();
}

void Entity::MoxNboAttrLogSa::onZeroReferences() {
  if (NboAttrLog::Demuxer* owner = connection()) owner->retire(*this);
}

bool Entity::MoxNboAttrLogSa::handlingFlowInFor(AttributeId attribute) const {
  NboAttrLog::Demuxer const* owner = connection();
  return owner && owner->isApplying(*this, attribute);
}

bool Entity::MoxNboAttrLogSa::convertedToWritable(bool) const { return false; }

void Entity::MoxNboAttrLogSa::doThrowReadOnly(AttributeId attribute) const {
  throwInternalException("change of " + rawEntity()->attributeString(attribute) + " of " +
                         rawEntity()->fullName() + ", which is a read-only copy");
}

bool Entity::MoxNboAttrLogSa::prepareImmediateTransmission(AttributeId attribute,
                                                           bool shortOfBuffer) {
  if (hasFlag(NboAttrLog::inScheduledRun)) return true;
  NboAttrLog::FlowOut* const flowOut = this->flowOut();
  if (!flowOut) return true;
  if (flowOut->attrId() == attribute && flowOut->valueIter() && !flowOut->valueIterKey()) {
    // A string in pieces has changed: its tail must not follow.
    freeResyncState(Ptr<NboAttrLog::FlowOut>(flowOut));
    flowOut->pendingAbortIs(attribute, true);
    connection()->unpark(*this);
    return false;
  }
  connection()->unpark(*this);
  if (shortOfBuffer || hasFlag(NboAttrLog::deferAll)) return false;
  AttrRow const* row = rows_.find(attribute);
  return row && row->form == AttrForm::plain;
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
  NboAttrLog::Demuxer* owner = connection();
  return owner && owner->continueFlowOut();
}

void Entity::MoxNboAttrLogSa::doFixChildFlags(Ptr<StreamAdapter> const& child) {
  if (NboAttrLog::Demuxer* owner = connection()) {
    owner->settleFlags(static_cast<MoxNboAttrLogSa&>(**child));
  }
}

void Entity::MoxNboAttrLogSa::doEntityIdIs(EntityId const& id, NboAttrLog::Demuxer* demuxer,
                                           bool bound) {
  demuxer->reactorIs(id, *this, bound);
}

void Entity::MoxNboAttrLogSa::doThis() {
  if (NboAttrLog::Demuxer* owner = connection()) owner->transferIs(*this);
}

void Entity::MoxNboAttrLogSa::doBaseMoxNboAttrLogSaMsg(AttributeId, DeserializationOptions const&,
                                                       unsigned int, Ptr<NboAttrLog::In> const&) {
  if (NboAttrLog::Demuxer* owner = connection()) owner->unknownAttrsInc();
}

std::uint32_t Entity::MoxNboAttrLogSa::childFlags() const {
  return inheritedFlagsMask() & Mox_BitSet::notificationBitMask() & flags();
}

NboAttrLog::FlowOut* Entity::MoxNboAttrLogSa::createFlowOut(AttributeId attribute) {
  NboAttrLog::Demuxer* owner = connection();
  if (!owner) return nullptr;
  NboAttrLog::FlowOut* made =
      owner->createFlowOut(*this, NboAttrLog::ConnectDesc(), false, 0x7fffffff);
  if (made) made->attrIdIs(attribute);
  return made;
}

}  // namespace Mox
