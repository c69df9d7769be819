// The middle of a connection: the table that turns entity ids into stream adapters, the dispatch
// of received frames, and the scheduler of flow-outs. Connections own one each and drive it;
// adapters and writers ask it.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <tuple>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

#include "Mox/Dir.h"
#include "Mox/Entity.h"
#include "Mox/HashMap.h"
#include "Mox/Ptr.h"
#include "attrlog/adapter/FlowIn.h"
#include "attrlog/adapter/FlowOut.h"
#include "attrlog/adapter/StreamAdapter.h"
#include "attrlog/link/Imports.h"
#include "attrlog/wire/FrameParser.h"
#include "attrlog/wire/In.h"
#include "attrlog/wire/Out.h"
#include "attrlog/wire/SlotTable.h"

namespace MOX_API Mox {
namespace NboAttrLog {

struct AttrRow;
struct Compound;
struct MessageScan;

/// What one end of a connection is ready to do.
struct LinkOptions {
  std::string name = "peer";  ///< told to the peer, and used in reports
  bool grantsWrite = false;   ///< the peer may write what this end exports
  bool wantsWrite = false;    ///< this end writes what it imports
  bool schemaStrict = true;   ///< refuse a peer of another schema
  std::uint64_t schemaHash = 0;
  std::size_t outCapacity = defaultCapacity;
  std::uint64_t greetingTimeoutMs = 10000;
  /// How long a peer may take to finish a frame that it has begun.
  std::uint64_t frameTimeoutMs = 30000;
  /// How long an ack may wait for a frame that takes it along, unless this end only listens.
  std::uint64_t ackDelayMs = 20;
};

/// Counts since the connection began.
struct LinkStats {
  std::uint64_t framesSent = 0;
  std::uint64_t framesReceived = 0;
  std::uint64_t bytesSent = 0;  ///< the link's count, as the next one
  std::uint64_t bytesReceived = 0;
  std::uint64_t strays = 0;       ///< frames about entities that this end does not know (any more)
  std::uint64_t conflicts = 0;    ///< the peer's writes that crossed this end's own
  std::uint64_t reflected = 0;    ///< the peer's writes that were answered with this end's value
  std::uint64_t undelivered = 0;  ///< own writes that a closed connection left unacknowledged
  std::uint64_t unknownEnums = 0;
  std::uint64_t unknownAttrs = 0;
  std::uint64_t refusedOrphans = 0;
  std::uint64_t readOnlyWrites = 0;
  std::uint64_t handlerExceptions = 0;
  std::uint64_t fullTransfersReceived = 0;
};

/// What a connection owes its peer at one moment: marks, not values.
struct LinkDebt {
  std::uint64_t entities = 0;
  std::uint64_t attributes = 0;  ///< scalars, references, children, collections not yet walked
  std::uint64_t keys = 0;        ///< single members of collections
  std::uint64_t oldestMs = 0;    ///< age of the oldest mark, within one walk over its entity
};

/// A frame as an observer sees it, behind its processing.
using FrameObserver = std::function<void(Frame const&)>;

class Demuxer : public PtrInterface {
 public:
  /// The mode field. Transactions are started locally only below 2.
  enum class Mode : std::uint8_t { greeting = 0, running = 1, closed = 2 };

  explicit Demuxer(LinkOptions const& options);
  ~Demuxer() override;

  LinkOptions const& options() const { return options_; }
  LinkStats const& stats() const { return stats_; }
  Mode mode() const { return mode_; }
  Ptr<Out> const& out() const { return out_; }
  Ptr<In> const& in() const { return in_; }
  std::string const& peerName() const { return peer_.peerName; }

  // Ids and adapters.

