// Takes and removes lock files.
#include "transport/PathLock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

#include "transport/SocketAddress.h"

namespace Mox::NboAttrLog {

PathLock::PathLock(std::string const& path) : file_(path + ".lock") {
  for (;;) {
    Descriptor lock(::open(file_.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600));
    if (!lock) throw TransportError(file_ + ": " + std::generic_category().message(errno));
    if (::flock(lock.get(), LOCK_EX | LOCK_NB) != 0) {
      throw TransportError(path + ": somebody listens there already");
    }
    // The one before may have removed the file between the two calls.
    struct stat locked {};
    struct stat present {};
    if (::fstat(lock.get(), &locked) == 0 && ::lstat(file_.c_str(), &present) == 0 &&
        locked.st_dev == present.st_dev && locked.st_ino == present.st_ino) {
      locked_ = std::move(lock);
      return;
    }
  }
}

PathLock::~PathLock() {
  // While it is locked: whoever opens the file now finds out that it has gone.
  if (locked_) ::unlink(file_.c_str());
}

}  // namespace Mox::NboAttrLog
