// One poll() over everything that a process waits for: listeners, the links of sessions, other
// descriptors, timers. One thread; whoever runs the loop owns what it was given.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <vector>

#include "attrlog/link/Session.h"
#include "transport/SocketLink.h"

namespace MOX_API Mox {
namespace NboAttrLog {

class PollLoop {
 public:
  using Clock = std::function<std::uint64_t()>;
  using Handler = std::function<void()>;
  using Accepted = std::function<void(std::unique_ptr<SocketLink>)>;
  using OnReport = std::function<void(std::string const& line)>;

  /// Milliseconds of the system's steady clock.
  static std::uint64_t steadyMs();

  explicit PollLoop(Clock clock = steadyMs) : clock_(std::move(clock)) {}
  PollLoop(PollLoop const&) = delete;
  PollLoop& operator=(PollLoop const&) = delete;

  std::uint64_t nowMs() const { return clock_(); }

  // What is given must outlive the loop or be taken out before. Handlers may give and take.

  /// Serves the session's links, present and future.
  void sessionIs(Session& session);
  void sessionDel(Session& session);
  /// Each connection becomes a link of the session.
  void listenerIs(Listener& listener, Session& session);
  /// Each connection goes to `accepted`.
  void listenerIs(Listener& listener, Accepted accepted);
  void listenerDel(Listener& listener);
  enum class Wait : std::uint8_t { toRead, toWrite };
  /// Calls `ready` whenever the descriptor has something to read, or room to write, or its end.
  void descriptorIs(int fd, Handler ready, Wait wait = Wait::toRead);
  void descriptorDel(int fd);
  /// Calls `due` once. Returns a number for `timerDel`.
  std::uint64_t timerIs(std::uint64_t dueMs, Handler due);
  void timerDel(std::uint64_t timer);
  void onReport(OnReport handler) { onReport_ = std::move(handler); }

  /// Waits at most `maxWaitMs` (negative: without limit) for one thing to happen, and does all that
  /// is to be done.
  void turn(int maxWaitMs = -1);
  /// Turns until `stop`.
  void run();
  void stop() { isStopped_ = true; }

 private:
  struct Listening {
    Listener* listener;
    Accepted accepted;
    std::uint64_t pausedUntilMs = 0;
  };
  struct Waiting {
    Handler ready;
    Wait wait;
  };
  struct Timer {
    std::uint64_t dueMs;
    Handler due;
  };

  int waitMs(int maxWaitMs) const;
  void acceptFrom(Listener* listener);
  void runTimers();

  Clock clock_;
  std::vector<Session*> sessions_;
  std::vector<Listening> listening_;
  std::map<int, Waiting> descriptors_;
  std::map<std::uint64_t, Timer> timers_;
  std::uint64_t lastTimer_ = 0;
  bool isStopped_ = false;
  OnReport onReport_;
};

}  // namespace NboAttrLog
}  // namespace Mox
