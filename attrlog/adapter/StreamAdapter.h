// The base of all stream adapters: one adapter keeps one entity in step on one connection. The
// adapters of the entity types derive from Entity::MoxNboAttrLogSa and are generated; the demuxer
// drives them. Nothing here knows an entity type.
#pragma once

#include <cstdint>

#include "Mox/AttributeId.h"
#include "Mox/Entity.h"
#include "Mox/Notifiee.h"
#include "Mox/Ptr.h"
#include "Mox/String8.h"
#include "attrlog/adapter/FlowOut.h"
#include "attrlog/wire/In.h"
#include "attrlog/wire/Out.h"
#include "attrlog/wire/Wire.h"

namespace MOX_API Mox {

class MoxAttr;
class MoxType;

/// The mounts of two directories that a flow-out joins; both empty here.
struct EntityUriPath {
  String8 path;
};
struct ConnectDesc {
  EntityUriPath local;
  EntityUriPath remote;
};

namespace NboAttrLog {

class AdapterHost;
class Demuxer;
struct TypeRows;

/// Bits of an adapter's flags word.
enum AdapterFlag : std::uint32_t {
  readOnlyHere = 1u << 2,        ///< a change made here is an error
  readOnlyRemote = 1u << 3,      ///< the peer may not write
  changeFromLog = 1u << 4,       ///< one-shot: the change in hand came from the log
  boundByTransaction = 1u << 5,  ///< silent until its id is settled
  weakReference = 1u << 6,
  writingOff = 1u << 8,
  applyingSync = 1u << 13,  ///< a sync message is being applied
  registrationMemory = 1u << 19,
  noFlowOut = 1u << 20,        ///< exactly while the adapter has no FlowOut
  inScheduledRun = 1u << 22,   ///< exactly during a scheduled flow-out of this adapter
  notAuthority = 1u << 23,     ///< this end imported the entity
  needsNoCreation = 1u << 25,  ///< announced or bound: no creation message is owed
  writingOn = 1u << 26,        ///< announced or bound, and not retired
  deferAll = 1u << 27,         ///< mark every change, send none
};

}  // namespace NboAttrLog

class StreamAdapter : public PtrInterface::Notifiee {
 public:
  enum class SyncMode : std::uint32_t { idle = 0, ended = 1, live = 2, suspended = 3 };
  enum class AttrTransactionType : std::uint32_t { begin = 0, abort = 1, end = 2 };

  /// How an adapter came to its connection.
  enum class Origin : std::uint8_t { exportedOrphan, importedOrphan, announced, bound };

  /// The life of an adapter on its connection.
  ///
  ///     unannounced ──announced, bound──> inStep <──> owing <──> parked, blocked
  ///          any ──bound with a transfer to come──> held ──complete──> inStep, owing
  ///          any ──> retired
  enum class Life : std::uint8_t {
    unannounced,  ///< the peer doesn't know the entity by this adapter's id
    inStep,       ///< nothing is owed
    owing,        ///< has a FlowOut that waits for its turn
    parked,       ///< has a FlowOut of which nothing can be sent until something changes
    blocked,      ///< has a FlowOut that waits for another entity's id
    held,         ///< the peer transfers the entity: local changes are only marked
    retired,      ///< has left the connection for good
  };

  /// The frame that a message came in.
  struct DeserializationOptions {
    std::uint32_t sequenceNumber = 0;
    NboAttrLog::FrameKind kind = NboAttrLog::FrameKind::message;
    std::uint8_t flags = 0;
  };

  /// Throws a range exception "SyncMode" for another number.
  static SyncMode SyncModeInstance(unsigned int value);
  /// The bits that a child's adapter takes from its parent's: all but 4, 5, 10, 11, 12 and 13.
  static constexpr std::uint32_t inheritedFlagsMask() { return 0xffffc3cf; }

  ~StreamAdapter() override;

  bool isStreamAdapter() const override { return true; }

