// The loop: what is waited for, how long, and who is called.
#include "transport/PollLoop.h"

#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <climits>
#include <set>
#include <system_error>
#include <unordered_map>
#include <utility>
#include <vector>

namespace Mox::NboAttrLog {
namespace {

/// Connections taken from one listener before others have their turn.
constexpr int acceptsPerTurn = 16;
/// How long a listener rests when the process is out of descriptors or memory: it would wake the
/// loop at once, again and again.
constexpr std::uint64_t acceptPauseMs = 100;
/// A shortage that lasts is reported this often.
constexpr std::uint64_t acceptReportMs = 10000;
/// Token of the descriptor by which changes wake a foreign loop.
constexpr std::uint64_t wakerToken = 0;

[[noreturn]] void refuse(char const* what) {
  throw TransportError(std::string(what) + ": " + std::generic_category().message(errno));
}

}  // namespace

/// All sources by token. Tokens are never used again: an event of a source that has gone, or whose
/// descriptor another one has now, finds nothing.
struct PollLoop::State {
  State() : epoll(::epoll_create1(EPOLL_CLOEXEC)), waker(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    epoll_event wanted{};
    wanted.events = EPOLLIN;
    wanted.data.u64 = wakerToken;
    if (!epoll || !waker || ::epoll_ctl(epoll.get(), EPOLL_CTL_ADD, waker.get(), &wanted) != 0) {
      refuse("poll loop");
    }
  }

  Source* find(std::uint64_t token) const {
    auto const at = sources.find(token);
    return at == sources.end() ? nullptr : at->second;
  }
  /// What the loop waits for has changed.
  void wake() {
    if (!std::exchange(isForeignWaiting, false)) return;
    std::uint64_t const one = 1;
    [[maybe_unused]] ssize_t const count = ::write(waker.get(), &one, sizeof one);
  }

  Descriptor epoll;
  Descriptor waker;
  std::unordered_map<std::uint64_t, Source*> sources;
  std::uint64_t lastToken = wakerToken;
  std::set<std::pair<std::uint64_t, std::uint64_t>> due;  ///< times with tokens
  std::set<std::uint64_t> alwaysReady;                    ///< regular files
  std::set<std::uint64_t> everyTurn;                      ///< links without a descriptor
  std::vector<std::uint64_t> woken;                       ///< links that want something else
  PollLoop* loop = nullptr;                               ///< null when it is gone
  bool isForeignWaiting = false;                          ///< `dueMs` was asked for since a turn
};

/// Something that is waited for: a descriptor, a time, or both.
class PollLoop::Source {
 public:
  explicit Source(std::shared_ptr<State> state)
      : state_(std::move(state)), token_(++state_->lastToken) {
    state_->sources.emplace(token_, this);
  }
  Source(Source const&) = delete;
  Source& operator=(Source const&) = delete;
  virtual ~Source() {
    fdIs(-1, 0);
    dueIs(std::nullopt);
    state_->alwaysReady.erase(token_);
    state_->everyTurn.erase(token_);
    state_->sources.erase(token_);
  }

  std::uint64_t token() const { return token_; }
  State& state() const { return *state_; }
  /// Either may destroy the source.
  virtual void ready(PollLoop& loop) = 0;
  virtual void due(PollLoop& loop) = 0;

  /// `events` of 0 leave the descriptor out. False: it can't be waited for.
  bool fdIs(int fd, std::uint32_t events) {
    if (events == 0) fd = -1;
    if (fd == fd_ && events == events_) return true;
    epoll_event wanted{};
    wanted.events = events;
    wanted.data.u64 = token_;
    int const epoll = state_->epoll.get();
    int result = 0;
    if (fd == fd_) {
      result = ::epoll_ctl(epoll, EPOLL_CTL_MOD, fd, &wanted);
    } else {
      if (fd_ >= 0) ::epoll_ctl(epoll, EPOLL_CTL_DEL, fd_, nullptr);
      if (fd >= 0) result = ::epoll_ctl(epoll, EPOLL_CTL_ADD, fd, &wanted);
    }
    fd_ = result == 0 ? fd : -1;
    events_ = events;
    return result == 0;
  }
  void dueIs(std::optional<std::uint64_t> dueMs) {
    if (dueMs == dueMs_) return;
    if (dueMs && dueMs_) {
      auto node = state_->due.extract({*dueMs_, token_});
      node.value().first = *dueMs;
      state_->due.insert(std::move(node));
    } else if (dueMs) {
      state_->due.emplace(*dueMs, token_);
    } else {
      state_->due.erase({*dueMs_, token_});
    }
    dueMs_ = dueMs;
  }

