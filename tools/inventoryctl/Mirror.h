// A local copy of what an inventoryd serves, and the connection that keeps it in step.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "Mox/Dir.h"
#include "attrlog/link/Session.h"
#include "tools/common/Endpoint.h"
#include "tools/inventoryctl/Failure.h"
#include "transport/Dialer.h"
#include "transport/PollLoop.h"
#include "transport/SocketAddress.h"

namespace Tools {

class Mirror {
 public:
  using Report = std::function<void(std::string const& line)>;

  struct Options {
    Endpoint endpoint;
    /// How long the server may say nothing until the copy is in step.
    std::uint64_t timeoutMs = 10000;
    /// Asks for the right to change what the server has.
    bool wantsWrite = false;
  };

  /// Connects at once; throws Failure.
  explicit Mirror(Options const& options);
  ~Mirror();
  Mirror(Mirror const&) = delete;
  Mirror& operator=(Mirror const&) = delete;

  /// Waits until the copy is in step; false if `stop` was called before. Throws Failure.
  bool inStepWait();
  /// Applies changes as they come, calling `changed` behind each turn, until `stop`. Throws Failure
  /// when the connection ends.
  void follow(std::function<void()> const& changed);
  /// From here on a connection that ends is made again, the copy being kept meanwhile; `report`
  /// hears of both. Only a server that doesn't understand is still a Failure.
  void retriesAreOn(Report report);
  void stop() { isStopped_ = true; }

  /// True while changes of the copy go to the server.
  bool mayWrite() const;
  /// Waits until the server has everything that was changed here. Throws Failure.
  void deliver();

  Mox::Dir& roots() { return **roots_; }
  Mox::NboAttrLog::PollLoop& loop() { return loop_; }

 private:
  void turn(int maxWaitMs);
  void ended(Mox::NboAttrLog::Link const& link, std::string const& reason);

  Options options_;
  Mox::NboAttrLog::SocketAddress address_;
  Mox::NboAttrLog::PollLoop loop_;
  Mox::Ptr<Mox::Dir> roots_;
  Mox::NboAttrLog::Session session_;
  Mox::NboAttrLog::Dialer dialer_;
  Report report_;  ///< null: no retries
  bool isOutOfStep_ = true;
  std::optional<Failure> failure_;
  bool isStopped_ = false;
};

}  // namespace Tools
