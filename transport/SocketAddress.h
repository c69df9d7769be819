// Where a stream socket listens or connects to: a path of the file system, or a host and a port.
#pragma once

#include <stdexcept>
#include <string>

#include "Mox/Api.h"

namespace MOX_API Mox {
namespace NboAttrLog {

/// A socket that can't be had; the text is one line for people.
class TransportError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

struct SocketAddress {
  std::string path;  ///< of a Unix socket; empty for TCP
  std::string host;
  std::string port;

  static SocketAddress unixPath(std::string const& path) { return {path, {}, {}}; }
  /// Reads "HOST:PORT", "[HOST]:PORT", ":PORT" or "PORT"; without a host it is the loopback.
  /// Throws TransportError for another text.
  static SocketAddress tcp(std::string const& text);

  bool isUnix() const { return !path.empty(); }
  /// The path, or "HOST:PORT".
  std::string text() const;
};

}  // namespace NboAttrLog
}  // namespace Mox
