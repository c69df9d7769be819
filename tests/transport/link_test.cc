// Links and sessions over pipes in memory. Finds deadlines that are missed or that blame an honest
// peer, frames that are lost at the end of a stream, work inside of a dispatch, and connections
// that are ended by one that has no right to.
#include "attrlog/link/Link.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/attrlog/Mirror.h"
#include "transport/MemoryLink.h"

namespace Mox::NboAttrLog::test {
namespace {

using Inventory::Arad::AradSlice;

/// One end with the other in the test's hands.
struct LoneEnd {
  LoneEnd() : ends(MemoryLink::pair()), peer(std::move(ends.second)) {
    link = new Link(nullptr, std::move(ends.first), {});
  }
  void send(std::string const& bytes) {
    EXPECT_EQ(peer->write(bytes.data(), bytes.size()).count, bytes.size());
  }
  std::string received() {
    std::string bytes(1 << 20, '\0');
    bytes.resize(peer->read(bytes.data(), bytes.size()).count);
    return bytes;
  }

  MemoryLink::Pair ends;
  std::unique_ptr<MemoryLink> peer;
  Ptr<Link> link;
};

std::string greeting(std::string const& name = "tester", unsigned int moreBits = 0) {
  Greeting made;
  made.peerName = name;
  made.bits = static_cast<std::uint16_t>(made.bits | moreBits);
  return made.bytes();
}

TEST(Link, ASilentPeerAndAnUnfinishedFrameHaveADeadline) {
  LoneEnd silent;
  silent.link->service(500);
  EXPECT_EQ(silent.received().substr(0, 6), "MOXLOG");
  EXPECT_EQ(silent.link->dueMs(), 10500u);
  silent.send(greeting().substr(0, 41));
  silent.link->service(10499);
  EXPECT_EQ(silent.link->state(), Link::State::greeting);
  silent.link->service(10500);
  EXPECT_EQ(silent.link->end(), Link::End::noGreeting);
  EXPECT_EQ(silent.link->error(), "log: no greeting within 10 s");
  EXPECT_FALSE(silent.link->dueMs() || silent.link->wantsRead());

  LoneEnd slow;
  slow.send(greeting());
  slow.link->service(0);
  EXPECT_FALSE(slow.link->dueMs());
  // The first bytes of an honest frame, taken from another end's stream behind its greeting.
  Ptr<AradSlice> const root(new AradSlice("slice"));
  Mirror mirror(root);
  mirror.connect(MemoryPipe::unlimited, 1 << 20);
  mirror.settle();
  root->numPortsIs(3);
  mirror.exporterLink->service(2);
  std::string const frame(reinterpret_cast<char const*>(mirror.toImporter->bytes.data()), 4);
  slow.link->service(1'000'000'000);
  slow.send(frame);
  slow.link->service(1'000'000'000);
  EXPECT_EQ(slow.link->dueMs(), 1'000'030'000u);
  slow.link->service(1'000'029'999);
  EXPECT_EQ(slow.link->state(), Link::State::running);
  slow.link->service(1'000'030'000);
  EXPECT_EQ(slow.link->end(), Link::End::stalled);
  EXPECT_EQ(slow.link->error(), "log: a frame was not finished within 30 s");
}

TEST(Link, WholeFramesBeforeTheEndAreAppliedAndHalfOnesDropped) {
  for (std::size_t const missing : {0, 1, 5}) {
    Ptr<AradSlice> const root(new AradSlice("slice"));
    Mirror mirror(root);
    mirror.connect(MemoryPipe::unlimited, 1 << 20);
    mirror.settle();
    root->numPortsIs(2);
    mirror.exporterLink->service(2);
    std::size_t const size = mirror.toImporter->bytes.size();
    ASSERT_GT(size, missing);
    mirror.toImporter->bytes.truncate(size - missing);
    mirror.toImporter->isEnded = true;
    mirror.importerLink->service(2);
    mirror.importerLink->service(2);
    EXPECT_EQ(mirror.importerClosed, "closed by the peer");
    EXPECT_EQ(ptrCast<AradSlice>(mirror.copy())->numPorts(), missing == 0 ? 2u : 0u);
  }
}

TEST(Link, NeitherServiceNorCloseInsideOfADispatchDoesAnythingThere) {
  struct Meddler : AradSlice::Notifiee {
    void onNumPorts() override {
      auto const frames = [this] { return mirror->importerLink->stats().framesReceived; };
      std::uint64_t const before = frames();
      mirror->importerLink->service(1);
      mirror->exporterLink->service(1);
      mirror->importerLink->closeIs("enough");
      isStill = frames() == before && mirror->importerLink->state() == Link::State::running;
    }
    Mirror* mirror = nullptr;
    bool isStill = false;
  };
  Ptr<AradSlice> const root(new AradSlice("slice"));
  Mirror mirror(root);
  mirror.connect();
  mirror.settle();
  Ptr<Meddler> const meddler(new Meddler);
  meddler->mirror = &mirror;
  meddler->notifierIs(ptrCast<AradSlice>(mirror.copy()));
  meddler->isRegisteredNotifieeIs(true);
  root->numPortsIs(10);
  root->useMdioIs(true);
  mirror.settle();
  EXPECT_TRUE(meddler->isStill);
  EXPECT_EQ(mirror.importerClosed, "enough");
  EXPECT_EQ(mirror.exporterClosed, "closed by the peer");
  EXPECT_EQ(ptrCast<AradSlice>(mirror.copy())->numPorts(), 10u);
}

/// Over whatever a connection and a later one may have in common: which of them ends the other, and
/// that a name can't forge a line of the log.
TEST(Session, OnlyANewerConnectionOfTheSamePeerOriginAndRightsEndsAnOlder) {
  for (unsigned int bits = 0; bits < 32; ++bits) {
    bool const isSameName = bits & 1, isSameOrigin = bits & 2, olderWrites = bits & 4;
    bool const newerWrites = bits & 8, olderGreetsLate = bits & 16;
    SCOPED_TRACE(bits);
    LinkOptions options;
    options.grantsWrite = true;
    Session session("server", options);
    std::string reports;
    session.onReport([&](std::string const& line) { reports += line + "\n"; });
    auto older = MemoryLink::pair();
    auto newer = MemoryLink::pair();
    older.first->originIs({"place", "user 1"});
    newer.first->originIs({"place", isSameOrigin ? "user 1" : "user 2"});
    Ptr<Link> const old = session.linkIs(std::move(older.first));
    Ptr<Link> const young = session.linkIs(std::move(newer.first));
    auto const greet = [&](MemoryLink& end, std::string const& name, bool writes) {
      std::string const bytes = greeting(name, writes ? Greeting::wantsWrite : 0);
      EXPECT_EQ(end.write(bytes.data(), bytes.size()).count, bytes.size());
      session.service(1);
    };
    if (!olderGreetsLate) greet(*older.second, "on\ne\x1b", olderWrites);
    greet(*newer.second, isSameName ? "on\ne\x1b" : "two", newerWrites);
    if (olderGreetsLate) {
      newer.second->close();
      session.service(1);
      greet(*older.second, "on\ne\x1b", olderWrites);
    }
    bool const isEnded = isSameName && isSameOrigin && (newerWrites || !olderWrites);
    EXPECT_EQ(old->error(), isEnded ? "replaced by a newer connection of the same peer" : "");
    EXPECT_EQ(young->error(), olderGreetsLate ? "closed by the peer" : "");
    EXPECT_NE(reports.find("on\\x0ae\\x1b: "), std::string::npos) << reports;
    EXPECT_EQ(session.links().size(), 2u - (isEnded ? 1 : 0) - (olderGreetsLate ? 1 : 0));
  }
}

}  // namespace
}  // namespace Mox::NboAttrLog::test
