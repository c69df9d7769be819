// Captures: what was recorded is read back, and a damaged file ends in one clear refusal.
#include "transport/Capture.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "transport/MemoryLink.h"
#include "transport/SocketAddress.h"

namespace Mox::NboAttrLog::test {
namespace {

using Kind = CaptureRecord::Kind;

class Captures : public testing::Test {
 protected:
  Captures() {
    char name[] = "/tmp/invarad-capture-XXXXXX";
    ::close(::mkstemp(name));
    path_ = name;
  }
  ~Captures() override { ::unlink(path_.c_str()); }

  std::string contents() const {
    std::ostringstream all;
    all << std::ifstream(path_, std::ios::binary).rdbuf();
    return all.str();
  }
  void contentsAre(std::string const& bytes) const {
    std::ofstream(path_, std::ios::binary | std::ios::trunc) << bytes;
  }
  /// Each record as one line, and why reading ended.
  std::vector<std::string> lines() const {
    std::vector<std::string> lines;
    try {
      CaptureReader reader(path_);
      CaptureRecord record;
      while (reader.next(record)) {
        constexpr char const* names[] = {"", "opened", "received", "sent", "closed"};
        lines.push_back(std::to_string(record.connection) + " " + std::to_string(record.atMs) +
                        " " + names[static_cast<int>(record.kind)] + " " + record.bytes);
      }
      lines.emplace_back("end");
    } catch (TransportError const& refused) {
      lines.push_back(std::string(refused.what()).substr(path_.size()));
    }
    return lines;
  }
  /// Two connections, of which the second outlives the capture.
  void recordTwo() const {
    std::uint64_t now = 1000;
    auto writer = std::make_unique<CaptureWriter>(path_, [&now] { return now; });
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
  }

  std::string path_;
};

TEST_F(Captures, WhatWasRecordedIsReadBackWithConnectionsAndTimes) {
  recordTwo();
  EXPECT_EQ(lines(),
            (std::vector<std::string>{"1 0 opened peer 1", "2 5 opened peer 2",
                                      "1 5 received hello", "2 5 sent 12", "1 7 closed ", "end"}));
  struct stat status {};
  ASSERT_EQ(::stat(path_.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0600u);
}

TEST_F(Captures, ACaptureCutAnywhereGivesWhatIsThereAndThenOneRefusal) {
  recordTwo();
  std::string const whole = contents();
  std::vector<std::string> const all = lines();
  for (std::size_t size = 0; size < whole.size(); ++size) {
    contentsAre(whole.substr(0, size));
    std::vector<std::string> const got = lines();
    if (size < 16) {
      ASSERT_EQ(got, std::vector<std::string>{": not a capture"});
      continue;
    }
    if (got.back() != "end") {
      ASSERT_EQ(got.back(), ": the capture is cut at offset " + std::to_string(size));
    }
    for (std::size_t i = 0; i + 1 < got.size(); ++i) {
      ASSERT_TRUE(all[i].starts_with(got[i])) << size;
    }
  }
}

TEST_F(Captures, DamagedRecordsAreRefusedWithTheirPlace) {
  recordTwo();
  std::string damaged = contents();
  damaged[16] = 9;
  contentsAre(damaged);
  EXPECT_EQ(lines(), std::vector<std::string>{": the capture is damaged at offset 33"});
  damaged[16] = 1;
  damaged[16 + 13] = '\xff';  // A length beyond all that is ever written.
  contentsAre(damaged);
  EXPECT_EQ(lines(), std::vector<std::string>{": the capture is damaged at offset 33"});
}

TEST_F(Captures, AFullDiskEndsTheCaptureAndNotTheConnection) {
  CaptureWriter writer("/dev/full", [] { return std::uint64_t{0}; });
  std::vector<std::string> failures;
  writer.onFailed([&](std::string const& line) { failures.push_back(line); });
  auto ends = MemoryLink::pair();
  auto const link = writer.linkOf(std::move(ends.first), "peer");
  EXPECT_EQ(link->write("12", 2).count, 2u);
  EXPECT_EQ(link->write("34", 2).count, 2u);
  char piece[8];
  EXPECT_EQ(ends.second->read(piece, sizeof piece).count, 4u);
  EXPECT_LE(failures.size(), 1u);
}

TEST_F(Captures, WhatIsNoFileIsRefused) {
  EXPECT_THROW(CaptureReader("/nowhere/capture"), TransportError);
  EXPECT_THROW(CaptureReader("/tmp"), TransportError);
  EXPECT_THROW(CaptureWriter("/nowhere/capture", [] { return std::uint64_t{0}; }), TransportError);
}

}  // namespace
}  // namespace Mox::NboAttrLog::test
