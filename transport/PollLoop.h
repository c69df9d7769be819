// Waits for all that a process waits for: listeners, the links of sessions, other descriptors,
// timers. What is idle costs nothing in a turn. One thread; whoever runs the loop owns what it was
// given. `run` is the loop of a whole program; a program with a loop of its own uses `fd`.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

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

  /// Throws TransportError when the system has no descriptor left.
  explicit PollLoop(Clock clock = steadyMs);
  ~PollLoop();
  PollLoop(PollLoop const&) = delete;
  PollLoop& operator=(PollLoop const&) = delete;

  std::uint64_t nowMs() const { return clock_(); }

  // Handlers may give and take. Listeners and descriptors must be taken out before they close; a
  // session may end before the loop.

  /// Serves the session's links, present and future. Takes the session's `onLink`.
  void sessionIs(Session& session);
  void sessionDel(Session& session);
  /// Each connection becomes a link of the session.
  void listenerIs(Listener& listener, Session& session);
  /// Each connection goes to `accepted`.
  void listenerIs(Listener& listener, Accepted accepted);
  void listenerDel(Listener& listener);
  enum class Wait : std::uint8_t { toRead, toWrite };
  /// Calls `ready` whenever the descriptor has something to read, or room to write, or its end; in
  /// every turn if it is a regular file, which can't be waited for.
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

  // For a program with a loop of its own. Again and again: ask for `dueMs`, wait until `fd` can be
  // read or that time has come, call `turn(0)`. What the program changes meanwhile, in a tree or in
  // this loop, makes `fd` readable.

  int fd() const;
  /// In terms of `nowMs`; empty: only `fd` counts.
  std::optional<std::uint64_t> dueMs();

 private:
  class Source;
  class LinkSource;
  class ListenerSource;
  class DescriptorSource;
  class TimerSource;
  struct State;

  void linkIs(Link& link);
  void settle();
  int waitMs(int maxWaitMs) const;

  Clock clock_;
  OnReport onReport_;
  bool isStopped_ = false;
  /// Shared with the links that are served, which may outlive the loop.
  std::shared_ptr<State> state_;
  std::map<Listener const*, std::shared_ptr<ListenerSource>> listeners_;
  std::map<int, std::shared_ptr<DescriptorSource>> descriptors_;
  std::map<std::uint64_t, std::shared_ptr<TimerSource>> timers_;
};

}  // namespace NboAttrLog
}  // namespace Mox
