// Lines from a descriptor that others share. Finds an interrupted or emptied read that is taken for
// the end, and lines that are cut or joined wrongly.
#include "tools/common/LineReader.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <string>

namespace {

using Mox::NboAttrLog::PollLoop;
using Tools::LineReader;

/// Two readers of one pipe are ready at once, and the first takes all: what the second reads then
/// would wait (and is interrupted), or has nothing.
TEST(LineReader, AReadThatGivesNothingIsNotTheEnd) {
  for (bool const isBlocking : {true, false}) {
    int ends[2];
    ASSERT_EQ(::pipe2(ends, isBlocking ? 0 : O_NONBLOCK), 0);
    int const other = ::dup(ends[0]);
    std::string lines;
    int readersEnded = 0;
    PollLoop loop;
    auto const note = [&](std::string const* line) {
      if (line) lines += *line + ";";
      if (!line) ++readersEnded;
    };
    LineReader const first(loop, ends[0], note);
    LineReader const second(loop, other, note);
    struct sigaction interrupt {};
    interrupt.sa_handler = [](int) {};
    ::sigaction(SIGALRM, &interrupt, nullptr);
    if (isBlocking) ::ualarm(10000, 10000);
    ASSERT_EQ(::write(ends[1], "a\nb", 3), 3);
    while (lines.empty()) loop.turn(-1);
    ::ualarm(0, 0);
    EXPECT_EQ(lines, "a;");
    EXPECT_EQ(readersEnded, 0);
    ::close(ends[1]);
    while (readersEnded < 2) loop.turn(-1);
    EXPECT_EQ(lines, "a;b;");
    ::close(ends[0]);
    ::close(other);
  }
}

}  // namespace
