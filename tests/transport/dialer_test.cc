// The dialer, with the test's own clock and pipes. Finds pauses that don't grow or don't start
// over, copies that are lost with a connection, and tries behind `stop` or behind the dialer's end.
#include "transport/Dialer.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "tests/attrlog/Mirror.h"
#include "transport/MemoryLink.h"

namespace Mox::NboAttrLog::test {
namespace {

using Inventory::Arad::AradSlice;

struct Dialed : testing::Test {
  Dialed() {
    server.exportIs(Ptr<Entity>(slice));
    server.exportsDone();
    mirror.importDirIs(roots);
    loop.sessionIs(server);
    loop.sessionIs(mirror);
    dialer->onLost([this](Link const*, std::string const& reason, std::uint64_t pauseMs) {
      told.push_back(std::to_string(now) + ": " + reason + ", " + std::to_string(pauseMs));
      if (stopsWhenLost) dialer->stop();
    });
  }
  /// Lets time pass, millisecond by millisecond.
  void pass(std::uint64_t ms) {
    for (std::uint64_t const end = now + ms; now < end; ++now) loop.turn(0);
    loop.turn(0);
  }
  std::unique_ptr<ByteLink> connect() {
    ++tries;
    if (!isServerUp) throw TransportError("nobody");
    auto ends = MemoryLink::pair();
    pipe = ends.first->out();
    server.linkIs(std::move(ends.first));
    return std::move(ends.second);
  }
  std::uint64_t now = 0;
  PollLoop loop{[this] { return now; }};
  Ptr<AradSlice> slice{new AradSlice("slice")};
  Ptr<Dir> roots{new Dir};
  Session server{"server"};
  Session mirror{"mirror"};
  std::shared_ptr<MemoryPipe> pipe;
  bool isServerUp = false;
  bool stopsWhenLost = false;
  int tries = 0;
  std::vector<std::string> told;
  std::unique_ptr<Dialer> dialer = std::make_unique<Dialer>(
      loop, mirror, [this] { return connect(); }, Dialer::Pauses{10, 45});
};

TEST_F(Dialed, PausesGrowToTheMostAndAConnectionThatHeldStartsOver) {
  dialer->start();
  pass(200);
  EXPECT_EQ(told,
            (std::vector<std::string>{"0: nobody, 10", "10: nobody, 20", "30: nobody, 40",
                                      "70: nobody, 45", "115: nobody, 45", "160: nobody, 45"}));
  isServerUp = true;
  told.clear();
  pass(10);
  ASSERT_TRUE(dialer->link());
  // Cut at once: the pause goes on where it was.
  pipe->isCut = true;
  pass(46);
  ASSERT_EQ(told.size(), 1u);
  EXPECT_TRUE(told[0].ends_with(", 45")) << told[0];
  pass(45);
  ASSERT_TRUE(dialer->link());
  pipe->isCut = true;
  pass(1);
  ASSERT_EQ(told.size(), 2u);
  EXPECT_TRUE(told[1].ends_with(", 10")) << told[1];
}

TEST_F(Dialed, StopEndsTheTriesAlsoFromWithinTheHandlerAndSoDoesTheEnd) {
  stopsWhenLost = true;
  dialer->start();
  pass(100);
  EXPECT_EQ(tries, 1);
  stopsWhenLost = false;
  dialer->start();
  dialer->stop();
  pass(100);
  EXPECT_EQ(tries, 2);
  EXPECT_FALSE(dialer->link());
  dialer->start();
  dialer = nullptr;
  pass(100);
  EXPECT_EQ(tries, 3);
}

}  // namespace
}  // namespace Mox::NboAttrLog::test
