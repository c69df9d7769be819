// Streams as text. Faults here show another line than what was sent, depend on how the bytes were
// cut, or read behind damaged ones.
#include <gtest/gtest.h>

#include <functional>
#include <random>
#include <string>
#include <vector>

#include "attrlog/wire/StreamText.h"
#include "tests/attrlog/Mirror.h"

namespace Mox::NboAttrLog::test {
namespace {

using namespace Inventory::Arad;
using Direction = StreamText::Direction;
using Lines = std::vector<std::string>;

constexpr StreamText::Options plain{false, 40};

struct Traced : testing::Test {
  /// The lines of the frames that `act` makes the exporter send.
  Lines trace(std::function<void()> const& act) {
    lines.clear();
    act();
    mirror.settle();
    return lines;
  }
  /// Connects and takes the first transfer out of the way.
  void begin() {
    mirror.connect();
    mirror.in().frameObserverIs([this](Frame const& frame) {
      lines.push_back(text.frameLine(Direction::received, frame));
    });
    mirror.settle();
  }

  Ptr<AradSlice> slice{new AradSlice("slice")};
  Ptr<Arad> arad = slice->fapIs("fap0", 0);
  Mirror mirror{Ptr<Entity>(slice)};
  Lines lines;
  StreamText text{[](Direction, std::string const&) {}, plain};
};

TEST_F(Traced, EachFormOfMessageHasItsLine) {
  begin();
  EXPECT_EQ(Lines(lines.begin(), lines.begin() + 3),
            (Lines{"root slice: Inventory::Arad::AradSlice('slice')", "complete all roots",
                   "set slice.numPorts = 0"}));
  EXPECT_EQ(lines.back(), "complete slice");
  std::string const fap = "slice/fap[fap0]";
  struct Row {
    std::function<void()> act;
    Lines lines;
  };
  Ptr<EthPort> port;
  Row const rows[] = {
      {[&] { slice->numPortsIs(7); }, {"set slice.numPorts = 7"}},
      {[&] { arad->descriptionIs("it's"); }, {"set " + fap + ".description = 'it\\'s'"}},
      {[&] { arad->ddrTuneSettingIs("a b", "v"); },
       {"set " + fap + ".ddrTuneSetting['a b'] = 'v'"}},
      {[&] { arad->ddrTuneSettingDel("a b"); }, {"del " + fap + ".ddrTuneSetting['a b']"}},
      {[&] { port = arad->portIs(17, nullptr); },
       {"child " + fap + "/port[17]: Inventory::Arad::EthPort(17, null)"}},
      {[&] { port->managedPhyIs(bcm84848); }, {"set " + fap + "/port[17].managedPhy = 'bcm84848'"}},
      {[&] { arad->elkGlobalSocPropertiesIs("g", 4); },
       {"child " + fap + "/elkGlobalSocProperties: Inventory::Arad::SocProperties('g', 4)"}},
      {[&] { arad->elkGlobalSocPropertiesDel(); }, {"del " + fap + "/elkGlobalSocProperties"}},
      {[&] { arad->portDel(17); }, {"del " + fap + "/port[17]"}},
  };
  for (Row const& row : rows) {
    Lines got = trace(row.act);
    ASSERT_FALSE(got.empty());
    // What follows a child is its own full transfer.
    if (got.front().starts_with("child ")) got.resize(1);
    EXPECT_EQ(got, row.lines);
  }
}

TEST_F(Traced, ALongTextComesInPiecesAndIsCutInTheLine) {
  begin();
  std::string const x(60000, 'x');
  Lines const got = trace([&] { arad->descriptionIs(String8(x)); });
  std::string const shown = "'" + x.substr(0, 39) + "…";
  EXPECT_EQ(got, (Lines{"piece slice/fap[fap0].description: 32740 bytes " + shown,
                        "last piece slice/fap[fap0].description: 27260 bytes " + shown}));
}

TEST_F(Traced, HeadersAreShownOnRequestAndUnknownEntitiesByTheirIds) {
  begin();
  StreamText late([](Direction, std::string const&) {}, {true, 40});
  Lines got;
  mirror.in().frameObserverIs(
      [&](Frame const& frame) { got.push_back(late.frameLine(Direction::received, frame)); });
  trace([&] { slice->numPortsIs(258); });
  ASSERT_EQ(got.size(), 1u);
  EXPECT_TRUE(got[0].starts_with("message 0x")) << got[0];
  EXPECT_NE(got[0].find(" attribute 258: 00000102 {entity "), std::string::npos) << got[0];
  EXPECT_TRUE(got[0].ends_with(", attribute 258, 28 bytes}")) << got[0];
}

/// Both directions of a session, taken off the pipe byte for byte.
std::string recorded() {
  Ptr<AradSlice> const slice(new AradSlice("slice"));
  Ptr<Arad> const arad = slice->fapIs("fap0", 0);
  arad->descriptionIs("text");
  arad->ddrTuneSettingIs("key", "value");
  Session session("recorded");
  session.exportIs(Ptr<Entity>(slice));
  session.exportsDone();
  auto ends = MemoryLink::pair(1u << 20);
  Ptr<Link> const link = session.linkIs(std::move(ends.first));
  std::string const peer = Greeting{}.bytes();
  ends.second->write(peer.data(), peer.size());
  std::string bytes;
  char piece[4096];
  for (int turn = 0; turn < 20; ++turn) {
    session.service(0);
    while (std::size_t const count = ends.second->read(piece, sizeof piece).count) {
      bytes.append(piece, count);
    }
  }
  return bytes;
}

Lines linesOf(std::string const& bytes, std::size_t pieceSize) {
  Lines lines;
  StreamText text([&](Direction, std::string const& line) { lines.push_back(line); }, plain);
  for (std::size_t at = 0; at < bytes.size(); at += pieceSize) {
    std::string const piece = bytes.substr(at, pieceSize);
    text.feed(Direction::sent, reinterpret_cast<unsigned char const*>(piece.data()), piece.size());
  }
  text.end(Direction::sent);
  return lines;
}

TEST(StreamText, PiecesOfAnySizeGiveTheSameLines) {
  std::string const bytes = recorded();
  Lines const whole = linesOf(bytes, bytes.size());
  ASSERT_GT(whole.size(), 30u);
  EXPECT_EQ(whole.back(), "complete slice");
  EXPECT_EQ(linesOf(bytes, 1), whole);
  EXPECT_EQ(linesOf(bytes, 17), whole);
}

TEST(StreamText, DamagedBytesNeverDoMoreThanEndTheDirection) {
  std::string const bytes = recorded();
  unsigned int const seed = std::random_device{}();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  int broken = 0;
  for (int round = 0; round < 2000; ++round) {
    std::string damaged = bytes;
    for (int i = 0; i < 3; ++i) damaged[random() % damaged.size()] = static_cast<char>(random());
    Lines const lines = linesOf(damaged, damaged.size());
    for (std::size_t i = 0; i + 1 < lines.size(); ++i) {
      ASSERT_FALSE(lines[i].starts_with("not a stream: "));
      ASSERT_EQ(lines[i].find('\n'), std::string::npos);
    }
    broken += !lines.empty() && lines.back().starts_with("not a stream: ") ? 1 : 0;
  }
  EXPECT_GT(broken, 100);
}

}  // namespace
}  // namespace Mox::NboAttrLog::test
