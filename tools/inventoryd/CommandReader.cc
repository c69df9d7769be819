// Cuts standard input into lines.
#include "tools/inventoryd/CommandReader.h"

#include <unistd.h>

#include <cerrno>
#include <string_view>
#include <utility>

#include "tools/common/TreeCommands.h"

namespace Tools {

CommandReader::CommandReader(Mox::NboAttrLog::PollLoop& loop, Report report)
    : loop_(loop), report_(std::move(report)) {
  loop_.descriptorIs(STDIN_FILENO, [this] { readSome(); });
}

CommandReader::~CommandReader() { loop_.descriptorDel(STDIN_FILENO); }

void CommandReader::readSome() {
  char bytes[65536];
  ssize_t const count = ::read(STDIN_FILENO, bytes, sizeof bytes);
  if (count < 0 && errno == EINTR) return;
  if (count <= 0) {
    loop_.descriptorDel(STDIN_FILENO);
    if (!line_.empty()) run();
    return;
  }
  for (char const c : std::string_view(bytes, static_cast<std::size_t>(count))) {
    if (c == '\n') {
      if (!run()) return;
    } else if (line_.size() <= maxLine) {
      line_ += c;
    }
  }
}

bool CommandReader::run() {
  ++number_;
  std::string const line = std::exchange(line_, {});
  if (line == "quit" || line == "quit\r") {
    loop_.stop();
    return false;
  }
  try {
    if (line.size() > maxLine) throw CommandError("the line is too long");
    runCommand(line);
  } catch (CommandError const& refused) {
    report_("standard input, line " + std::to_string(number_) + ": " + refused.what());
  }
  return true;
}

}  // namespace Tools
