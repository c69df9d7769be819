// The commands about a server's tree: one of the command line, lines of a script, or lines that a
// person types at a prompt.
#pragma once

#include <functional>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "tools/common/Dump.h"
#include "tools/common/TreeCommands.h"
#include "tools/inventoryctl/Mirror.h"
#include "tools/inventoryctl/Watch.h"

namespace Tools {

/// Carries out commands on a mirror that is in step:
///
///     ls [PATH]   get PATH   set PATH VALUE   add PATH ARGUMENT…   del PATH   types [TYPE]   dump
///     watch [PATH]   from here on tells changes while other commands go on; `watch off` ends it
///     help   quit
class Shell {
 public:
  Shell(Mirror& mirror, std::ostream& to, bool isJson);
  ~Shell();
  Shell(Shell const&) = delete;
  Shell& operator=(Shell const&) = delete;

  /// Throws CommandError for what can't be done, Failure when the connection fails.
  void run(Command const& command);
  bool isEnded() const { return isEnded_; }

  /// What could stand for the word that begins at `start` of a line.
  std::vector<std::string> completions(std::string const& word, bool isFirst) const;

  static char const* helpText();

 private:
  void watch(std::vector<std::string> const& words);
  void changeThere(Command const& command);

  Mirror& mirror_;
  std::ostream& to_;
  DumpForm form_;
  std::unique_ptr<Watch> watch_;
  bool isEnded_ = false;
};

/// Runs the lines of standard input in a shell until they end, with line editing and completion if
/// a person types them. False if a line could not be carried out; each such is told by `report`.
/// `flush` is called behind each command and each change.
bool converse(Mirror& mirror, Shell& shell, std::function<void(std::string const&)> const& report,
              std::function<void()> const& flush);

}  // namespace Tools
