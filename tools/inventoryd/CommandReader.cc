// One line, one change.
#include "tools/inventoryd/CommandReader.h"

#include <unistd.h>

#include <utility>

#include "tools/common/TreeCommands.h"

namespace Tools {

CommandReader::CommandReader(Mox::NboAttrLog::PollLoop& loop, Report report)
    : loop_(loop), report_(std::move(report)), lines_(loop, STDIN_FILENO, [this](auto* line) {
        if (line && !isEnded_) run(*line);
      }) {}

void CommandReader::run(std::string const& line) {
  ++number_;
  try {
    if (line.size() > LineReader::maxLine) throw CommandError("the line is too long");
    Command const command = commandOf(line);
    if (command.verb == "quit") {
      isEnded_ = true;
      loop_.stop();
    } else if (!command.verb.empty()) {
      change(command);
    }
  } catch (CommandError const& refused) {
    report_("standard input, line " + std::to_string(number_) + ": " + refused.what());
  }
}

}  // namespace Tools
