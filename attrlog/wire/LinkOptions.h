// What one end of a connection is set up to do, and what it counts. Sessions fill the options in;
// every room of the log reads them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "attrlog/wire/Wire.h"

namespace MOX_API Mox {
namespace NboAttrLog {

/// What one end of a connection is ready to do.
struct LinkOptions {
  std::string name = "peer";  ///< sent to the peer, and used in reports
  bool grantsWrite = false;   ///< the peer may write what this end exports
  bool wantsWrite = false;    ///< this end writes what it imports
  bool imports = true;        ///< this end takes what the peer announces, be it read-only
  bool schemaStrict = true;   ///< refuse a peer of another schema
  std::uint64_t schemaHash = 0;
  /// Tells this process from others, earlier ones under its name included; 0: chosen for the
  /// connection alone.
  std::uint64_t processNonce = 0;
  /// Where the connection comes from, as text: with the peer's name it is what the peer is known
  /// by.
  std::string origin;
  std::size_t outCapacity = defaultCapacity;
  std::uint64_t greetingTimeoutMs = 10000;
  /// How long a peer may take to finish a frame that it has begun.
  std::uint64_t frameTimeoutMs = 30000;
  /// How long an ack may wait for a frame that carries it, unless this end only listens.
  std::uint64_t ackDelayMs = 20;
};

/// Counts since the connection began.
struct LinkStats {
  std::uint64_t framesSent = 0;
  std::uint64_t framesReceived = 0;
  std::uint64_t bytesSent = 0;  ///< counted by the link, like `bytesReceived`
  std::uint64_t bytesReceived = 0;
  std::uint64_t strays = 0;       ///< frames about entities that this end does not know (any more)
  std::uint64_t conflicts = 0;    ///< the peer's writes that crossed this end's own
  std::uint64_t reflected = 0;    ///< the peer's writes that were answered with this end's value
  std::uint64_t undelivered = 0;  ///< own writes that a closed connection left unacknowledged
  std::uint64_t unknownEnums = 0;
  std::uint64_t unknownAttrs = 0;
  std::uint64_t refusedOrphans = 0;
  std::uint64_t contested = 0;  ///< announcements that this end's own stand against
  std::uint64_t readOnlyWrites = 0;
  std::uint64_t handlerExceptions = 0;
  std::uint64_t fullTransfersReceived = 0;
  std::uint64_t tooLong = 0;  ///< messages that the peer would not take, each reported
};

/// What a connection owes its peer at one moment: marks, not values.
struct LinkDebt {
  std::uint64_t entities = 0;
  std::uint64_t attributes = 0;  ///< scalars, references, children, collections not yet walked
  std::uint64_t keys = 0;        ///< single members of collections
  std::uint64_t oldestMs = 0;    ///< age of the oldest mark, within one walk over its entity
};

/// The life of a connection. Transactions are started locally before `closed` only.
enum class ConnectionMode : std::uint8_t { greeting = 0, running = 1, closed = 2 };

}  // namespace NboAttrLog
}  // namespace Mox