 private:
  std::shared_ptr<State> state_;
  std::uint64_t token_;
  int fd_ = -1;
  std::uint32_t events_ = 0;
  std::optional<std::uint64_t> dueMs_;
};

/// Owned by its link.
class PollLoop::LinkSource : public Link::Waiter, public Source {
 public:
  LinkSource(std::shared_ptr<State> state, Link& link) : Source(std::move(state)), link_(link) {}

  void linkIsWoken() override {
    state().woken.push_back(token());
    state().wake();
  }
  void ready(PollLoop& loop) override {
    Ptr<Link> const hold(&link_);
    std::shared_ptr<State> const state = loop.state_;
    std::uint64_t const own = token();
    hold->service(loop.nowMs());
    if (state->find(own) == this) update();
  }
  void due(PollLoop& loop) override { ready(loop); }
  /// What was written since the last turn goes out before anything is waited for.
  void settle() {
    Ptr<Link> const hold(&link_);
    link_.send();
    update();
  }

 private:
  void update() {
    int const fd = link_.bytes().fd();
    std::uint32_t const events =
        (link_.wantsRead() ? EPOLLIN : 0U) | (link_.wantsWrite() ? EPOLLOUT : 0U);
    if (fd < 0) {
      state().everyTurn.insert(token());
    } else if (!fdIs(fd, events)) {
      link_.closeIs(std::generic_category().message(errno));
    }
    dueIs(link_.dueMs());
    link_.waiterArm();
  }

  Link& link_;
};

class PollLoop::ListenerSource : public Source {
 public:
  ListenerSource(std::shared_ptr<State> state, Listener& listener, Accepted accepted)
      : Source(std::move(state)), listener_(listener), accepted_(std::move(accepted)) {
    if (!fdIs(listener_.fd(), EPOLLIN)) refuse("listener");
  }

  void ready(PollLoop& loop) override {
    std::shared_ptr<ListenerSource> const hold = loop.listeners_.at(&listener_);
    auto const isThere = [&] {
      auto const at = loop.listeners_.find(&listener_);
      return at != loop.listeners_.end() && at->second == hold;
    };
    for (int i = 0; i < acceptsPerTurn && isThere(); ++i) {
      try {
        std::unique_ptr<SocketLink> link = listener_.accept();
        if (!link) return;
        accepted_(std::move(link));
      } catch (TransportError const& failure) {
        rest(loop, failure.what());
        return;
      }
    }
  }
  void due(PollLoop& loop) override {
    dueIs(std::nullopt);
    fdIs(listener_.fd(), EPOLLIN);
    ready(loop);
  }

 private:
  void rest(PollLoop& loop, std::string const& why) {
    std::uint64_t const now = loop.nowMs();
    fdIs(-1, 0);
    dueIs(now + acceptPauseMs);
    if (reportedMs_ && now - *reportedMs_ < acceptReportMs) return;
    reportedMs_ = now;
    if (loop.onReport_) loop.onReport_(why);
  }

  Listener& listener_;
  Accepted accepted_;
  std::optional<std::uint64_t> reportedMs_;
};

class PollLoop::DescriptorSource : public Source {
 public:
  DescriptorSource(std::shared_ptr<State> state, int fd, Handler handler, Wait wait)
      : Source(std::move(state)), handler_(std::move(handler)) {
    if (fdIs(fd, wait == Wait::toRead ? EPOLLIN : EPOLLOUT)) return;
    if (errno != EPERM) refuse("descriptor");
    this->state().alwaysReady.insert(token());
  }

  void ready(PollLoop&) override {
    // It may take itself out.
    Handler const handler = handler_;
    handler();
  }
  void due(PollLoop&) override {}

 private:
  Handler handler_;
};

class PollLoop::TimerSource : public Source {
 public:
  TimerSource(std::shared_ptr<State> state, std::uint64_t dueMs, Handler handler)
      : Source(std::move(state)), handler_(std::move(handler)) {
    dueIs(dueMs);
  }

  void ready(PollLoop&) override {}
  void due(PollLoop& loop) override {
    Handler const handler = std::move(handler_);
    loop.timerDel(token());
    handler();
  }

