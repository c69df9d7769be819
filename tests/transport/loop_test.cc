// The poll loop as a foreign loop sees it: after any change something must be readable or due until
// all copies are in step, and then nothing. Finds wakes that are missing, handlers that take
// themselves or others out, timers and shortages that spin.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <map>
#include <random>
#include <string>
#include <vector>

#include "tests/attrlog/Mirror.h"
#include "transport/Admission.h"
#include "transport/PollLoop.h"

namespace Mox::NboAttrLog::test {
namespace {

using Inventory::Arad::AradSlice;

std::uint64_t now = 1000;

/// A loop that is only turned when what it gave for waiting says so.
struct WaitedLoop {
  bool step() {
    pollfd waiting{loop.fd(), POLLIN, 0};
    if (::poll(&waiting, 1, 0) != 1 && !(due && *due <= now)) return false;
    loop.turn(0);
    due = loop.dueMs();
    return true;
  }

  PollLoop loop{[] { return now; }};
  std::optional<std::uint64_t> due = loop.dueMs();
};

struct Client {
  explicit Client(SocketAddress const& at) {
    session.importDirIs(dir);
    here.loop.sessionIs(session);
    link = session.linkIs(SocketLink::connect(at, 1000));
  }

  WaitedLoop here;
  Session session{""};
  Ptr<Dir> dir{new Dir};
  Ptr<Link> link;
};

TEST(PollLoop, WhatAForeignLoopWaitsForBringsAllIntoStepAndThenRests) {
  auto const seed = std::random_device{}();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  WaitedLoop here;
  Session server("server");
  Listener listener(SocketAddress::tcp("127.0.0.1:0"));
  here.loop.sessionIs(server);
  here.loop.listenerIs(listener, server);
  std::map<std::string, Ptr<AradSlice>> roots;
  std::vector<std::unique_ptr<Client>> clients;
  server.exportsDone();
  int timersDue = 0, timersRun = 0;
  auto const settle = [&] {
    int steps = 0;
    for (bool moves = true; moves && steps < 20000; ++steps) {
      moves = here.step();
      for (auto const& client : clients) moves |= client->here.step();
    }
    return steps < 20000;
  };
  for (int round = 0; round < 150; ++round) {
    std::string const name(1, static_cast<char>('a' + random() % 3));
    Ptr<AradSlice> root = roots.contains(name) ? roots[name] : Ptr<AradSlice>();
    switch (random() % 8) {
      case 0:
        if (root) server.exportDel(roots.extract(name).mapped());
        break;
      case 1:
        if (clients.size() < 4) clients.push_back(std::make_unique<Client>(listener.address()));
        break;
      case 2:
        if (!clients.empty() && random() % 2) clients.back()->link->closeIs("done");
        if (!server.links().empty() && random() % 4 == 0) server.links().front()->closeIs("done");
        break;
      case 3:
        ++timersDue;
        here.loop.timerIs(now + random() % 20, [&] { ++timersRun; });
        break;
      case 4:
        if (root)
          root->fapIs("fap0", 1)->descriptionIs(std::string(random() % 400000, 'd').c_str());
        break;
      default:
        if (!root) server.exportIs(roots[name] = new AradSlice(name.c_str()));
        roots[name]->numPortsIs(static_cast<unsigned int>(random()));
        break;
    }
    if (random() % 2) now += random() % 30;
    ASSERT_TRUE(settle()) << "round " << round;
    std::erase_if(clients,
                  [](auto const& client) { return client->link->state() == Link::State::closed; });
    for (auto const& client : clients) {
      ASSERT_TRUE(client->link->demuxer().inStep()) << "round " << round;
      for (auto const& [root, tree] : roots) {
        Ptr<Dir::Entry> const copy = client->dir->entry(root.c_str());
        ASSERT_TRUE(copy && treeText(copy->target()) == treeText(tree)) << "round " << round;
      }
    }
    ASSERT_EQ(server.links().size(), clients.size());
  }
  now += 20;
  ASSERT_TRUE(settle());
  EXPECT_EQ(timersRun, timersDue);
}

TEST(PollLoop, HandlersMayTakeThemselvesAndOthersOutAndFilesAreAlwaysReady) {
  now = 100;
  PollLoop loop([] { return now; });
  std::vector<std::string> trace;
  std::uint64_t later = 0;
  loop.timerIs(150, [&] {
    trace.push_back("150");
    loop.timerDel(later);
    loop.timerIs(160, [&] { trace.push_back("160"); });
  });
  later = loop.timerIs(155, [&] { trace.push_back("155"); });
  int ends[2];
  ASSERT_EQ(::pipe(ends), 0);
  loop.descriptorIs(ends[0], [&] {
    char byte = 0;
    ASSERT_EQ(::read(ends[0], &byte, 1), 1);
    trace.push_back(std::string("byte ") + byte);
    if (byte == 'b') loop.descriptorDel(ends[0]);
  });
  loop.turn(0);
  EXPECT_TRUE(trace.empty());
  ASSERT_EQ(::write(ends[1], "abc", 3), 3);
  for (now = 155; now < 165; now += 5) {
    loop.turn(0);
    loop.turn(0);
  }
  EXPECT_EQ(trace, (std::vector<std::string>{"byte a", "150", "byte b", "160"}));
  // epoll refuses a regular file: it is ready in every turn.
  Descriptor const file(::open(SOURCE_DIR "/README.md", O_RDONLY | O_CLOEXEC));
  loop.descriptorIs(file.get(), [&] {
    trace.push_back("file");
    loop.descriptorDel(file.get());
  });
  loop.turn(-1);
  EXPECT_EQ(trace.back(), "file");
  ::close(ends[0]);
  ::close(ends[1]);
}

TEST(PollLoop, AServerOutOfDescriptorsRestsAndReportsItOnce) {
  now = 1000;
  Listener listener(SocketAddress::tcp("127.0.0.1:0"));
  Session session("server");
  PollLoop loop([] { return now; });
  std::vector<std::string> reports;
  loop.onReport([&](std::string const& line) { reports.push_back(line); });
  loop.sessionIs(session);
  loop.listenerIs(listener, session);
  auto const client = SocketLink::connect(listener.address(), 1000);
  std::vector<Descriptor> all;
  for (int fd = ::dup(0); fd >= 0 && all.size() < 70000; fd = ::dup(0)) all.emplace_back(fd);
  if (all.size() == 70000) GTEST_SKIP() << "no limit of descriptors here";
  for (int i = 0; i < 50; ++i, now += 50) loop.turn(0);
  EXPECT_EQ(reports, std::vector<std::string>{listener.address().text() + ": Too many open files"});
  EXPECT_TRUE(session.links().empty());
  all.clear();
  now += 100;
  loop.turn(0);
  EXPECT_EQ(session.links().size(), 1u);
}

TEST(Admission, TheOriginWithTheMostConnectionsMakesRoomForOthers) {
  Session session("server");
  auto const arrives = [&](char const* user, bool greets) {
    auto ends = MemoryLink::pair();
    ends.first->originIs({"place", user});
    if (!admits(session, ends.first->origin(), 4)) return Ptr<Link>();
    std::string const hello = Greeting().bytes();
    if (greets) ends.second->write(hello.data(), hello.size());
    Ptr<Link> const link = session.linkIs(std::move(ends.first));
    session.service(1);
    return link;
  };
  std::vector<Ptr<Link>> greedy;
  for (bool const greets : {true, false, true}) greedy.push_back(arrives("greedy", greets));
  ASSERT_TRUE(arrives("modest", true));
  EXPECT_FALSE(arrives("greedy", true));
  Ptr<Link> const second = arrives("modest", true);
  ASSERT_TRUE(second);
  // Of three it was the one that had not greeted; at two each nobody has to go.
  EXPECT_EQ(greedy[1]->state(), Link::State::closed);
  EXPECT_EQ(session.links().size(), 4u);
  EXPECT_FALSE(arrives("modest", true));
  EXPECT_TRUE(arrives("third", true));
  EXPECT_EQ(session.links().size(), 4u);
}

}  // namespace
}  // namespace Mox::NboAttrLog::test
