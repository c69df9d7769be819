// A byte pipe to one peer, as a connection sees it: it never blocks and may take or give any part
// of what it is asked for. Implemented in transport/; Link owns one.
#pragma once

#include <cstddef>
#include <string>

#include "Mox/Api.h"

namespace MOX_API Mox {
namespace NboAttrLog {

/// What became of one read or write. `count` bytes moved in any case; with `open` fewer than asked
/// for, or none, means that more would have to wait.
struct ByteResult {
  enum class State : unsigned char {
    open,    ///< the pipe lives
    end,     ///< read: the peer sends no more
    failed,  ///< `ByteLink::error()` says why
  };
  std::size_t count = 0;
  State state = State::open;
};

/// Where a connection comes from, as the system knows it: the peer has no part in it. Two
/// connections of one peer have equal origins.
struct Origin {
  std::string place;  ///< address of the listener that accepted it; empty: connected from here
  std::string credentials;  ///< "user 1000" of a Unix socket, "host 10.0.0.1" of TCP; may be empty

  bool operator==(Origin const&) const = default;
};

class ByteLink {
 public:
  virtual ~ByteLink() = default;

  virtual ByteResult read(void* to, std::size_t size) = 0;
  virtual ByteResult write(void const* from, std::size_t size) = 0;
  /// Lets go of the pipe; what was written before still reaches the peer where that is possible.
  /// Reads and writes fail from here on.
  virtual void close() = 0;
  /// Why the pipe failed, without a full stop; empty while it hasn't.
  virtual std::string error() const = 0;
  /// The same for as long as the pipe lives.
  virtual Origin origin() const { return {}; }
  /// What poll() takes; -1 when there is no such thing or the pipe is closed.
  virtual int fd() const { return -1; }
};

}  // namespace NboAttrLog
}  // namespace Mox
