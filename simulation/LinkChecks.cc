#include "simulation/LinkChecks.h"

#include "simulation/Plan.h"

namespace Mox::Simulation {

using namespace NboAttrLog;

using Adapter = Entity::MoxNboAttrLogSa;

void checkEnd(Link const& link, bool isThorough) {
  Demuxer const& demuxer = link.demuxer();
  std::size_t const most =
      demuxer.options().outCapacity + defaultMaxMessageSize + frameOverhead + runReserve;
  if (demuxer.out()->committedSize() > most) throw Failure("more is buffered than the capacity");
  if (std::string const broken = demuxer.checkInvariants(); !broken.empty()) {
    throw Failure("broken invariant: " + broken);
  }
  if (!isThorough) return;
  demuxer.reactorsVisit([](Adapter const& adapter) {
    if (adapter.rawEntity() == nullptr) throw Failure("an adapter without an entity");
    if (adapter.hasFlag(noFlowOut) == (adapter.flowOut() != nullptr)) {
      throw Failure("a flow-out and its flag differ");
    }
  });
}

KnownIds checkQuietEnd(Link const& link, Allowed allowed, std::string const& where) {
  auto const fail = [&where](std::string const& what) { throw Failure(what + where); };
  Demuxer const& demuxer = link.demuxer();
  if (link.state() != Link::State::running) fail("not connected: " + link.error());
  demuxer.reactorsVisit([&](Adapter const& adapter) {
    if (adapter.life() == StreamAdapter::Life::held) {
      fail("still waits for the end of " + std::string(adapter.rawEntity()->fullName().view()));
    }
  });
  if (!demuxer.inStep()) fail("not in step");
  if (demuxer.hasWaitingFlowOut()) fail("a flow-out waits");
  if (demuxer.flowInCount() != 0) fail("a flow-in is left");
  if (demuxer.unacknowledgedSlots() != 0) fail("a slot waits for an acknowledgement");
  if (demuxer.out()->committedSize() != 0) fail("unsent bytes are left");
  LinkStats const& stats = demuxer.stats();
  if (stats.handlerExceptions != 0 && !allowed.handlerExceptions) fail("a handler threw");
  if (stats.strays != 0 && !allowed.strays) fail("a stray");
  KnownIds ids;
  demuxer.reactorsVisit([&](Adapter const& adapter) {
    if (!adapter.rawEntity()) fail("an adapter without an entity");
    std::string const path(adapter.rawEntity()->fullName().view());
    ids.emplace(adapter.entityId(), path);
    if (adapter.flowOut()) fail("unsent changes of " + path);
    if (!adapter.hasFlag(noFlowOut) || adapter.hasFlag(deferAll | changeFromLog | writingOff |
                                                       boundByTransaction | inScheduledRun)) {
      fail("odd flags of " + path);
    }
  });
  return ids;
}

std::string strangeId(KnownIds const& one, KnownIds const& other) {
  for (auto const* ids : {&one, &other}) {
    KnownIds const& others = ids == &one ? other : one;
    for (auto const& [id, path] : *ids) {
      auto const at = others.find(id);
      if (at == others.end() || at->second != path) return path;
    }
  }
  return {};
}

bool isWriteToOwn(Demuxer const& demuxer, Frame const& frame) {
  bool const isAbout = frame.kind == FrameKind::message || frame.kind == FrameKind::marker ||
                       frame.kind == FrameKind::complete;
  Adapter const* const adapter = isAbout ? demuxer.reactor(frame.entityId) : nullptr;
  // Both ends may announce one entity at a time: what the other end writes about it is void then.
  return adapter != nullptr && !adapter->hasFlag(notAuthority) &&
         !demuxer.host().announcer.isContested(frame.entityId);
}

}  // namespace Mox::Simulation
