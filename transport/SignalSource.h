// Signals as something to read in a poll loop instead of a handler that runs anywhere.
#pragma once

#include <initializer_list>

#include "transport/Descriptor.h"

namespace MOX_API Mox {
namespace NboAttrLog {

class SignalSource {
 public:
  /// From here on these signals only come to `next`. Made before any thread.
  explicit SignalSource(std::initializer_list<int> signals);

  int fd() const { return descriptor_.get(); }
  /// The signal that came; 0 for none.
  int next();

  /// A write to a peer that has gone is an error of that write and ends nothing else.
  static void ignoreBrokenPipes();

 private:
  Descriptor descriptor_;
};

}  // namespace NboAttrLog
}  // namespace Mox
