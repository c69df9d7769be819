// One connection of the attribute log, as its users see it: a thin face over the adapters' host,
// the reader of frames and the roots. Links own one each and drive it.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "attrlog/adapter/AdapterHost.h"
#include "attrlog/link/Reader.h"
#include "attrlog/link/Roots.h"

namespace MOX_API Mox {
namespace NboAttrLog {

/// A frame as an observer sees it, behind its processing.
using FrameObserver = std::function<void(Frame const&)>;

class Demuxer : public PtrInterface {
 public:
  using Mode = ConnectionMode;
  using Naming = NboAttrLog::Naming;

  explicit Demuxer(LinkOptions const& options);
  ~Demuxer() override;

  LinkOptions const& options() const { return host_.options; }
  LinkStats stats() const;
  Mode mode() const { return host_.mode(); }
  Ptr<Out> const& out() const { return host_.out; }
  Ptr<In> const& in() const { return host_.in; }
  /// As the peer greeted; empty before.
  std::string const& peerName() const { return host_.peer().peerName; }

  /// Its parts, for those who look inside: tests and tools.
  AdapterHost const& host() const { return host_; }

  // What adapters and their readers ask of it.

  Entity::MoxNboAttrLogSa* reactor(EntityId id) const { return host_.reactors.reactor(id); }
  /// Takes an id out of the table; returns its adapter.
  Ptr<Entity::MoxNboAttrLogSa> reactorDel(EntityId const& id) { return host_.reactors.remove(id); }
  std::size_t reactorCount() const { return host_.reactors.size(); }
  /// Calls `visit` for each adapter of the table; it must change nothing.
  void reactorsVisit(std::function<void(Entity::MoxNboAttrLogSa const&)> const& visit) const {
    host_.reactors.forEach(visit);
  }
  Naming naming(EntityId id) const { return host_.reactors.naming(id); }
  /// True: ids mean the same on all connections of the process.
  bool carriesUnifiedIds() const { return true; }
  void checkEphemeralEntityDeletion(Entity* child, EntityId const& id, bool) {
    host_.checkEphemeralEntityDeletion(child, id);
  }
  FlowOut* createFlowOut(Entity::MoxNboAttrLogSa& adapter, ConnectDesc const& desc, bool full,
                         AttributeId start) {
    return host_.scheduler.createFlowOut(adapter, desc, full, start);
  }
  /// True while any flow-out waits for its turn or for room.
  bool hasWaitingFlowOut() const { return host_.scheduler.hasWaiting(); }
  /// FlowOuts that exist, those that wait for something else than room included.
  std::size_t flowOutCount() const { return host_.scheduler.flowOutCount(); }
  Ptr<FlowIn> flowIn(EntityId const& id) const { return host_.flowIns.flowIn(id); }
  Ptr<FlowIn> flowInIs(EntityId const& id) { return host_.flowIns.flowInIs(id); }
  Ptr<FlowIn> flowInDel(EntityId const& id) { return host_.flowIns.flowInDel(id); }
  std::size_t flowInCount() const { return host_.flowIns.size(); }
  void unknownEnumsInc(unsigned int by) { host_.stats.unknownEnums += by; }
  bool mayPeerWrite() const { return host_.mayPeerWrite(); }
  bool mayWrite() const { return host_.mayWrite(); }
  /// Own frames that the peer has not begun to process.
  std::uint64_t unacknowledgedFrames() const {
    return host_.exchange.framesCommitted() - host_.exchange.framesAcknowledged();
  }
  /// Slots about which the peer has not acknowledged this end's last frame.
  std::size_t unacknowledgedSlots() const { return host_.exchange.slotsInFlight(); }
  /// Counts what is owed, entity by entity: for people, not for hot paths.
  LinkDebt debt() const { return host_.debt(); }
  /// Number and text of the first broken invariant of its parts; empty when all hold. Requires: no
  /// turn on the stack.
  std::string checkInvariants() const { return host_.brokenInvariant(); }

  // Roots: see `Roots`.

  void exportIs(Ptr<Entity> const& root) { roots_.exportIs(root); }
  void exportDel(Ptr<Entity> const& root) { roots_.exportDel(root); }
  void exportsDone() { roots_.exportsDone(); }
  void importDirIs(Ptr<Dir> const& dir) { roots_.importDirIs(dir); }
  void importsIs(std::shared_ptr<Imports> const& imports) { roots_.importsIs(imports); }
  void identitiesIs(std::shared_ptr<Identities> const& ids) { host_.identities = ids; }
  bool inStep() const { return roots_.inStep(); }
  bool peerExportsDone() const { return roots_.isPeerDone(); }

  // Life.

  /// Sends the greeting.
  void begin();
  /// The peer's greeting has been accepted.
  bool greeted() const { return host_.isRunning(); }
  /// The link's clock, at the beginning of each turn.
  void nowMsIs(std::uint64_t nowMs) { host_.nowMs = nowMs; }
  /// Applies the whole frames at the front of what was received. Throws nothing: `error()` says
  /// why a stream was refused.
  void dispatchReceived();
  /// Sends what is owed until nothing is left or the buffer is short. `flush` moves committed bytes
  /// out between two runs.
  void runFlowOuts(std::function<void()> const& flush);
  /// True while anything waits for room in the buffer.
  bool hasOwed() const;
  /// When an ack frame must go out, unless another frame carries the ack before.
  std::optional<std::uint64_t> ackDueMs() const;
  /// "log: CODE at stream offset N, entity ID, attribute A"; empty while all is well.
  std::string const& error() const { return error_; }
  StreamError errorCode() const { return errorCode_; }
  /// Ends the stream with this reason, which the peer gets too, unless an error was set before.
  void errorIs(StreamError code, std::string const& text);
  /// Drops both buffers and retires every adapter. No entity is changed.
  void close();
  /// Releases retired adapters. Only outside of handlers.
  void emptyGraveyard() { host_.emptyGraveyard(); }

  // Observers.

  void frameObserverIs(FrameObserver observer) { observer_ = std::move(observer); }
  /// Called once, when the peer's greeting has been accepted and before any root goes out.
  void greetedObserverIs(std::function<void()> observer) { greeted_ = std::move(observer); }
  /// Whoever waits for the connection: see `Waker`.
  Waker& waker() { return host_.waker; }
  void reporterIs(AdapterHost::Reporter reporter) { host_.reporter = std::move(reporter); }

 private:
  std::size_t dispatchGreeting(ByteQueue const& received);
  void dispatch(Frame const& frame);
  void acknowledged();
  void dispatchError(Frame const& frame);
  bool onlyListens() const;
  void sendAck();

  AdapterHost host_;
  Reader reader_;
  Roots roots_;
  std::uint64_t streamOffset_ = 0;
  std::uint64_t undelivered_ = 0;
  std::string error_;
  StreamError errorCode_ = StreamError::none;
  FrameObserver observer_;
  std::function<void()> greeted_;
};

/// All live demuxers of the process. One thread's, like the entities.
class DemuxerManager {
 public:
  /// A snapshot to walk.
  std::vector<Ptr<Demuxer>> nboDemuxerIterator() const;
};

DemuxerManager& globalNboAttrLogDemuxerManager();

}  // namespace NboAttrLog
}  // namespace Mox
