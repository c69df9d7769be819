// A local copy of what an inventoryd serves, and the connection that keeps it in step.
#pragma once

#include <functional>
#include <stdexcept>
#include <string>

#include "Mox/Dir.h"
#include "attrlog/Session.h"
#include "transport/PollLoop.h"
#include "transport/SocketAddress.h"

namespace Tools {

/// What the program tells the shell.
enum ExitCode : int {
  exitFine = 0,
  exitOutput = 1,  ///< standard output can't be written, or this process failed
  exitUsage = 2,
  exitNoServer = 3,       ///< nobody listens, or who listens says nothing
  exitWrongProtocol = 4,  ///< what the other end says is not understood, or the other way round
  exitLost = 5,           ///< the connection ended, or stood still before the copy was in step
};

/// The end of the program's work: a line for standard error, and the exit code.
class Failure : public std::runtime_error {
 public:
  Failure(ExitCode code, std::string const& text) : std::runtime_error(text), code_(code) {}
  ExitCode code() const { return code_; }

 private:
  ExitCode code_;
};

class Mirror {
 public:
  /// `timeoutMs`: how long the server may say nothing until the copy is in step. Connects at once;
  /// throws Failure.
  Mirror(Mox::NboAttrLog::SocketAddress const& address, std::uint64_t timeoutMs);
  ~Mirror();
  Mirror(Mirror const&) = delete;
  Mirror& operator=(Mirror const&) = delete;

  /// Waits until the copy is in step; false if `stop` was called before. Throws Failure.
  bool inStepWait();
  /// Applies changes as they come, calling `changed` behind each turn, until `stop`. Throws Failure
  /// when the connection ends.
  void follow(std::function<void()> const& changed);
  void stop() { isStopped_ = true; }

  Mox::Dir& roots() { return **roots_; }
  Mox::NboAttrLog::PollLoop& loop() { return loop_; }

 private:
  void turn(int maxWaitMs);
  [[noreturn]] void fail() const;

  std::string address_;
  std::uint64_t timeoutMs_;
  Mox::NboAttrLog::PollLoop loop_;
  Mox::Ptr<Mox::Dir> roots_;
  Mox::NboAttrLog::Session session_;
  Mox::Ptr<Mox::NboAttrLog::Link> link_;
  bool isStopped_ = false;
};

}  // namespace Tools