  virtual void handleSyncMode();
  /// Sends what is owed from the attribute `start` on. 0: nothing is left; else where to come back.
  virtual AttributeId handleAttrFlowOut(AttributeId start) = 0;
  /// Releases what a stopped flow-out left in its slots.
  virtual void freeResyncState(Ptr<NboAttrLog::FlowOut> const& flowOut) = 0;
  /// Gives a new adapter its id and its place in the demuxer.
  virtual void moxOnInit() = 0;
  /// Sends all that creates children, with no regard to dirty marks.
  virtual void moxInstantiateSerialize() = 0;
  /// Null when the connection is gone.
  virtual NboAttrLog::Demuxer const* streamDemuxer() const;
  virtual NboAttrLog::Demuxer* streamDemuxer();
  virtual Ptr<Entity const> moxNotifierEntity() const = 0;
  virtual Ptr<Entity> moxNotifierEntity() = 0;
  /// Sends the entity without a parent: types, constructor arguments, id.
  virtual void doSerializeOrphan() = 0;
  /// Applies one message about `attribute`, whose payload has `length` bytes. `in` empty: applied
  /// to the entity; not empty: read and reflected with this end's value.
  virtual void handleAttrDeserialization(AttributeId attribute,
                                         DeserializationOptions const& options, unsigned int length,
                                         Ptr<NboAttrLog::In> const& in) = 0;
  virtual void handleAttrTransaction(AttributeId attribute, AttrTransactionType type,
                                     unsigned int number) = 0;
  virtual void doAssignEntityId() = 0;
  /// A new FlowOut of the adapter's own type: everything from `start` on is owed.
  virtual Ptr<NboAttrLog::FlowOut> flowOutIs(Ptr<NboAttrLog::Out> const& out,
                                             ConnectDesc const& desc, bool full,
                                             AttributeId start) = 0;
  virtual EntityId realEntityId() const { return entityId_; }
  /// Calls the handler of an attribute: `onX()` for a positive id; for a negative one `onX(key)`
  /// of that collection, with the key behind the pointer.
  virtual void doNotification(AttributeId attribute, void const* key) = 0;
  virtual void audit() {}
  virtual void entityIdInitializedIs(bool) {}
  virtual void syncModeIs(SyncMode mode);
  virtual void entityIdIs(EntityId const& id) { entityId_ = id; }
  virtual void streamDemuxerIs(NboAttrLog::Demuxer*) {}
  virtual void filterDel() {}
  virtual void filterIs(unsigned int) {}
  virtual void msgChannelIs(PtrInterface* channel) { channel_ = channel; }
  virtual void notificationDisabledDueToMsgChannelIs(bool) {}
  /// Marks the adapter and its notifiee for deletion and silences them; false wakes them.
  virtual void moxDoZombieReactors(bool zombie) = 0;
  /// Parts the adapter, and those of everything that its entity owns, from the connection.
  virtual void doRemountSelf(Ptr<NboAttrLog::Out> const& out) = 0;
  virtual void setFilter(unsigned int) {}

  Ptr<NboAttrLog::Out> const& nboAttrLogOut() const { return out_; }
  EntityId const& entityId() const { return entityId_; }
  bool hasUnifiedEntityId() const { return entityId_.isUnified(); }
  SyncMode syncMode() const { return syncMode_; }
  PtrInterface* channel() const { return channel_; }

  std::uint32_t flags() const { return mox_bitSet().word(); }
  bool hasFlag(std::uint32_t mask) const { return (flags() & mask) != 0; }
  void flagsIs(std::uint32_t mask, bool set) {
    Mox_BitSet bits = mox_bitSet();
    bits.maskIs(mask, set);
    ownBitSetIs(bits);
  }
  /// The part of the flags that a parent gives. Setting it leaves the bits that follow from the
  /// adapter's life as they are.
  Mox_BitSet notificationFlags() const {
    return Mox_BitSet(flags() & Mox_BitSet::notificationBitMask());
  }
  void notificationFlagsIs(Mox_BitSet bits);

  /// What the adapters of this connection share; null when the connection is gone.
  NboAttrLog::AdapterHost* host() const { return out_ ? out_->host() : nullptr; }
  /// The record of what this adapter owes; null while it owes nothing.
  NboAttrLog::FlowOut* flowOut() const { return flowOut_.get(); }
  /// True when the peer may write this attribute of a read-only entity.
  bool readOnlyRemoteOk(AttributeId attribute) const;

  Life life() const { return life_; }
  bool isRetired() const { return life_ == Life::retired; }
  /// True while the peer knows the entity by this adapter's id.
  bool isAnnounced() const { return life_ != Life::unannounced && life_ != Life::retired; }
  Origin origin() const { return origin_; }
  void originIs(Origin origin) { origin_ = origin; }
  /// True once a full transfer has begun since the last announcement.
  bool isTransferBegun() const { return isTransferBegun_; }
  void isTransferBegunIs(bool begun) { isTransferBegun_ = begun; }

  // For FlowScheduler alone, which keeps account of all lives and FlowOuts of a connection.

  /// Stores the life and derives the flag bits that follow from it.
  void moxLifeIs(Life life);
  void moxFlowOutIs(Ptr<NboAttrLog::FlowOut> const& flowOut);

