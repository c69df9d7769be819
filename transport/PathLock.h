// A lock on a path that processes agree about: held through the file PATH.lock, gone with the
// process that holds it. Listeners keep one beside their socket.
#pragma once

#include <string>

#include "transport/Descriptor.h"

namespace MOX_API Mox {
namespace NboAttrLog {

class PathLock {
 public:
  PathLock() = default;
  /// Throws TransportError: "PATH: somebody listens there already" when another one holds the lock,
  /// "PATH.lock: cause" when the file can't be had.
  explicit PathLock(std::string const& path);
  ~PathLock();
  PathLock(PathLock&&) noexcept = default;
  PathLock& operator=(PathLock&&) noexcept = default;

 private:
  std::string file_;
  Descriptor locked_;
};

}  // namespace NboAttrLog
}  // namespace Mox