  /// The adapter with this id; null for a stray.
  Entity::MoxNboAttrLogSa* reactor(EntityId id) const { return reactors_[id]; }
  /// Takes an id out of the table; gives back its adapter.
  Ptr<Entity::MoxNboAttrLogSa> reactorDel(EntityId const& id);
  std::size_t reactorCount() const { return reactors_.size(); }
  /// Calls `visit` for each adapter of the table; it must change nothing.
  void reactorsVisit(std::function<void(Entity::MoxNboAttrLogSa const&)> const& visit) const;
  /// The live entity of an announced or bound id; null for none.
  Ptr<Entity> entity(EntityId id) const;
  /// Where an id that the peer may use leads to.
  enum class Naming : std::uint8_t {
    known,    ///< to an entity
    refused,  ///< to one that this end did not take: read as null
    gone,     ///< to one that this end has parted with, which the peer could not know yet
    unknown,  ///< nowhere: the peer is at fault
  };
  Naming naming(EntityId id) const;
  /// True: ids mean the same on all connections of the process.
  bool carriesUnifiedIds() const { return true; }
  /// Chooses the id of a new adapter and enters it in the table.
  void assignEntityId(Entity::MoxNboAttrLogSa& adapter);
  /// Enters an adapter under an id that the peer announced (`bound`) or that this end chose.
  void reactorIs(EntityId id, Entity::MoxNboAttrLogSa& adapter, bool bound);
  /// The creation or orphan message of the adapter's entity is in the buffer.
  void handleAnnounced(Entity::MoxNboAttrLogSa& adapter);
  /// Ends an adapter's part in the connection, once and for all.
  void retire(Entity::MoxNboAttrLogSa& adapter);
  /// Derives the bits of an adapter's flags that follow from its state.
  void settleFlags(Entity::MoxNboAttrLogSa& adapter);
  /// The child under the key of a creation message has another id here: its adapter is retired,
  /// the child is kept.
  void checkEphemeralEntityDeletion(Entity* child, EntityId const& id, bool);

  // Flow-out.

  /// Makes the adapter's FlowOut. `full`: everything is owed and the end is told to the peer.
  FlowOut* createFlowOut(Entity::MoxNboAttrLogSa& adapter, ConnectDesc const& desc, bool full,
                         AttributeId start);
  /// Starts the full transfer of an adapter's entity.
  void transferIs(Entity::MoxNboAttrLogSa& adapter);
  /// True while a run may go on.
  bool continueFlowOut();
  /// True while a scheduled run is on the stack.
  bool inRun() const { return runDepth_ != 0; }
  /// A change passed: a parked flow-out is tried again.
  void unpark(Entity::MoxNboAttrLogSa& adapter);
  /// Sends what is owed until nothing is left or the buffer is short. `flush` moves committed
  /// bytes out between two runs.
  void runFlowOuts(std::function<void()> const& flush);
  /// True while any flow-out waits for its turn or for room.
  bool hasWaitingFlowOut() const { return !quick_.empty() || !bulk_.empty(); }
  /// True while anything waits for room in the buffer.
  bool hasOwed() const {
    return hasWaitingFlowOut() || !withdrawalsOwed_.empty() || !exportsWaiting_.empty() ||
           !repeatsOwed_.empty();
  }
  /// FlowOuts that exist, those that wait for something else than room included.
  std::size_t flowOutCount() const { return flowOutCount_; }
  /// Counts what is owed, entity by entity: for people, not for hot paths.
  LinkDebt debt() const;
  /// When an ack frame must go out, unless another frame takes the ack along before.
  std::optional<std::uint64_t> ackDueMs() const;
  /// The link's clock, told at the beginning of each turn.
  void nowMsIs(std::uint64_t nowMs) { nowMs_ = nowMs; }
  /// The id of a referenced entity for a message. 0 for null. An entity that stands in no tree of
  /// this connection is announced by itself. Throws `AttrLogRecordException` when that has been
  /// done in the middle of the message, `EntityIdUnavailableException` when the peer can't know
  /// the entity yet.
  EntityId referenceId(Entity const* target);
  /// The adapter's flow-out has stopped at the entity that `referenceId` has just refused.
  void blockedIs(Entity::MoxNboAttrLogSa& adapter);
  /// An entity has an id, or none is to be waited for any more: those that wait for it try again.
  void wake(Entity const* target);
  void wakeAll();

  // Reading.

