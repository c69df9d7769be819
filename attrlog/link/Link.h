// One connection at work: moves bytes between a byte pipe and a demuxer's two buffers, keeps the
// greeting's deadline, and ends the connection. Sessions make links; poll loops call `service`.
// A link belongs to the one thread of its entities.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Mox/Ptr.h"
#include "Mox/PtrInterface.h"
#include "attrlog/link/ByteLink.h"
#include "attrlog/link/Demuxer.h"

namespace MOX_API Mox {
namespace NboAttrLog {

class Session;

/// "10 s", or "500 ms" where that says it exactly.
std::string durationText(std::uint64_t ms);

class Link : public PtrInterface {
 public:
  enum class State : std::uint8_t { greeting, running, closed };

  /// Why a link ended.
  enum class End : std::uint8_t {
    none,        ///< it hasn't
    here,        ///< `closeIs`
    peer,        ///< the peer closed it
    failed,      ///< the pipe or this process failed
    refused,     ///< one end refused what the other sent: `demuxer().errorCode()`
    noGreeting,  ///< the peer said nothing in time
    stalled,     ///< the peer did not finish a frame in time
  };

  /// Whoever waits for the pipe and for `dueMs` instead of calling `service` again and again.
  class Waiter {
   public:
    /// Called when the link closes or is destroyed.
    virtual ~Waiter() = default;
    /// What the link wants has changed outside of `service`. Called once behind each `waiterArm`,
    /// from within any change of an entity: it must only note the fact.
    virtual void linkIsWoken() = 0;
  };

  /// Bytes that one `service` reads, and that it writes: no peer keeps the others waiting for long.
  static constexpr std::size_t readBudget = 65536;
  static constexpr std::size_t writeBudget = 131072;

  /// `session` may be null: a link by itself, for tests.
  Link(Session* session, std::unique_ptr<ByteLink> bytes, LinkOptions const& options);
  ~Link() override;

  /// One turn: reads, applies, sends what is owed, keeps the deadline, ends the connection if it
  /// must end. `nowMs` is of any steady clock. Returns at once when called while another `service`
  /// of this thread is on the stack. Throws nothing.
  void service(std::uint64_t nowMs);

  /// Gives the pipe what is in the buffer, without a turn. Does nothing inside of `service`.
  void send();

  /// Ends the connection in the next `service`, after a try to send what is in the buffer.
  void closeIs(std::string const& reason);

  State state() const { return state_; }
  End end() const { return end_; }
  /// Why the link ended or is about to; empty while all is well.
  std::string const& error() const { return error_; }
  LinkStats stats() const;

  bool wantsRead() const { return state_ != State::closed && end_ == End::none; }
  /// True when there are bytes for the pipe, or when something could be written into the buffer.
  bool wantsWrite() const;
  /// When `service` must be called though nothing moves; 0: at once. Empty: never.
  std::optional<std::uint64_t> dueMs() const;
  /// Replaces the waiter. What the link wants now is not announced.
  void waiterIs(std::unique_ptr<Waiter> waiter) { waiter_ = std::move(waiter); }
  void waiterArm() { demuxer_->waker().arm(); }

  Demuxer& demuxer() { return **demuxer_; }
  Demuxer const& demuxer() const { return **demuxer_; }
  ByteLink& bytes() { return *bytes_; }
  ByteLink const& bytes() const { return *bytes_; }
  /// As the peer greeted; empty before.
  std::string const& peerName() const { return demuxer_->peerName(); }
  /// Holds when the pipe has been closed, too.
  Origin const& origin() const { return origin_; }

 private:
  friend class Session;

  struct Newer {
    std::string peerName;
    bool mayWrite;
  };

  void turn(std::uint64_t nowMs);
  /// True when the pipe had no more.
  bool receive();
  void dispatch();
  void frameDeadlineCheck(std::uint64_t nowMs);
  void flush();
  void endIs(End end, std::string const& reason);
  void tearDown();

  Session* session_;
  std::unique_ptr<ByteLink> bytes_;
  Origin origin_;
  Ptr<Demuxer> demuxer_;
  State state_ = State::greeting;
  End end_ = End::none;
  bool isWriteBroken_ = false;
  std::size_t writeLeft_ = 0;  ///< of this turn's budget
  std::string error_;
  std::optional<std::uint64_t> greetingDueMs_;
  std::optional<std::uint64_t> frameDueMs_;  ///< of the frame whose beginning has come
  std::uint64_t frameOffset_ = 0;            ///< where in the stream it begins
  /// Peers of the same origin that have greeted over newer links of the session.
  std::vector<Newer> newer_;
  std::uint64_t bytesReceived_ = 0;
  std::uint64_t bytesSent_ = 0;
  std::unique_ptr<Waiter> waiter_;
};

}  // namespace NboAttrLog
}  // namespace Mox
