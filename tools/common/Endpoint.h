// Where inventoryd listens and inventoryctl connects: the options that both have.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "transport/SocketAddress.h"
#include "transport/SocketLink.h"

namespace CLI {
class App;
}

namespace Tools {

/// `inventoryd.sock` in $XDG_RUNTIME_DIR; without that `/tmp/inventoryd-UID/inventoryd.sock`.
std::string defaultSocketPath();
/// Makes the directory of the default path below /tmp, for this user alone. Throws TransportError
/// "DIRECTORY: cause" when it is another user's, or open to others.
void defaultDirectoryIs();

struct Endpoint {
  std::string unixPath;
  std::string tcp;
  std::optional<unsigned int> serverUser;

  /// Adds `--unix` and `--tcp`, of which one at most may be given.
  void optionsTo(CLI::App& app);
  /// Throws TransportError for a `--tcp` that can't be read.
  Mox::NboAttrLog::SocketAddress address() const;
  /// Connects to `at`. A Unix socket's server must run as this user, as root or as `serverUser`:
  /// anybody else may have taken the path. Throws TransportError.
  std::unique_ptr<Mox::NboAttrLog::SocketLink> connect(Mox::NboAttrLog::SocketAddress const& at,
                                                       int timeoutMs) const;
};

/// Where a server listens, and whether those who come there may write.
struct ListenPlace {
  Mox::NboAttrLog::SocketAddress address;
  bool isWritable = false;

  /// "ADDRESS", "ADDRESS,ro" or "ADDRESS,rw", the address being "unix:PATH" or "tcp:HOST:PORT".
  /// Throws TransportError.
  static ListenPlace of(std::string const& text);
  /// As `of` reads it.
  std::string text() const;
};

/// Where the server of a Unix socket tells how it is: the socket's path and ".status";
/// empty when that is longer than a socket's path can be.
std::string statusPath(std::string const& socketPath);

/// Reads the command line. -1: go on; else the exit code: 0 after help, 2 after one line on
/// standard error.
int parseCommandLine(CLI::App& app, int argc, char** argv);

}  // namespace Tools