  Ptr<FlowIn> flowIn(EntityId const& id) const;
  Ptr<FlowIn> flowInIs(EntityId const& id);
  Ptr<FlowIn> flowInDel(EntityId const& id);
  /// The value in pieces of that entity, if one is open, is at its end. So is its FlowIn then, but
  /// for one that a transaction still needs.
  void openValueDel(EntityId const& id, AttributeId attribute);
  std::size_t flowInCount() const { return flowIns_.size(); }
  void unknownEnumsInc(unsigned int by) { stats_.unknownEnums += by; }
  void unknownAttrsInc() { ++stats_.unknownAttrs; }
  void handlerExceptionsInc() { ++stats_.handlerExceptions; }

  /// Applies the whole frames at the front of what was received. Throws nothing: a refused
  /// stream is told by `error()`.
  void dispatchReceived();
  /// True while a message is being applied through this adapter.
  bool isApplying(StreamAdapter const& adapter) const { return applyingAdapter_ == &adapter; }
  /// True while a message about this attribute is being applied through this adapter.
  bool isApplying(StreamAdapter const& adapter, AttributeId attribute) const {
    return applyingAdapter_ == &adapter && applyingAttribute_ == attribute;
  }
  /// True while a message about another attribute is being applied through this adapter.
  bool isApplyingOther(StreamAdapter const& adapter, AttributeId attribute) const {
    return applyingAdapter_ == &adapter && applyingAttribute_ != attribute;
  }
  /// Remembers a change made by a subscriber about the slot in hand; it is told again when the
  /// message is through.
  void noteSlot(Entity::MoxNboAttrLogSa& adapter, std::function<void()> tell);
  /// A change of a read-only copy was refused: the peer is asked to say the slot again.
  void refusedHere(Entity::MoxNboAttrLogSa& adapter, AttrRow const& row, void const* key);
  /// True while the peer may change what this end exports.
  bool mayPeerWrite() const {
    return options_.grantsWrite && (peer_.bits & Greeting::wantsWrite) != 0;
  }
  /// True while this end may change what it imports.
  bool mayWrite() const { return options_.wantsWrite && (peer_.bits & Greeting::grantsWrite) != 0; }
  /// True while this end holds roots that it may not write.
  bool importsReadOnly() const { return imports_->size() != 0 && greeted() && !mayWrite(); }
  /// Own frames that the peer has not begun to process.
  std::uint64_t unacknowledgedFrames() const { return framesCommitted_ - peerAck_; }
  /// Slots about which the peer has not acknowledged this end's last word.
  std::size_t unacknowledgedSlots() const { return slots_.liveCount(); }
  /// A setter is about to be called for the message in hand: from here on it counts as applied.
  void appliedIs() { applied_ = true; }
  /// The full-transfer flag of the frame in hand.
  bool frameStartsHold() const { return frameStartsHold_; }

  // Roots.

  void exportIs(Ptr<Entity> const& root);
  void exportDel(Ptr<Entity> const& root);
  /// No further root will be exported at first: told to the peer behind the last one.
  void exportsDone();
  /// Where imported roots are entered by name; null: roots are refused.
  void importDirIs(Ptr<Dir> const& dir) { importDir_ = dir; }
  /// Where this end remembers what peers brought; a demuxer by itself has its own.
  void importsIs(std::shared_ptr<Imports> const& imports) { imports_ = imports; }
  /// True once the peer has told that its roots are out and every full transfer has ended.
  bool inStep() const;
  bool peerExportsDone() const { return peerExportsDone_; }

  // Life.

  /// Sends the greeting.
  void begin();
  /// The peer's greeting has been accepted.
  bool greeted() const { return mode_ == Mode::running; }
  /// "log: CODE at stream offset N, entity ID, attribute A"; empty while all is well.
  std::string const& error() const { return error_; }
  StreamError errorCode() const { return errorCode_; }
  /// Says why the stream ends, to the peer too, unless an error stands already.
  void errorIs(StreamError code, std::string const& text);
  /// Drops both buffers and parts every adapter. No entity is changed.
  void close();
  /// Lets go of retired adapters. Only outside of handlers.
  void emptyGraveyard() { graveyard_.clear(); }

