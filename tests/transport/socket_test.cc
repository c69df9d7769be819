// Sockets and captures against the file system. Finds paths that are taken from a living listener
// or kept by a dead one, causes that are wrong, files that stay behind or are open to others, and
// damaged captures that are read as whole ones.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "attrlog/wire/ShownText.h"
#include "transport/Capture.h"
#include "transport/MemoryLink.h"
#include "transport/SocketLink.h"

namespace Mox::NboAttrLog::test {
namespace {

class Files : public testing::Test {
 protected:
  Files() {
    char name[] = "/tmp/invarad-files-XXXXXX";
    directory_ = ::mkdtemp(name);
  }
  ~Files() override {
    ::unlink(path().c_str());
    EXPECT_EQ(::rmdir(directory_.c_str()), 0) << "something was left behind";
  }
  std::string path() const { return directory_ + "/file"; }
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
  std::string listenRefusal() const {
    return refusal([this] { Listener again(address()); });
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
                         Row{"65535", "127.0.0.1:65535"}, Row{"[::1]:0", "[::1]:0"}}) {
    EXPECT_EQ(SocketAddress::tcp(row.text).text(), row.shown);
  }
  for (char const* text : {"", "host", "host:", "host:x", "host:65536", "::1:80", "a:b:1"}) {
    EXPECT_THROW(SocketAddress::tcp(text), TransportError) << text;
  }
}

TEST_F(Files, AUnixPathBelongsToOneLivingListener) {
  auto live = std::make_unique<Listener>(address());
  struct stat present {};
  ASSERT_EQ(::lstat(path().c_str(), &present), 0);
  EXPECT_EQ(present.st_mode & 0777, 0600u);
  EXPECT_NE(::fcntl(live->fd(), F_GETFD) & FD_CLOEXEC, 0);
  EXPECT_EQ(listenRefusal(), path() + ": somebody listens there already");
  // Also while its socket's file isn't there, as between a probe and `bind`.
  std::string const kept = path() + ".kept";
  ASSERT_EQ(::rename(path().c_str(), kept.c_str()), 0);
  EXPECT_EQ(listenRefusal(), path() + ": somebody listens there already");
  // Out of the listener's sight its file stays behind, as that of a killed process does.
  live = nullptr;
  ASSERT_EQ(::rename(kept.c_str(), path().c_str()), 0);
  EXPECT_EQ(refusal([&] { SocketLink::connect(address(), 1000); }),
            path() + ": Connection refused");
  live = std::make_unique<Listener>(address());
  EXPECT_NE(SocketLink::connect(address(), 1000), nullptr);
  // Somebody else's file at the path is left alone.
  ASSERT_EQ(::unlink(path().c_str()), 0);
  std::ofstream(path()) << "text";
  live = nullptr;
  EXPECT_TRUE(exists());
  EXPECT_EQ(listenRefusal(), path() + ": exists and is not a socket");
  ::unlink(path().c_str());
  // A socket that refuses for another reason than that nobody listens keeps its path.
  Descriptor const datagram(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  sockaddr_storage at{};
  at.ss_family = AF_UNIX;
  path().copy(reinterpret_cast<sockaddr*>(&at)->sa_data, path().size());
  ASSERT_EQ(::bind(datagram.get(), reinterpret_cast<sockaddr*>(&at),
                   static_cast<socklen_t>(sizeof at.ss_family + path().size())),
            0);
  EXPECT_EQ(listenRefusal(), path() + ": Protocol wrong type for socket");
  EXPECT_TRUE(exists());
}

TEST_F(Files, WhatCantBeHadIsReportedWithItsCause) {
  EXPECT_EQ(refusal([&] { SocketLink::connect(address(), 1000); }),
            path() + ": No such file or directory");
  std::string const longPath(200, 'x');
  EXPECT_EQ(refusal([&] { Listener listener(SocketAddress::unixPath(longPath)); }),
            longPath + ": the path is longer than 107 bytes");
  std::string const nowhere = path() + "/socket";
  EXPECT_EQ(refusal([&] { Listener listener(SocketAddress::unixPath(nowhere)); }),
            nowhere + ".lock: No such file or directory");
  Listener const taken(SocketAddress::tcp("127.0.0.1:0"));
  EXPECT_EQ(refusal([&] { Listener again(taken.address()); }),
            taken.address().text() + ": Address already in use");
  EXPECT_TRUE(taken.isLocal());
  EXPECT_FALSE(Listener(SocketAddress::tcp("0.0.0.0:0")).isLocal());
}

TEST_F(Files, ConnectionsKnowTheirOriginNeverWaitAndFailOnceThePeerIsGone) {
  std::string const user = "user " + std::to_string(::geteuid());
  for (auto const& [at, credentials] :
       {std::pair{address(), user}, {SocketAddress::tcp("127.0.0.1:0"), "host 127.0.0.1"}}) {
    Listener listener(at);
    EXPECT_EQ(listener.accept(), nullptr);
    auto const near = SocketLink::connect(listener.address(), 1000);
    auto far = listener.accept();
    ASSERT_TRUE(near && far);
    EXPECT_EQ(far->origin(), (Origin{listener.address().text(), credentials}));
    EXPECT_EQ(near->origin(), (Origin{"", credentials}));
    EXPECT_EQ(near->peerUser().has_value(), at.isUnix());
    if (!at.isUnix()) {
      for (auto const& [option, expected] :
           {std::pair{TCP_USER_TIMEOUT, 120000}, {TCP_KEEPIDLE, 30}, {TCP_KEEPCNT, 3}}) {
        int value = 0;
        socklen_t size = sizeof value;
        ASSERT_EQ(::getsockopt(far->fd(), IPPROTO_TCP, option, &value, &size), 0);
        EXPECT_EQ(value, expected);
      }
    }
    char bytes[4096] = "";
    ByteResult const read = near->read(bytes, sizeof bytes);
    EXPECT_EQ(read.count, 0u);
    EXPECT_EQ(read.state, ByteResult::State::open);
    ByteResult written{1, ByteResult::State::open};
    while (written.count != 0) written = near->write(bytes, sizeof bytes);
    EXPECT_EQ(written.state, ByteResult::State::open);
    far->close();
    while (near->write(bytes, sizeof bytes).state == ByteResult::State::open) {
    }
    EXPECT_FALSE(near->error().empty());
  }
}

TEST(ShownText, NothingForgesALineOrCommandsATerminal) {
  struct Row {
    char const* text;
    char const* shown;
  };
  for (Row const& row : {Row{"caf\xc3\xa9 'x' \\n", "caf\xc3\xa9 'x' \\n"},
                         {"a\nb\r\t", "a\\x0ab\\x0d\\x09"},
                         {"\x1b[2J\x7f", "\\x1b[2J\\x7f"},
                         {"\xc2\x9b", "\\xc2\\x9b"},
                         {"\x9b \xff \xc0\x80 \xed\xa0\x80 \xe2\x82",
                          "\\x9b \\xff \\xc0\\x80 "
                          "\\xed\\xa0\\x80 \\xe2\\x82"},
                         {"\xe2\x80\xae \xe2\x80\xa8", "\\xe2\\x80\\xae \\xe2\\x80\\xa8"},
                         {"\xf0\x9f\x8c\xb1", "\xf0\x9f\x8c\xb1"}}) {
    EXPECT_EQ(shownText(row.text), row.shown);
    EXPECT_EQ(shownText(row.shown), row.shown);
  }
}

class Captures : public Files {
 protected:
  void contentsAre(std::string const& bytes) const {
    std::ofstream(path(), std::ios::binary | std::ios::trunc) << bytes;
  }
  /// Each record as one line, and why reading ended.
  std::vector<std::string> lines() const {
    std::vector<std::string> lines;
    lines.push_back(refusal([&] {
      CaptureReader reader(path());
      CaptureRecord record;
      while (reader.next(record)) {
        constexpr char const* names[] = {"", "opened", "received", "sent", "closed"};
        lines.push_back(std::to_string(record.connection) + " " + std::to_string(record.atMs) +
                        " " + names[static_cast<int>(record.kind)] + " " + record.bytes);
      }
    }));
    return lines;
  }
  /// Two connections, of which the second outlives the capture. The file's bytes.
  std::string recorded() const {
    std::uint64_t now = 1000;
    auto writer = std::make_unique<CaptureWriter>(path(), [&now] { return now; });
    auto first = MemoryLink::pair();
    auto second = MemoryLink::pair();
    auto const one = writer->linkOf(std::move(first.first), "peer 1");
    now = 1005;
    auto const two = writer->linkOf(std::move(second.first), "peer 2");
    char piece[8];
    first.second->write("hello", 5);
    EXPECT_EQ(one->read(piece, sizeof piece).count, 5u);
    EXPECT_EQ(one->read(piece, sizeof piece).count, 0u);
    EXPECT_EQ(two->write("12", 2).count, 2u);
    now = 1007;
    one->close();
    writer = nullptr;
    EXPECT_EQ(two->write("34", 2).count, 2u);
    std::ostringstream all;
    all << std::ifstream(path(), std::ios::binary).rdbuf();
    return all.str();
  }
};

TEST_F(Captures, AreReadBackAndCutOrDamagedAnywhereEndInOneRefusal) {
  std::string const whole = recorded();
  std::vector<std::string> const all = lines();
  EXPECT_EQ(
      all, (std::vector<std::string>{"1 0 opened peer 1", "2 5 opened peer 2", "1 5 received hello",
                                     "2 5 sent 12", "1 7 closed ", "nothing thrown"}));
  for (std::size_t size = 0; size < whole.size(); ++size) {
    contentsAre(whole.substr(0, size));
    std::vector<std::string> const got = lines();
    std::string const why =
        size < 16 ? "not a capture" : "the capture is cut at offset " + std::to_string(size);
    if (size < 16 || got.back() != "nothing thrown") {
      ASSERT_EQ(got.back(), path() + ": " + why);
    }
    for (std::size_t i = 0; i + 1 < got.size(); ++i) ASSERT_TRUE(all[i].starts_with(got[i]));
  }
  // A kind that there is not, and a length beyond all that is ever written.
  for (auto const& [at, byte] : {std::pair{16, '\x09'}, {16 + 13, '\xff'}}) {
    std::string damaged = whole;
    damaged[static_cast<std::size_t>(at)] = byte;
    contentsAre(damaged);
    EXPECT_EQ(lines(), std::vector<std::string>{path() + ": the capture is damaged at offset 33"});
  }
}

TEST_F(Captures, FilesThatCantBeWrittenOrReadAreRefused) {
  auto const clock = [] { return std::uint64_t{0}; };
  EXPECT_EQ(refusal([&] { CaptureWriter("/dev/full", clock); }),
            "/dev/full: No space left on device; the capture ends here");
  EXPECT_EQ(refusal([&] { CaptureWriter(path() + "/x", clock); }),
            path() + "/x: No such file or directory");
  EXPECT_EQ(refusal([] { CaptureReader("/tmp"); }), "/tmp: Is a directory");
}

}  // namespace
}  // namespace Mox::NboAttrLog::test
