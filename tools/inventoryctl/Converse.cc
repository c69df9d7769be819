// Lines from a prompt or a script, one after the other. While a command runs no further line is
// read.
#include <editline/readline.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <deque>
#include <iostream>
#include <optional>

#include "tools/common/LineReader.h"
#include "tools/inventoryctl/Shell.h"

namespace Tools {
namespace {

/// Lines that came and were not run yet.
struct Waiting {
  std::deque<std::string> lines;
  bool isEnded = false;
};

/// The line editor has one prompt in a process, and calls plain functions.
Waiting* promptWaiting = nullptr;
Shell const* promptShell = nullptr;
std::vector<std::string>* promptFound = nullptr;

void lineTyped(char* line) {
  rl_callback_handler_remove();
  if (line == nullptr) {
    promptWaiting->isEnded = true;
    return;
  }
  if (*line != '\0') add_history(line);
  promptWaiting->lines.emplace_back(line);
  std::free(line);
}

char* nextFound(char const*, int state) {
  auto const at = static_cast<std::size_t>(state);
  return at < promptFound->size() ? ::strdup((*promptFound)[at].c_str()) : nullptr;
}

char** complete(char const* word, int start, int) {
  std::vector<std::string> found = promptShell->completions(word, start == 0);
  promptFound = &found;
  rl_attempted_completion_over = 1;
  // A path goes on behind what was found.
  rl_completion_append_character = 0;
  return rl_completion_matches(const_cast<char*>(word), nextFound);
}

/// Reads from a terminal as long as it lives and no command runs.
class Prompt {
 public:
  Prompt(Mox::NboAttrLog::PollLoop& loop, Waiting& waiting, Shell const& shell) : loop_(loop) {
    promptWaiting = &waiting;
    promptShell = &shell;
    static char blanks[] = " \t";
    rl_completer_word_break_characters = blanks;
    rl_attempted_completion_function = complete;
    rl_readline_name = "inventoryctl";
    using_history();
    show();
    loop_.descriptorIs(STDIN_FILENO, [] { rl_callback_read_char(); });
  }
  ~Prompt() {
    loop_.descriptorDel(STDIN_FILENO);
    rl_callback_handler_remove();
  }
  Prompt(Prompt const&) = delete;
  Prompt& operator=(Prompt const&) = delete;

  void show() { rl_callback_handler_install("inventory> ", lineTyped); }

 private:
  Mox::NboAttrLog::PollLoop& loop_;
};

}  // namespace

bool converse(Mirror& mirror, Shell& shell, std::function<void(std::string const&)> const& report,
              std::function<void()> const& flush) {
  Waiting waiting;
  std::optional<Prompt> prompt;
  std::optional<LineReader> script;
  if (::isatty(STDIN_FILENO) == 1) {
    prompt.emplace(mirror.loop(), waiting, shell);
  } else {
    script.emplace(mirror.loop(), STDIN_FILENO, [&waiting](std::string const* line) {
      if (line) {
        waiting.lines.push_back(*line);
      } else {
        waiting.isEnded = true;
      }
    });
  }
  bool isFine = true;
  unsigned long number = 0;
  mirror.follow([&] {
    while (!waiting.lines.empty() && !shell.isEnded()) {
      std::string const line = std::move(waiting.lines.front());
      waiting.lines.pop_front();
      ++number;
      try {
        shell.run(commandOf(line));
      } catch (CommandError const& refused) {
        isFine = false;
        flush();
        report((prompt ? "" : "line " + std::to_string(number) + ": ") + refused.what());
      }
      flush();
      if (prompt && !shell.isEnded() && !waiting.isEnded) prompt->show();
    }
    flush();
    if (shell.isEnded() || waiting.isEnded) mirror.stop();
  });
  return isFine;
}

}  // namespace Tools