  void frameObserverIs(FrameObserver observer) { observer_ = std::move(observer); }
  /// Called once, when the peer's greeting has been accepted and before any root goes out.
  void greetedObserverIs(std::function<void()> observer) { greeted_ = std::move(observer); }
  /// Told a line about each thing that somebody who looks after the process wants to know.
  using Reporter = std::function<void(std::string const& line)>;
  void reporterIs(Reporter reporter) { reporter_ = std::move(reporter); }
  void report(std::string const& line) const {
    if (reporter_) reporter_(line);
  }
  /// `wake` is called at the first thing behind each `wakerArm` that is to be sent or done.
  void wakerIs(std::function<void()> wake) { wake_ = std::move(wake); }
  void wakerArm() { isWakerArmed_ = true; }
  /// There is something to be sent or done.
  void turnIsWanted() {
    if (isWakerArmed_) wake();
  }

  // Called by `Out` when a frame is ended.

  std::uint32_t framesBegun() const { return static_cast<std::uint32_t>(framesBegun_); }
  void handleCommitted(FrameKind kind, MsgHeader const& header, unsigned char const* payload,
                       std::size_t size) {
    ++stats_.framesSent;
    ackSent_ = framesBegun_;
    turnIsWanted();
    if (!isCounted(kind)) return;
    ++framesCommitted_;
    if (kind == FrameKind::message && mayPeerWrite()) noteSent(header, payload, size);
  }

 private:
  class MoxFlowIn : public ValueMember<MoxFlowIn, EntityId, Ptr<FlowIn>> {
   public:
    using ValueMember<MoxFlowIn, EntityId, Ptr<FlowIn>>::ValueMember;
  };

  using Sa = Entity::MoxNboAttrLogSa;

  void wake();

  // Ids and adapters.
  void holdIs(Sa& adapter, bool hold);
  void parkedIs(Sa& adapter, bool parked);
  void flowOutDel(Sa& adapter);
  void blockedDel(Sa& adapter);
  void transactionDrop(Sa& adapter);

  // Reading.
  void dispatch(Frame const& frame);
  void dispatchGreeting(Greeting const& greeting);
  void dispatchMessage(Frame const& frame);
  void dispatchOrphan(Frame const& frame);
  void dispatchWithdrawal();
  void dispatchMarker(Frame const& frame);
  void dispatchComplete(Frame const& frame);
  void dispatchRepeat(Frame const& frame);
  void dispatchError(Frame const& frame);
  void dropStaleShelved();
  void acknowledgedIs(std::uint32_t ack) {
    if (ack != static_cast<std::uint32_t>(peerAck_) || !goneTold_.empty()) handleAck(ack);
  }
  void handleAck(std::uint32_t ack);
  void applyNumber(Sa& adapter, AttrRow const& row, Frame const& frame);
  void dispatchScanned(Sa& adapter, Frame const& frame);
  void scanAndApply(Sa& adapter, Frame const& frame, Frame const& about, Compound const& compound);
  void apply(Sa& adapter, Frame const& frame, AttributeId attribute);
  void passOver(Frame const& frame);
  bool isConflict(Sa& adapter, AttrRow const& row, Frame const& frame, MessageScan const& scan);
  bool isReadOnlyElsewhere(Entity const& entity) const;
  void dropOpenValue(Sa& adapter, AttrRow const& row, MessageScan const& scan);
  void reflect(Sa& adapter, AttrRow const& row, Frame const& frame, MessageScan const& scan);
  /// Calls `apply` with the adapter's attribute as the one that the log is being applied to.
  template <class Apply>
  void applying(Sa& adapter, AttributeId attribute, Apply const& apply);
  /// Tells what subscribers changed about the slot in hand, now that its message is through.
  void tellNoted() {
    if (!noted_.empty()) tellAllNoted();
  }
  void tellAllNoted();
  /// The key of the slot follows, if it has one, and the end token.
  void repeatBegin(EntityId id, AttributeId attribute);
  void sendRepeats();
  void reportUnknown(Sa const& adapter, AttributeId attribute);

  // Flow-out.
  bool runOne(Sa& adapter);
  void queueStopped();
  void queue(Sa& adapter);
  void sendComplete(EntityId id);
  bool owesAck() const;
  void sendAck();
  void noteSent(MsgHeader const& header, unsigned char const* payload, std::size_t size);
  bool isAuthority(Sa const& adapter) const {
    return !adapter.hasFlag(notAuthority | readOnlyRemote);
  }

