// Keeps a session connected to one server: connects, and when the connection ends connects again,
// with pauses that grow while nobody answers. What was mirrored stays meanwhile.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "attrlog/link/Session.h"
#include "transport/PollLoop.h"

namespace MOX_API Mox {
namespace NboAttrLog {

class Dialer {
 public:
  /// A fresh pipe to the server. Throws TransportError. May wait, but not long: nothing else moves.
  using Connect = std::function<std::unique_ptr<ByteLink>()>;
  /// The connection has ended, or none was to be had, for `reason`; the next try comes in `pauseMs`
  /// unless `stop` is called. `link` is null when none was to be had.
  using OnLost =
      std::function<void(Link const* link, std::string const& reason, std::uint64_t pauseMs)>;

  /// Each pause is twice the one before. A connection that has held for `mostMs` starts over.
  struct Pauses {
    std::uint64_t firstMs = 50;
    std::uint64_t mostMs = 500;
  };

  /// Takes the session's `onClosed`. All three must outlive the dialer.
  Dialer(PollLoop& loop, Session& session, Connect connect) : Dialer(loop, session, connect, {}) {}
  Dialer(PollLoop& loop, Session& session, Connect connect, Pauses const& pauses);
  ~Dialer();
  Dialer(Dialer const&) = delete;
  Dialer& operator=(Dialer const&) = delete;

  void onLost(OnLost handler) { onLost_ = std::move(handler); }

  /// Connects at once, and again for as long as it isn't stopped.
  void start();
  /// No further try; a connection that stands is left alone.
  void stop();

  /// The present connection, greeted or not; null between two tries.
  Ptr<Link> const& link() const { return link_; }

 private:
  void dial();
  void lost(Link const* link, std::string const& reason);

  PollLoop& loop_;
  Session& session_;
  Connect connect_;
  Pauses pauses_;
  OnLost onLost_;
  Ptr<Link> link_;
  bool isStarted_ = false;
  std::uint64_t pauseMs_;
  std::uint64_t sinceMs_ = 0;
  std::uint64_t timer_ = 0;  ///< 0 for none
};

}  // namespace NboAttrLog
}  // namespace Mox
