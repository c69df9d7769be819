// Links and sessions over pipes in memory: deadlines, ends, refusals, re-entrancy, slow peers,
// cuts.
#include "attrlog/link/Link.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "attrlog/adapter/Rows.h"
#include "attrlog/link/Session.h"
#include "tests/attrlog/Mirror.h"
#include "transport/MemoryLink.h"

namespace Mox::NboAttrLog::test {
namespace {

using Inventory::Arad::Arad;
using Inventory::Arad::AradSlice;

Ptr<AradSlice> sampleSlice(unsigned int lanes = 20) {
  Ptr<AradSlice> slice(new AradSlice("slice"));
  Ptr<Arad> arad = slice->fapIs("fap0", 7);
  arad->descriptionIs("a chip");
  for (unsigned int lane = 0; lane < lanes; ++lane) {
    arad->qsgmiiIs(Hardware::Sand::QsgmiiId(static_cast<unsigned short>(lane % 96)))
        ->descriptionIs(String8(std::to_string(lane).c_str()));
    arad->elkGlobalSocPropertiesIs("global", 0)
        ->propertyIs(String8(("key" + std::to_string(lane)).c_str()), "value");
  }
  return slice;
}

/// One end with the other in the test's hands.
struct LoneEnd {
  explicit LoneEnd(LinkOptions const& options = {}, std::size_t capacity = 65536)
      : ends(MemoryLink::pair(capacity)), peer(std::move(ends.second)) {
    link = new Link(nullptr, std::move(ends.first), options);
  }
  void say(std::string const& bytes) {
    EXPECT_EQ(peer->write(bytes.data(), bytes.size()).count, bytes.size());
  }
  std::string heard() {
    std::string bytes(1 << 20, '\0');
    bytes.resize(peer->read(bytes.data(), bytes.size()).count);
    return bytes;
  }