  // Roots.
  void exportWaiting();
  void announce(Ptr<Entity> const& entity);
  void sendWithdrawals();
  bool isMounted(Entity& root) const;
  void goneIs(EntityId id);
  void settleGone();
  std::uint32_t rootFlags(bool exported) const;

  LinkOptions options_;
  LinkStats stats_;
  Mode mode_ = Mode::greeting;
  Greeting peer_;
  Ptr<Out> out_;
  Ptr<In> in_;

  HashMap<Sa, EntityId> reactors_;
  HashMap<MoxFlowIn, EntityId, Ptr<FlowIn>> flowIns_;
  std::vector<Ptr<Sa>> graveyard_;

  std::deque<Ptr<Sa>> quick_;
  std::vector<Ptr<Sa>> bulk_;
  std::vector<Ptr<Sa>> stopped_;
  std::unordered_multimap<Entity const*, Sa*> blocked_;  ///< by the entity that is waited for
  Entity const* unavailable_ = nullptr;
  std::size_t flowOutCount_ = 0;
  std::size_t parkedCount_ = 0;
  int runDepth_ = 0;
  bool runStopped_ = false;
  bool onlyQueueTransfers_ = false;
  std::uint64_t runStart_ = 0;
  std::uint64_t nowMs_ = 0;

  StreamAdapter const* applyingAdapter_ = nullptr;
  AttributeId applyingAttribute_ = 0;
  bool frameStartsHold_ = false;
  bool applied_ = false;
  bool isDispatching_ = false;
  std::vector<std::pair<Ptr<Sa>, std::function<void()>>> noted_;
  std::set<std::pair<void const*, AttributeId>> unknownReported_;

  std::uint64_t framesBegun_ = 0;      ///< counted frames of the peer
  std::uint64_t framesCommitted_ = 0;  ///< own counted frames
  std::uint64_t peerAck_ = 0;          ///< those that the peer has begun to process
  std::uint64_t ackSent_ = 0;
  std::optional<std::uint64_t> ackDueMs_;  ///< of the first frame that isn't acknowledged
  SlotTable slots_;
  std::uint64_t streamOffset_ = 0;
  std::size_t holds_ = 0;

  std::deque<Ptr<Entity>> exportsWaiting_;
  bool exportsDoneOwed_ = false;
  bool peerExportsDone_ = false;
  bool isShelfSwept_ = false;
  Ptr<Dir> importDir_;
  std::shared_ptr<Imports> imports_ = std::make_shared<Imports>();
  std::deque<EntityId> withdrawalsOwed_;
  /// Slots that the peer is still to be asked for: entity, attribute, key.
  std::set<std::tuple<std::uint64_t, AttributeId, std::string>> repeatsOwed_;
  std::unordered_set<std::uint64_t> refused_;
  std::unordered_set<std::uint64_t> gone_;
  std::vector<EntityId> gonePending_;  ///< gone ids; the peer has not been told all of it yet
  std::deque<std::pair<std::uint64_t, EntityId>> goneTold_;  ///< by the frame that told the last

  std::string error_;
  StreamError errorCode_ = StreamError::none;
  FrameObserver observer_;
  std::function<void()> greeted_;
  Reporter reporter_;
  std::function<void()> wake_;
  bool isWakerArmed_ = false;
};

/// "slice/fap[f].description", for reports.
std::string placeText(Entity::MoxNboAttrLogSa const& adapter, AttributeId attribute);

/// All live demuxers of the process. One thread's, like the entities.
class DemuxerManager {
 public:
  void demuxerIs(Demuxer* demuxer);
  void demuxerDel(Demuxer* demuxer);
  /// A snapshot to walk.
  std::vector<Ptr<Demuxer>> nboDemuxerIterator() const;
  std::vector<Demuxer*> const& demuxers() const { return demuxers_; }

 private:
  std::vector<Demuxer*> demuxers_;
};

DemuxerManager& globalNboAttrLogDemuxerManager();

}  // namespace NboAttrLog

/// The demuxer that serves an In; null for none.
inline NboAttrLog::Demuxer* demuxFor(Ptr<NboAttrLog::In> const& in) {
  return in ? in->demuxer() : nullptr;
}

}  // namespace Mox