 private:
  Handler handler_;
};

std::uint64_t PollLoop::steadyMs() {
  using namespace std::chrono;
  return static_cast<std::uint64_t>(
      duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count());
}

PollLoop::PollLoop(Clock clock) : clock_(std::move(clock)), state_(std::make_shared<State>()) {
  state_->loop = this;
}

PollLoop::~PollLoop() { state_->loop = nullptr; }

void PollLoop::sessionIs(Session& session) {
  session.onLink([state = state_](Link& link) {
    if (state->loop) state->loop->linkIs(link);
  });
}

void PollLoop::sessionDel(Session& session) {
  session.onLink(nullptr);
  for (Ptr<Link> const& link : session.links()) link->waiterIs(nullptr);
}

void PollLoop::linkIs(Link& link) {
  auto source = std::make_unique<LinkSource>(state_, link);
  LinkSource& added = *source;
  link.waiterIs(std::move(source));
  // It is settled in the next turn: whoever made the link may still be busy with it.
  added.linkIsWoken();
}

void PollLoop::listenerIs(Listener& listener, Session& session) {
  listenerIs(listener,
             [&session](std::unique_ptr<SocketLink> link) { session.linkIs(std::move(link)); });
}

void PollLoop::listenerIs(Listener& listener, Accepted accepted) {
  listenerDel(listener);
  listeners_[&listener] = std::make_shared<ListenerSource>(state_, listener, std::move(accepted));
}

void PollLoop::listenerDel(Listener& listener) {
  auto const at = listeners_.find(&listener);
  if (at == listeners_.end()) return;
  // Its descriptor may be another's by the time that a call in progress lets the source go.
  at->second->fdIs(-1, 0);
  listeners_.erase(at);
}

void PollLoop::descriptorIs(int fd, Handler ready, Wait wait) {
  descriptors_.erase(fd);
  descriptors_[fd] = std::make_shared<DescriptorSource>(state_, fd, std::move(ready), wait);
  state_->wake();
}

void PollLoop::descriptorDel(int fd) { descriptors_.erase(fd); }

std::uint64_t PollLoop::timerIs(std::uint64_t dueMs, Handler due) {
  auto timer = std::make_shared<TimerSource>(state_, dueMs, std::move(due));
  std::uint64_t const token = timer->token();
  timers_.emplace(token, std::move(timer));
  state_->wake();
  return token;
}

void PollLoop::timerDel(std::uint64_t timer) { timers_.erase(timer); }

int PollLoop::fd() const { return state_->epoll.get(); }

std::optional<std::uint64_t> PollLoop::dueMs() {
  settle();
  state_->isForeignWaiting = true;
  if (!state_->alwaysReady.empty()) return clock_();
  return state_->due.empty() ? std::nullopt
                             : std::optional<std::uint64_t>(state_->due.begin()->first);
}

void PollLoop::settle() {
  for (std::uint64_t const token : std::exchange(state_->woken, {})) {
    if (Source* const source = state_->find(token)) static_cast<LinkSource*>(source)->settle();
  }
}

int PollLoop::waitMs(int maxWaitMs) const {
  if (!state_->alwaysReady.empty()) return 0;
  if (state_->due.empty()) return maxWaitMs;
  std::uint64_t const now = clock_();
  std::uint64_t const dueMs = state_->due.begin()->first;
  auto const wait =
      static_cast<int>(std::min<std::uint64_t>(dueMs > now ? dueMs - now : 0, INT_MAX));
  return maxWaitMs < 0 ? wait : std::min(wait, maxWaitMs);
}

void PollLoop::turn(int maxWaitMs) {
  std::shared_ptr<State> const state = state_;
  state->isForeignWaiting = false;
  settle();
  epoll_event events[128];
  // An error is a signal: nothing is known to be ready.
  int const count = ::epoll_wait(state->epoll.get(), events, std::size(events), waitMs(maxWaitMs));
  std::vector<std::uint64_t> ready(state->everyTurn.begin(), state->everyTurn.end());
  ready.insert(ready.end(), state->alwaysReady.begin(), state->alwaysReady.end());
  // By value: the kernel's structure is packed.
  for (int i = 0; i < count; ++i) ready.push_back(std::uint64_t{events[i].data.u64});
  for (std::uint64_t const token : ready) {
    if (Source* const source = state->find(token)) {
      source->ready(*this);
    } else if (token == wakerToken) {
      std::uint64_t wakes = 0;
      [[maybe_unused]] ssize_t const size = ::read(state->waker.get(), &wakes, sizeof wakes);
    }
  }
  // What becomes due meanwhile waits for the next turn.
  std::vector<std::uint64_t> due;
  std::uint64_t const now = clock_();
  for (auto at = state->due.begin(); at != state->due.end() && at->first <= now; ++at) {
    due.push_back(at->second);
  }
  for (std::uint64_t const token : due) {
    if (Source* const source = state->find(token)) source->due(*this);
  }
}

void PollLoop::run() {
  isStopped_ = false;
  while (!isStopped_) turn();
}

}  // namespace Mox::NboAttrLog
