// Real sockets within one process: addresses, listeners and their files, connecting, the poll loop,
// and a tree that is mirrored over both kinds.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <string>
#include <vector>

#include "attrlog/link/Session.h"
#include "tests/attrlog/Mirror.h"
#include "transport/PollLoop.h"
#include "transport/SocketLink.h"

namespace Mox::NboAttrLog::test {
namespace {

using Inventory::Arad::AradSlice;

class Sockets : public testing::Test {
 protected:
  Sockets() {
    char name[] = "/tmp/invarad-sockets-XXXXXX";
    directory_ = ::mkdtemp(name);
  }
  ~Sockets() override {
    ::unlink(path().c_str());
    ::rmdir(directory_.c_str());
  }
  std::string path() const { return directory_ + "/socket"; }
  SocketAddress address() const { return SocketAddress::unixPath(path()); }
  /// The text of the TransportError that `act` throws.
  template <class Act>
  static std::string refusal(Act const& act) {
    try {
      act();
    } catch (TransportError const& failure) {
      return failure.what();
    }
    return "nothing thrown";
  }
  bool exists() const { return ::access(path().c_str(), F_OK) == 0; }

 private:
  std::string directory_;
};

TEST(SocketAddress, ReadsHostAndPort) {
  struct Row {
    char const* text;
    char const* shown;
  };
  for (Row const& row : {Row{"localhost:80", "localhost:80"}, Row{":7", "127.0.0.1:7"},
                         Row{"65535", "127.0.0.1:65535"}, Row{"[::1]:0", "[::1]:0"},
                         Row{"10.0.0.1:1", "10.0.0.1:1"}}) {
    EXPECT_EQ(SocketAddress::tcp(row.text).text(), row.shown);
  }
  for (char const* text :
       {"", "host", "host:", "host:x", "host:65536", "host:-1", "::1:80", "host:123456", "a:b:1"}) {
    EXPECT_THROW(SocketAddress::tcp(text), TransportError) << text;
  }
}

TEST_F(Sockets, AUnixSocketIsForItsUserAloneAndGoesWithItsListener) {
  {
    Listener const listener(address());
    struct stat present {};
    ASSERT_EQ(::lstat(path().c_str(), &present), 0);
    EXPECT_TRUE(S_ISSOCK(present.st_mode));
    EXPECT_EQ(present.st_mode & 0777, 0600u);
    EXPECT_NE(::fcntl(listener.fd(), F_GETFD) & FD_CLOEXEC, 0);
  }
  EXPECT_FALSE(exists());
}

TEST_F(Sockets, OnlyADeadListenersFileIsReplaced) {
  {
    Listener const live(address());
    EXPECT_EQ(refusal([&] { Listener again(address()); }),
              path() + ": somebody listens there already");
    // Out of the listener's sight it stays behind, as that of a killed process does.
    ASSERT_EQ(::rename(path().c_str(), (path() + ".kept").c_str()), 0);
  }
  ASSERT_EQ(::rename((path() + ".kept").c_str(), path().c_str()), 0);
  EXPECT_EQ(refusal([&] { SocketLink::connect(address(), 1000); }),
            path() + ": Connection refused");
  {
    Listener const second(address());
    EXPECT_NE(SocketLink::connect(address(), 1000), nullptr);
    // Somebody else's file at the path is left alone.
    ASSERT_EQ(::unlink(path().c_str()), 0);
    std::ofstream(path()) << "text";
  }
  EXPECT_TRUE(exists());
  EXPECT_EQ(refusal([&] { Listener third(address()); }), path() + ": exists and is not a socket");
}

TEST_F(Sockets, WhatCantBeHadIsToldInOneLine) {
  EXPECT_EQ(refusal([&] { SocketLink::connect(address(), 1000); }),
            path() + ": No such file or directory");
  std::string const longPath(200, 'x');
  EXPECT_EQ(refusal([&] { Listener listener(SocketAddress::unixPath(longPath)); }),
            longPath + ": the path is longer than 107 bytes");
  EXPECT_EQ(refusal([] { Listener listener(SocketAddress::tcp("256.0.0.1:0")); }).substr(0, 13),
            "256.0.0.1:0: ");
  Listener const taken(SocketAddress::tcp("127.0.0.1:0"));
  EXPECT_NE(taken.address().port, "0");
  EXPECT_EQ(refusal([&] { Listener again(taken.address()); }),
            taken.address().text() + ": Address already in use");
}

TEST_F(Sockets, ReadsAndWritesNeverWaitAndABrokenPipeIsAnError) {
  Listener listener(address());
  EXPECT_EQ(listener.accept(), nullptr);
  auto const near = SocketLink::connect(address(), 1000);
  auto far = listener.accept();
  ASSERT_TRUE(near && far);
  char bytes[4096] = "";
  ByteResult read = near->read(bytes, sizeof bytes);
  EXPECT_EQ(read.count, 0u);
  EXPECT_EQ(read.state, ByteResult::State::open);
  ByteResult written{1, ByteResult::State::open};
  while (written.count != 0) written = near->write(bytes, sizeof bytes);
  EXPECT_EQ(written.state, ByteResult::State::open);
  far->close();
  EXPECT_EQ(near->write(bytes, sizeof bytes).state, ByteResult::State::failed);
  EXPECT_FALSE(near->error().empty());
}

/// A server and a client session on one loop.
void mirrorsOver(SocketAddress const& at, std::size_t capacity) {
  Ptr<AradSlice> const root(new AradSlice("slice"));
  auto const arad = root->fapIs("fap0", 1);
  auto const bag = arad->elkGlobalSocPropertiesIs("global", 0);
  for (int i = 0; i < 5000; ++i) {
    bag->propertyIs(String8(("key" + std::to_string(i)).c_str()),
                    String8(std::string(static_cast<std::size_t>(i % 300), 'v').c_str()));
  }
  arad->descriptionIs(String8(std::string(300000, 'd').c_str()));

  LinkOptions options;
  options.outCapacity = capacity;
  Session server("server", options);
  Session client("client", options);
  Ptr<Dir> const dir(new Dir);
  client.importDirIs(dir);
  server.exportIs(root);
  server.exportsDone();
  std::string closed;
  server.onClosed([&](Link&, std::string const& reason) { closed = reason; });

  PollLoop loop;
  Listener listener(at);
  loop.listenerIs(listener, server);
  loop.sessionIs(server);
  loop.sessionIs(client);
  Ptr<Link> const link = client.linkIs(SocketLink::connect(listener.address(), 1000));
  std::uint64_t const giveUpMs = loop.nowMs() + 30000;
  while (!link->demuxer().inStep() && loop.nowMs() < giveUpMs) loop.turn(1000);
  ASSERT_TRUE(link->demuxer().inStep());
  EXPECT_EQ(treeText(dir->entry("slice")->target()), treeText(root));

  root->numPortsIs(5);
  auto const copy = ptrCast<AradSlice>(dir->entry("slice")->target());
  while (copy->numPorts() != 5 && loop.nowMs() < giveUpMs) loop.turn(1000);
  EXPECT_EQ(copy->numPorts(), 5u);

  link->closeIs("done");
  while (closed.empty() && loop.nowMs() < giveUpMs) loop.turn(1000);
  EXPECT_EQ(closed, "closed by the peer");
  EXPECT_TRUE(server.links().empty());
}

TEST_F(Sockets, MirrorsATreeOverUnixAndTcp) {
  for (std::size_t capacity : {leastCapacity, 2 * leastCapacity}) {
    SCOPED_TRACE(capacity);
    mirrorsOver(address(), capacity);
    mirrorsOver(SocketAddress::tcp("127.0.0.1:0"), capacity);
  }
}

TEST(PollLoop, TimersAndDescriptorsAreServedAndMayTakeThemselvesOut) {
  std::uint64_t now = 100;
  PollLoop loop([&now] { return now; });
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
  now = 155;
  loop.turn(0);
  loop.turn(0);
  now = 160;
  loop.turn(0);
  loop.turn(0);
  EXPECT_EQ(trace, (std::vector<std::string>{"byte a", "150", "byte b", "160"}));
  ::close(ends[0]);
  ::close(ends[1]);
}

TEST(PollLoop, AServerOutOfDescriptorsRestsInsteadOfSpinning) {
  Listener listener(SocketAddress::tcp("127.0.0.1:0"));
  Session session("server");
  std::uint64_t now = 1000;
  PollLoop loop([&now] { return now; });
  std::vector<std::string> reports;
  loop.onReport([&](std::string const& line) { reports.push_back(line); });
  loop.sessionIs(session);
  loop.listenerIs(listener, session);
  auto const client = SocketLink::connect(listener.address(), 1000);
  std::vector<Descriptor> all;
  for (int fd = ::open("/dev/null", O_RDONLY | O_CLOEXEC); fd >= 0;
       fd = ::open("/dev/null", O_RDONLY | O_CLOEXEC)) {
    all.emplace_back(fd);
    if (all.size() > 70000) GTEST_SKIP() << "no limit of descriptors here";
  }
  for (int i = 0; i < 5; ++i) loop.turn(0);
  EXPECT_EQ(reports, std::vector<std::string>{listener.address().text() + ": Too many open files"});
  EXPECT_TRUE(session.links().empty());
  all.clear();
  now += 100;
  loop.turn(0);
  EXPECT_EQ(session.links().size(), 1u);
}

}  // namespace
}  // namespace Mox::NboAttrLog::test
