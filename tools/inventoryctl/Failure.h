// How a command of inventoryctl ends when it can't do what it was asked for.
#pragma once

#include <stdexcept>
#include <string>

namespace Tools {

/// What the program tells the shell.
enum ExitCode : int {
  exitFine = 0,
  exitFile = 1,  ///< standard output can't be written, a file can't be read, this process failed
  exitUsage = 2,
  exitNoServer = 3,       ///< nobody listens, or who listens says nothing
  exitWrongProtocol = 4,  ///< what the other end says is not understood, or the other way round
  exitLost = 5,           ///< the connection ended, or stood still before the copy was in step
  exitRefused = 6,        ///< what was asked for can't be done; nothing has changed
};

/// The end of the program's work: a line for standard error, and the exit code.
class Failure : public std::runtime_error {
 public:
  Failure(ExitCode code, std::string const& text) : std::runtime_error(text), code_(code) {}
  ExitCode code() const { return code_; }

 private:
  ExitCode code_;
};

}  // namespace Tools
