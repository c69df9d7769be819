// The turn of one connection, and its end.
#include "attrlog/link/Link.h"

#include <algorithm>
#include <utility>

#include "attrlog/link/Session.h"

namespace Mox::NboAttrLog {
namespace {

/// A subscriber that services a link from inside of a dispatch would apply messages in the middle
/// of another one.
thread_local bool isServicing = false;

class ServiceAnchor {
 public:
  ServiceAnchor() { isServicing = true; }
  ~ServiceAnchor() { isServicing = false; }
  ServiceAnchor(ServiceAnchor const&) = delete;
  ServiceAnchor& operator=(ServiceAnchor const&) = delete;
};

}  // namespace

std::string durationText(std::uint64_t ms) {
  return ms % 1000 == 0 ? std::to_string(ms / 1000) + " s" : std::to_string(ms) + " ms";
}

Link::Link(Session* session, std::unique_ptr<ByteLink> bytes, LinkOptions const& options)
    : session_(session),
      bytes_(std::move(bytes)),
      origin_(bytes_->origin()),
      demuxer_(new Demuxer(options)) {
  demuxer_->greetedObserverIs([this] {
    state_ = State::running;
    if (session_) session_->handleGreeted(*this);
  });
  demuxer_->reporterIs([this](std::string const& line) {
    if (session_) session_->report(*this, line);
  });
  demuxer_->waker().callbackIs([this] {
    if (waiter_) waiter_->linkIsWoken();
  });
  demuxer_->begin();
}

Link::~Link() {
  waiter_.reset();
  if (state_ != State::closed) {
    demuxer_->close();
    demuxer_->emptyGraveyard();
    bytes_->close();
  }
}

void Link::service(std::uint64_t nowMs) {
  if (isServicing || state_ == State::closed) return;
  Ptr<Link> const hold(this);
  ServiceAnchor const anchor;
  try {
    turn(nowMs);
  } catch (std::exception const& failure) {
    endIs(End::failed, failure.what());
  }
  if (end_ != End::none) tearDown();
  demuxer_->emptyGraveyard();
}

void Link::turn(std::uint64_t nowMs) {
  demuxer_->nowMsIs(nowMs);
  writeLeft_ = writeBudget;
  if (end_ == End::none) {
    bool const isDrained = receive();
    dispatch();
    if (isDrained) frameDeadlineCheck(nowMs);
  }
  if (end_ == End::none) demuxer_->runFlowOuts([this] { flush(); });
  if (!greetingDueMs_) greetingDueMs_ = nowMs + demuxer_->options().greetingTimeoutMs;
  if (state_ == State::greeting && end_ == End::none && nowMs >= *greetingDueMs_) {
    endIs(End::noGreeting,
          "log: no greeting within " + durationText(demuxer_->options().greetingTimeoutMs));
  }
  // The reason why this end refuses the stream is for the peer, too.
  flush();
  if (isWriteBroken_) {
    // A pipe that takes no more may still hold the peer's last words, and tells how it ended.
    std::string const reason = bytes_->error();
    std::uint64_t const most = bytesReceived_ + 4 * readBudget;
    for (std::uint64_t before = most; before != bytesReceived_ && bytesReceived_ < most;) {
      before = bytesReceived_;
      receive();
    }
    dispatch();
    endIs(End::failed, reason);
  }
}

bool Link::receive() {
  ByteQueue& received = demuxer_->in()->received();
  ByteResult const result = bytes_->read(received.room(readBudget), readBudget);
  received.grow(result.count);
  bytesReceived_ += result.count;
  if (result.state == ByteResult::State::failed) {
    endIs(End::failed, bytes_->error());
  } else if (result.state == ByteResult::State::end) {
    endIs(End::peer, state_ == State::greeting ? "closed by the peer before its greeting"
                                               : "closed by the peer");
  }
  return result.count < readBudget;
}

/// The time counts from the turn that has seen the frame's first bytes, and ends only when the pipe
/// has no more of it: a process that was stopped itself blames no peer.
void Link::frameDeadlineCheck(std::uint64_t nowMs) {
  std::size_t const unfinished = demuxer_->in()->received().size();
  std::uint64_t const offset = bytesReceived_ - unfinished;
  if (unfinished == 0 || state_ != State::running) {
    frameDueMs_.reset();
  } else if (!frameDueMs_ || offset != frameOffset_) {
    frameOffset_ = offset;
    frameDueMs_ = nowMs + demuxer_->options().frameTimeoutMs;
  } else if (nowMs >= *frameDueMs_) {
    endIs(End::stalled, "log: a frame was not finished within " +
                            durationText(demuxer_->options().frameTimeoutMs));
  }
}

/// Whole frames that came before the end of the stream are applied.
void Link::dispatch() {
  demuxer_->dispatchReceived();
  if (demuxer_->errorCode() == StreamError::none || end_ == End::refused) return;
  // Better than that the pipe broke, which is what came of it.
  end_ = End::none;
  endIs(End::refused, demuxer_->error());
}

void Link::flush() {
  Out& out = **demuxer_->out();
  while (!isWriteBroken_ && out.committedSize() != 0 && writeLeft_ != 0) {
    std::size_t const size = std::min(out.committedSize(), writeLeft_);
    ByteResult const result = bytes_->write(out.committed(), size);
    out.sent(result.count);
    bytesSent_ += result.count;
    writeLeft_ -= result.count;
    isWriteBroken_ = result.state == ByteResult::State::failed;
    if (result.count == 0) return;
  }
}

void Link::send() {
  if (isServicing || state_ == State::closed || end_ != End::none) return;
  writeLeft_ = writeBudget;
  flush();
}

void Link::closeIs(std::string const& reason) {
  endIs(End::here, reason);
  demuxer_->waker().wake();
}

void Link::endIs(End end, std::string const& reason) {
  if (end_ != End::none || state_ == State::closed) return;
  end_ = end;
  error_ = reason;
}

void Link::tearDown() {
  if (state_ == State::closed) return;
  state_ = State::closed;
  // Whoever waits for the descriptor takes it out while it is open.
  waiter_.reset();
  demuxer_->close();
  bytes_->close();
  demuxer_->emptyGraveyard();
  if (session_) session_->handleClosed(*this);
}

LinkStats Link::stats() const {
  LinkStats stats = demuxer_->stats();
  stats.bytesReceived = bytesReceived_;
  stats.bytesSent = bytesSent_;
  return stats;
}

bool Link::wantsWrite() const {
  if (state_ == State::closed) return false;
  Out const& out = **demuxer_->out();
  return out.committedSize() != 0 ||
         (demuxer_->hasOwed() && demuxer_->greeted() && out.freeSpace() >= runRoom);
}

std::optional<std::uint64_t> Link::dueMs() const {
  if (state_ == State::closed) return std::nullopt;
  if (end_ != End::none || !greetingDueMs_) return 0;
  if (state_ == State::greeting) return greetingDueMs_;
  std::optional<std::uint64_t> const ackDueMs = demuxer_->ackDueMs();
  if (!ackDueMs || !frameDueMs_) return ackDueMs ? ackDueMs : frameDueMs_;
  return std::min(*ackDueMs, *frameDueMs_);
}

}  // namespace Mox::NboAttrLog