 protected:
  /// `flags` is taken as it stands. The adapter belongs to the connection of `out`.
  StreamAdapter(Mox_BitSet flags, Ptr<NboAttrLog::Out> const& out, PtrInterface* channel);

  /// Stores the notifier; a weak adapter's count stays with the entity.
  void ownNotifierIs(Ptr<PtrInterface const> const& notifier);

 private:
  void deriveFlags();

  EntityId entityId_;
  SyncMode syncMode_ = SyncMode::idle;
  Origin origin_ = Origin::announced;
  Life life_ = Life::unannounced;
  bool isTransferBegun_ = false;
  Ptr<NboAttrLog::Out> out_;
  PtrInterface* channel_;
  Ptr<NboAttrLog::FlowOut> flowOut_;
};

/// The stream adapter of an entity, as far as it is the same for all types.
class Entity::MoxNboAttrLogSa : public StreamAdapter {
 public:
  ~MoxNboAttrLogSa() override;

  void moxOnInit() override;
  void moxInstantiateSerialize() override {}
  Ptr<Entity const> moxNotifierEntity() const override;
  Ptr<Entity> moxNotifierEntity() override;
  void doAssignEntityId() override;
  void freeResyncState(Ptr<NboAttrLog::FlowOut> const& flowOut) override;
  AttributeId handleAttrFlowOut(AttributeId start) override;
  void handleAttrTransaction(AttributeId attribute, AttrTransactionType type,
                             unsigned int number) override;
  void doNotification(AttributeId attribute, void const* key) override;
  void doRemountSelf(Ptr<NboAttrLog::Out> const& out) override;
  void onNotificationException(AttributeId attribute) override;
  void onZeroReferences() override;

  virtual void onParent() {}
  virtual void onVersion() {}

  /// True while a message about `attribute` is being applied through this adapter.
  bool handlingFlowInFor(AttributeId attribute) const;
  /// True when the stream, though read-only, may be written.
  bool convertedToWritable(bool) const;
  /// Throws the exception of a change of a read-only copy. Null: an attribute unknown to the type
  /// registry.
  [[noreturn]] void doThrowReadOnly(Ptr<MoxAttr const> const& attribute) const;
  /// True when a change of `attribute` may go out now, though a FlowOut exists.
  bool prepareImmediateTransmission(AttributeId attribute, bool shortOfBuffer);
  void sendTransactionMarker(AttributeId attribute, AttrTransactionType type, unsigned int number);
  /// True while a running flow-out may go on. Once false it stays false to the end of the run.
  bool continueFlowOut() const;
  /// Derives the bits of the child's flags that follow from its own life.
  void doFixChildFlags(Ptr<StreamAdapter> const& child);
  /// Settles the adapter's id and enters it in the demuxer's table of reactors.
  void doEntityIdIs(EntityId const& id, NboAttrLog::Demuxer* demuxer, bool bound);
  /// Starts the entity's full transfer, unless the peer sent it or it has begun already.
  void doThis();
  /// What every id gets that no table has: counted, nothing else.
  void doBaseMoxNboAttrLogSaMsg(AttributeId attribute, DeserializationOptions const& options,
                                unsigned int length, Ptr<NboAttrLog::In> const& in);

  /// The flags that a child of this entity starts with.
  std::uint32_t childFlags() const;
  /// The rows of the entity's type.
  NboAttrLog::TypeRows const& rows() const { return rows_; }
  /// The entity, not counted; null once the adapter has retired.
  Entity* rawEntity() const {
    return const_cast<Entity*>(static_cast<Entity const*>(moxLiveNotifier()));
  }
  /// A FlowOut that owes nothing yet, made for a change that could not be sent. Null without a
  /// connection.
  NboAttrLog::FlowOut* createFlowOut(AttributeId attribute);

 protected:
  MoxNboAttrLogSa(Mox_BitSet flags, unsigned int version, Ptr<NboAttrLog::Out> const& out,
                  PtrInterface* channel, NboAttrLog::TypeRows const& rows);

  /// Begins or ends, without a message, the transactions of all collections and singletons when
  /// the adapter appears or changes its mode while the log is being applied to it.
  void startLocalTransactions();

 private:
  NboAttrLog::TypeRows const& rows_;

 public:
  /// The link of the demuxer's table.
  Ptr<MoxNboAttrLogSa> next;
};

/// An adapter's key in the demuxer's table. Whoever changes an id takes the adapter out before.
template <>
struct HashMapMember<Entity::MoxNboAttrLogSa> {
  static EntityId key(Entity::MoxNboAttrLogSa const& adapter) { return adapter.entityId(); }
};

}  // namespace Mox
