// What the adapters of one connection share, and the events of their lives that touch several of
// its parts. The demuxer owns one; adapters reach it through their Out. Parts guard their own
// state; the invariants of all are checked here.
//
// H1  no adapter outside of the table has a FlowIn
// H2  no message is in hand between frames
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "Mox/Entity.h"
#include "Mox/Ptr.h"
#include "attrlog/adapter/Announcer.h"
#include "attrlog/adapter/FlowIns.h"
#include "attrlog/adapter/FlowScheduler.h"
#include "attrlog/adapter/Identities.h"
#include "attrlog/adapter/InHand.h"
#include "attrlog/adapter/Reactors.h"
#include "attrlog/adapter/Repeats.h"
#include "attrlog/wire/Exchange.h"
#include "attrlog/wire/FrameParser.h"
#include "attrlog/wire/In.h"
#include "attrlog/wire/LinkOptions.h"
#include "attrlog/wire/Out.h"
#include "attrlog/wire/Waker.h"

namespace MOX_API Mox {
namespace NboAttrLog {

class AdapterHost {
 public:
  using Sa = Entity::MoxNboAttrLogSa;
  /// Receives one line about each thing that somebody who looks after the process wants to know.
  using Reporter = std::function<void(std::string const& line)>;

  AdapterHost(LinkOptions const& options, Demuxer* demuxer);
  ~AdapterHost();
  AdapterHost(AdapterHost const&) = delete;
  AdapterHost& operator=(AdapterHost const&) = delete;

  // The connection.

  ConnectionMode mode() const { return mode_; }
  bool isRunning() const { return mode_ == ConnectionMode::running; }
  /// The peer's greeting was accepted.
  void greetedIs(Greeting const& peer);
  Greeting const& peer() const { return peer_; }
  /// This end's own, as its greeting carries it.
  std::uint64_t nonce() const { return nonce_; }
  Demuxer* demuxer() const { return demuxer_; }
  /// True while the peer may change what this end exports.
  bool mayPeerWrite() const {
    return options.grantsWrite && (peer_.bits & Greeting::wantsWrite) != 0;
  }
  /// True while this end may change what it imports.
  bool mayWrite() const { return options.wantsWrite && (peer_.bits & Greeting::grantsWrite) != 0; }
  /// True when the peer takes entities without a parent that this end announces.
  bool mayAnnounce() const { return mayWrite() || (peer_.bits & Greeting::imports) != 0; }
  /// The flags of the adapter of an entity without a parent.
  StreamAdapter::Mox_BitSet rootFlags(bool isExported) const;
  /// Removes all adapters, changes no entity.
  void close();

  // Adapters.

  /// Chooses the id of a new adapter and enters it in the table.
  void assignEntityId(Sa& adapter);
  /// Enters an adapter under an id that the peer announced (`isBound`) or that this end chose.
  void reactorIs(EntityId id, Sa& adapter, bool isBound);
  /// The creation or orphan message of the adapter's entity is in the buffer.
  void announcedIs(Sa& adapter);
  /// The entity without a parent has another authority now: its adapter becomes an exporter's, to
  /// be announced, or an importer's, to be bound; those of its children retire.
  void beginAnew(Sa& adapter, StreamAdapter::Origin origin);
  /// The peer has withdrawn the announcement that the adapter yielded to, and keeps the one of this
  /// end: the adapter is an exporter's again, and the entity is transferred anew.
  void reclaim(Sa& adapter);
  /// Ends an adapter's part in the connection, once and for all.
  void retire(Sa& adapter);
  /// Releases retired adapters. Only outside of handlers.
  void emptyGraveyard() { graveyard_.clear(); }
  /// The entity is announced on this connection when there is room.
  void announceIs(Ptr<Entity> const& entity) {
    announcer.waitingIs(entity);
    waker.wake();
  }
  /// The child under the key of a creation message has another id here: its adapter is retired,
  /// the child is kept.
  void checkEphemeralEntityDeletion(Entity* child, EntityId id);
  /// True when this end owns what the adapter replicates.
  static bool isAuthority(Sa const& adapter) {
    return !adapter.hasFlag(notAuthority | readOnlyRemote);
  }
  /// The frame committed last said this end's last word about a slot of the adapter; the first
  /// `keySize` bytes of its payload are the key. Does nothing where the peer may not write.
  void slotSent(Sa const& adapter, AttributeId attribute, std::size_t keySize) {
    if (recordsSlots_) recordSlot(adapter, attribute, keySize);
  }

  // Reports.

  void report(std::string const& line) const {
    if (reporter) reporter(line);
  }
  /// The peer would not take a message about this place: counted, and reported once.
  void tooLong(std::string place);
  /// The end of an entity's full transfer, or with `orphanTarget` of the exported roots.
  void sendComplete(EntityId id);
  LinkDebt debt() const;
  /// Number and text of the first broken invariant; empty when all hold. Requires: no run, no
  /// message in hand.
  std::string brokenInvariant() const;

  LinkOptions const options;
  LinkStats stats;
  Reporter reporter;
  /// The link's clock at the beginning of its turn.
  std::uint64_t nowMs = 0;
  /// Received frames are being applied.
  bool isReading = false;
  /// Some root was imported that this end may not write.
  bool hasReadOnlyCopies = false;
  /// The ids of entities without a parent; a connection by itself has its own.
  std::shared_ptr<Identities> identities = std::make_shared<Identities>();
  Exchange exchange;
  Waker waker;
  Ptr<In> in;
  Ptr<Out> out;
  Reactors reactors;
  FlowIns flowIns;
  InHand inHand;
  FlowScheduler scheduler;
  Announcer announcer;
  Repeats repeats;

 private:
  void recordSlot(Sa const& adapter, AttributeId attribute, std::size_t keySize);
  void dropTransactions(Sa& adapter);

  Demuxer* demuxer_;
  std::uint64_t nonce_;
  ConnectionMode mode_ = ConnectionMode::greeting;
  Greeting peer_;
  bool recordsSlots_ = false;
  std::vector<Ptr<Sa>> graveyard_;
  std::vector<std::string> tooLongReported_;
};

/// The hosts of all live connections of the process. One thread's, like the entities.
std::vector<AdapterHost*> const& adapterHosts();

/// "slice/fap[f].description", for reports.
std::string placeText(Entity::MoxNboAttrLogSa const& adapter, AttributeId attribute);

}  // namespace NboAttrLog
}  // namespace Mox
