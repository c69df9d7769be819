// A file descriptor that is closed with its owner. Used by everything in transport/.
#pragma once

#include <utility>

#include "Mox/Api.h"

namespace MOX_API Mox {
namespace NboAttrLog {

class Descriptor {
 public:
  Descriptor() = default;
  explicit Descriptor(int fd) : fd_(fd) {}
  ~Descriptor() { close(); }
  Descriptor(Descriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    if (this != &other) {
      close();
      fd_ = std::exchange(other.fd_, -1);
    }
    return *this;
  }

  /// -1 for none.
  int get() const { return fd_; }
  explicit operator bool() const { return fd_ >= 0; }
  void close();

 private:
  int fd_ = -1;
};

}  // namespace NboAttrLog
}  // namespace Mox