  MemoryLink::Pair ends;
  std::unique_ptr<MemoryLink> peer;
  Ptr<Link> link;
};

std::string greeting(std::string const& name = "tester") {
  Greeting made;
  made.peerName = name;
  return made.bytes();
}

std::string frame(FrameKind kind, std::uint64_t entity, AttributeId attribute,
                  std::string const& payload) {
  std::string bytes(headerSize, '\0');
  auto* const at = reinterpret_cast<unsigned char*>(bytes.data());
  putBytes(at, static_cast<unsigned int>(kind), 1);
  putBytes(at + 1, frameVariableLength, 1);
  putBytes(at + 2, payload.size(), 4);
  putBytes(at + 6, entity, 8);
  putBytes(at + 14, static_cast<std::uint32_t>(attribute), 4);
  return bytes + '\1' + payload + '\3';
}

TEST(Link, GreetsAtOnceAndGivesUpOnASilentPeer) {
  LoneEnd end;
  end.link->service(500);
  EXPECT_EQ(end.heard().substr(0, 8), "MOXLOG1\n");
  EXPECT_EQ(end.link->dueMs(), 10500u);
  end.say(greeting().substr(0, 41));
  end.link->service(10499);
  EXPECT_EQ(end.link->state(), Link::State::greeting);
  end.link->service(10500);
  EXPECT_EQ(end.link->state(), Link::State::closed);
  EXPECT_EQ(end.link->end(), Link::End::noGreeting);
  EXPECT_EQ(end.link->error(), "log: no greeting within 10 s");
  EXPECT_FALSE(end.link->dueMs());
  EXPECT_FALSE(end.link->wantsRead());
}

TEST(Link, AGreetedPeerMayBeSilentForever) {
  LoneEnd end;
  end.say(greeting());
  end.link->service(0);
  EXPECT_EQ(end.link->peerName(), "tester");
  EXPECT_FALSE(end.link->dueMs());
  end.link->service(1'000'000'000);
  EXPECT_EQ(end.link->state(), Link::State::running);
}

struct Refusal {
  char const* what;
  std::string bytes;
  StreamError code;
  char const* text;
};

TEST(Link, RefusesWhatIsNoLogAndSaysWhere) {
  std::string otherVersion = greeting();
  otherVersion[11] = 2;
  std::string otherSchema = greeting();
  otherSchema[23] = 1;
  Refusal const refusals[] = {
      {"another protocol", "HTTP/1.1 400 Bad Request\r\n", StreamError::badGreeting,
       "log: BadGreeting at stream offset 0, entity 0x0, attribute 0"},
      {"another version", otherVersion, StreamError::badVersion,
       "log: BadVersion at stream offset 0, entity 0x0, attribute 0"},
      {"another schema", otherSchema, StreamError::badSchema,
       "log: BadSchema at stream offset 0, entity 0x0, attribute 0"},
      {"a frame of no kind", greeting() + std::string(60, 'x'), StreamError::badHeader,
       "log: BadHeader at stream offset 48, entity 0x0, attribute 0"},
      {"an end of a root that is cut", greeting() + frame(FrameKind::message, 1, -136, "abc"),
       StreamError::badLength, "log: BadLength at stream offset 48, entity 0x1, attribute -136"},
      {"the peer's own refusal",
       greeting() + frame(FrameKind::error, 0, 4, std::string("\0\0\0\3why", 7)),
       StreamError::badHeader, "log: refused by the peer: why"},
  };
  for (Refusal const& refusal : refusals) {
    SCOPED_TRACE(refusal.what);
    LoneEnd end;
    end.say(refusal.bytes);
    end.link->service(0);
    EXPECT_EQ(end.link->state(), Link::State::closed);
    EXPECT_EQ(end.link->end(), Link::End::refused);
    EXPECT_EQ(end.link->demuxer().errorCode(), refusal.code);
    EXPECT_EQ(end.link->error(), refusal.text);
  }
}

TEST(Link, TellsThePeerWhyItRefuses) {
  LoneEnd end;
  end.say(greeting() + std::string(60, 'x'));
  end.link->service(0);
  std::string const heard = end.heard();
  EXPECT_NE(heard.find("log: BadHeader at stream offset 48"), std::string::npos);
  EXPECT_EQ(end.peer->read(nullptr, 1).state, ByteResult::State::end);
}

TEST(Link, WholeFramesBeforeTheEndAreAppliedAndHalfOnesDropped) {
  // What an exporter sends of one change more than a quiet connection needs.
  Ptr<AradSlice> const root = sampleSlice(2);
  for (std::size_t missing : {std::size_t{0}, std::size_t{1}, std::size_t{27}}) {
    SCOPED_TRACE(missing);
    root->numPortsIs(1);
    Mirror mirror(root);
    mirror.connect();
    mirror.settle();
    mirror.toImporter->capacity = 1 << 20;
    root->numPortsIs(2);
    mirror.exporterLink->service(2);
    std::size_t const size = mirror.toImporter->bytes.size();
    EXPECT_EQ(size, 28u);
    mirror.toImporter->bytes.truncate(size - missing);
    mirror.toImporter->isEnded = true;
    mirror.importerLink->service(2);
    mirror.importerLink->service(2);
    EXPECT_EQ(mirror.importerClosed, "closed by the peer");
    EXPECT_EQ(ptrCast<AradSlice>(mirror.copy())->numPorts(), missing == 0 ? 2u : 1u);
  }
}

TEST(Link, APeerThatGoesBeforeItsGreetingIsNamedSo) {
  LoneEnd end;
  end.say(greeting().substr(0, 20));
  end.peer->close();
  end.link->service(0);
  EXPECT_EQ(end.link->end(), Link::End::peer);
  EXPECT_EQ(end.link->error(), "closed by the peer before its greeting");
}

TEST(Link, AConnectionCutAtAnyByteLeavesBothEndsWhole) {
  Ptr<AradSlice> const root = sampleSlice(6);
  std::string const text = treeText(root);
  std::size_t total = 0;
  {
    Mirror mirror(root);
    mirror.connect();
    mirror.settle();
    total = mirror.importerLink->stats().bytesReceived;
  }
  ASSERT_GT(total, 1000u);
  Mirror mirror(root);
  for (std::size_t cut = 0; cut < total; cut += 1 + cut % 13) {
    mirror.connect();
    mirror.toImporter->writePiece = 0;
    // Exactly `cut` bytes reach the importer, one service after the other.
    for (std::size_t sent = 0; sent < cut;) {
      std::size_t const piece = std::min<std::size_t>(cut - sent, 97);
      mirror.toImporter->writePiece = mirror.toImporter->capacity = piece;
      mirror.turn();
      std::size_t const received = mirror.importerLink->stats().bytesReceived;
      if (received == sent) break;
      sent = received;
    }
    mirror.cut();
    ASSERT_EQ(mirror.exporterLink->state(), Link::State::closed);
    ASSERT_EQ(mirror.importerLink->state(), Link::State::closed);
    ASSERT_EQ(mirror.importerClosed, "connection cut");
    ASSERT_EQ(mirror.out().reactorCount(), 0u);
    ASSERT_EQ(mirror.in().reactorCount(), 0u);
  }
  mirror.connect();
  mirror.settle();
  EXPECT_TRUE(mirror.in().inStep());
  EXPECT_EQ(treeText(mirror.copy()), text);
  EXPECT_EQ(treeText(root), text);
}

TEST(Link, AStoppedPeerCostsOneBitForAHundredThousandChanges) {
  Ptr<AradSlice> const root = sampleSlice();
  Mirror mirror(root);
  mirror.connect(MemoryPipe::unlimited, 4096);
  mirror.settle();
  ASSERT_TRUE(mirror.in().inStep());
  LinkStats const before = mirror.exporterLink->stats();

  std::size_t mostUsed = 0;
  for (unsigned int i = 1; i <= 100000; ++i) {
    root->numPortsIs(i);
    if (i % 7 == 0) mirror.exporterLink->service(1);
    mostUsed = std::max(mostUsed, mirror.out().out()->committedSize());
  }
  EXPECT_LE(mostUsed, defaultCapacity + frameOverhead + 4);
  EXPECT_LE(mirror.exporterLink->stats().bytesSent - before.bytesSent, 4096u);

  auto const adapter = root->moxNboAttrLogSa(Ptr<Out const>(mirror.out().out()));
  ASSERT_TRUE(adapter);
  ASSERT_NE(adapter->flowOut(), nullptr);
  std::vector<AttributeId> dirty;
  for (AttrRow const& row : adapter->rows()) {
    if (!row.isCollection() && row.bit(*adapter->flowOut())) dirty.push_back(row.id);
  }
  EXPECT_EQ(dirty, std::vector<AttributeId>{258});
  std::uint64_t const framesOwed = mirror.exporterLink->stats().framesSent;

  mirror.settle();
  EXPECT_EQ(ptrCast<AradSlice>(mirror.copy())->numPorts(), 100000u);
  EXPECT_EQ(treeText(mirror.copy()), treeText(root));
  EXPECT_EQ(adapter->flowOut(), nullptr);
  // All that the hundred thousand came to behind what the buffers held already.
  EXPECT_EQ(mirror.exporterLink->stats().framesSent, framesOwed + 1);
}

class Meddler : public AradSlice::Notifiee {
 public:
  Meddler(Ptr<AradSlice> const& slice, std::function<void()> act) : act_(std::move(act)) {
    notifierIs(Ptr<PtrInterface const>(slice.get()));
    isRegisteredNotifieeIs(true);
  }
  void onNumPorts() override {
    ++calls;
    act_();
  }
  int calls = 0;

 private:
  std::function<void()> act_;
};

TEST(Link, ServiceInsideOfADispatchDoesNothing) {
  Ptr<AradSlice> const root = sampleSlice(1);
  Mirror mirror(root);
  mirror.connect();
  mirror.settle();
  std::uint64_t framesInside = 0;
  Ptr<Meddler> meddler(new Meddler(ptrCast<AradSlice>(mirror.copy()), [&] {
    std::uint64_t const before = mirror.importerLink->stats().framesReceived;
    mirror.importerLink->service(1);
    mirror.exporterLink->service(1);
    framesInside += mirror.importerLink->stats().framesReceived - before;
  }));
  root->numPortsIs(10);
  root->useMdioIs(true);
  mirror.settle();
  EXPECT_EQ(meddler->calls, 1);
  EXPECT_EQ(framesInside, 0u);
  EXPECT_EQ(treeText(mirror.copy()), treeText(root));
}

TEST(Link, ClosingInsideOfADispatchWaitsForItsEnd) {
  Ptr<AradSlice> const root = sampleSlice(1);
  Mirror mirror(root);
  mirror.connect();
  mirror.settle();
  Link::State stateInside = Link::State::closed;
  Ptr<Meddler> meddler(new Meddler(ptrCast<AradSlice>(mirror.copy()), [&] {
    mirror.importerLink->closeIs("enough");
    stateInside = mirror.importerLink->state();
  }));
  root->numPortsIs(10);
  mirror.settle();
  EXPECT_EQ(stateInside, Link::State::running);
  EXPECT_EQ(mirror.importerClosed, "enough");
  EXPECT_EQ(mirror.exporterClosed, "closed by the peer");
  EXPECT_EQ(ptrCast<AradSlice>(mirror.copy())->numPorts(), 10u);
}

TEST(Session, ServesSeveralPeersAndOutlivesEach) {
  Ptr<AradSlice> const root = sampleSlice(3);
  Session server("server");
  std::vector<std::string> reports;
  server.onReport([&](std::string const& line) { reports.push_back(line); });
  server.exportIs(root);
  server.exportsDone();
  struct Client {
    explicit Client(char const* name) : session(name), dir(new Dir) { session.importDirIs(dir); }
    Session session;
    Ptr<Dir> dir;
    Ptr<Link> link;
  };
  Client one("one"), two("two");
  auto const connect = [&](Client& client) {
    auto ends = MemoryLink::pair();
    Ptr<Link> const link = server.linkIs(std::move(ends.first));
    client.link = client.session.linkIs(std::move(ends.second));
    return link;
  };
  auto const turn = [&] {
    for (int i = 0; i < 20; ++i) {
      server.service(1);
      one.session.service(1);
      two.session.service(1);
    }
  };
  Ptr<Link> const first = connect(one);
  connect(two);
  turn();
  EXPECT_TRUE(one.link->demuxer().inStep());
  EXPECT_TRUE(two.link->demuxer().inStep());
  root->numPortsIs(77);
  turn();
  EXPECT_EQ(treeText(one.dir->entry("slice")->target()), treeText(root));
  EXPECT_EQ(treeText(two.dir->entry("slice")->target()), treeText(root));

  // The same peer again, while the old connection looks alive: the new one takes its place.
  Client again("one");
  connect(again);
  for (int i = 0; i < 20; ++i) {
    again.session.service(1);
    turn();
  }
  EXPECT_EQ(first->error(), "replaced by a newer connection of the same peer");
  EXPECT_EQ(one.link->error(), "closed by the peer");
  EXPECT_TRUE(again.link->demuxer().inStep());
  EXPECT_EQ(server.links().size(), 2u);

  two.session.closeIs("");
  turn();
  EXPECT_EQ(server.links().size(), 1u);
  root->numPortsIs(78);
  turn();
  EXPECT_EQ(server.links().size(), 1u);
  EXPECT_EQ(reports, (std::vector<std::string>{
                         "one: connected",
                         "two: connected",
                         "one: replaced by a newer connection of the same peer",
                         "one: connected",
                         "two: closed by the peer",
                     }));
}

/// Over whatever a connection and a later one may have in common: which of them ends the other.
TEST(Session, OnlyANewerConnectionOfTheSamePeerOriginAndRightsEndsAnOlder) {
  for (unsigned int bits = 0; bits < 32; ++bits) {
    bool const isSameName = bits & 1, isSameOrigin = bits & 2, olderWrites = bits & 4;
    bool const newerWrites = bits & 8, olderGreetsLate = bits & 16;
    SCOPED_TRACE(bits);
    LinkOptions options;
    options.grantsWrite = true;
    Session session("server", options);
    auto older = MemoryLink::pair();
    auto newer = MemoryLink::pair();
    older.first->originIs({"place", "user 1"});
    newer.first->originIs({"place", isSameOrigin ? "user 1" : "user 2"});
    Ptr<Link> const old = session.linkIs(std::move(older.first));
    Ptr<Link> const young = session.linkIs(std::move(newer.first));
    auto const greet = [&](MemoryLink& end, std::string const& name, bool writes) {
      Greeting hello;
      hello.peerName = name;
      if (writes) hello.bits |= Greeting::wantsWrite;
      std::string const bytes = hello.bytes();
      EXPECT_EQ(end.write(bytes.data(), bytes.size()).count, bytes.size());
      session.service(1);
    };
    if (!olderGreetsLate) greet(*older.second, "one", olderWrites);
    greet(*newer.second, isSameName ? "one" : "two", newerWrites);
    if (olderGreetsLate) {
      newer.second->close();
      session.service(1);
      greet(*older.second, "one", olderWrites);
    }
    bool const isEnded = isSameName && isSameOrigin && (newerWrites || !olderWrites);
    EXPECT_EQ(old->error(), isEnded ? "replaced by a newer connection of the same peer" : "");
    EXPECT_EQ(young->error(), olderGreetsLate ? "closed by the peer" : "");
  }
}

TEST(MemoryLink, MovesWhatItsLimitsAllowAndTellsTheEnd) {
  auto [left, right] = MemoryLink::pair(10, 4);
  EXPECT_EQ(left->write("abcdef", 6).count, 4u);
  EXPECT_EQ(left->write("efghijk", 7).count, 4u);
  EXPECT_EQ(left->write("ijk", 3).count, 2u);
  ByteResult const full = left->write("k", 1);
  EXPECT_EQ(full.count, 0u);
  EXPECT_EQ(full.state, ByteResult::State::open);
  char got[16];
  std::string all;
  left->close();
  for (ByteResult read = right->read(got, sizeof got); read.count != 0;
       read = right->read(got, sizeof got)) {
    all.append(got, read.count);
  }
  EXPECT_EQ(all, "abcdefghij");
  EXPECT_EQ(right->read(got, sizeof got).state, ByteResult::State::end);
  EXPECT_EQ(right->write("x", 1).state, ByteResult::State::failed);
  EXPECT_EQ(right->error(), "the peer has closed");
}

}  // namespace
}  // namespace Mox::NboAttrLog::test
