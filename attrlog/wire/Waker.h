// Tells whoever waits for a connection that there is something to send or to do, once behind each
// time that it begins to wait. What isn't waited for costs one test.
#pragma once

#include <functional>
#include <utility>

#include "Mox/Api.h"

namespace MOX_API Mox {
namespace NboAttrLog {

class Waker {
 public:
  /// `callback` is called from within any change of an entity: it must only note the fact.
  void callbackIs(std::function<void()> callback) { callback_ = std::move(callback); }
  void arm() { isArmed_ = true; }
  /// There is something to send or to do.
  void wake() {
    if (isArmed_) call();
  }

 private:
  void call() {
    isArmed_ = false;
    if (callback_) callback_();
  }

  std::function<void()> callback_;
  bool isArmed_ = false;
};

}  // namespace NboAttrLog
}  // namespace Mox
