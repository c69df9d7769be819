// Connecting, waiting until in step, following, and telling what went wrong.
#include "tools/inventoryctl/Mirror.h"

#include <InvArad.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <iostream>
#include <random>

namespace Tools {
namespace {

using namespace Mox::NboAttrLog;

constexpr int progressMs = 100;

/// Differs between any two mirrors: the server takes a second one of the same name for the same.
std::string ownName() {
  std::random_device random;
  char text[64];
  std::snprintf(text, sizeof text, "inventoryctl-%ld-%08x", static_cast<long>(::getpid()),
                random());
  return text;
}

LinkOptions linkOptions(std::uint64_t timeoutMs) {
  LinkOptions options;
  options.schemaHash = InvArad::schemaHash;
  options.greetingTimeoutMs = timeoutMs;
  return options;
}

/// Tells how far the first transfer is, if a person looks on.
class Progress {
 public:
  void show(Link const& link) {
    if (!isShown_) return;
    std::cerr << "\rreceived " << link.stats().bytesReceived << " bytes, "
              << link.demuxer().reactorCount() << " entities\x1b[K" << std::flush;
    isDrawn_ = true;
  }
  ~Progress() {
    if (isDrawn_) std::cerr << "\r\x1b[K" << std::flush;
  }

 private:
  bool isShown_ = ::isatty(STDERR_FILENO) == 1;
  bool isDrawn_ = false;
};

std::string withoutPrefix(std::string const& text) {
  return text.starts_with("log: ") ? text.substr(5) : text;
}

}  // namespace

Mirror::Mirror(SocketAddress const& address, std::uint64_t timeoutMs)
    : address_(address.text()),
      timeoutMs_(timeoutMs),
      roots_(new Mox::Dir),
      session_(ownName(), linkOptions(timeoutMs)) {
  // Peers name the types; the linker must not leave the model out because nothing else does.
  Inventory::Arad::AradSlice::_fwkType();
  session_.importDirIs(roots_);
  loop_.sessionIs(session_);
  try {
    int const waitMs = static_cast<int>(std::min<std::uint64_t>(timeoutMs, INT_MAX));
    link_ = session_.linkIs(SocketLink::connect(address, waitMs));
  } catch (TransportError const& failure) {
    throw Failure(exitNoServer, std::string("no server: ") + failure.what());
  }
}

Mirror::~Mirror() = default;

void Mirror::turn(int maxWaitMs) {
  loop_.turn(maxWaitMs);
  if (link_->state() == Link::State::closed) fail();
}

void Mirror::fail() const {
  std::string const reason = withoutPrefix(link_->error());
  switch (link_->end()) {
    case Link::End::refused:
      throw Failure(exitWrongProtocol, "wrong protocol: " + reason);
    case Link::End::noGreeting:
      if (link_->stats().bytesReceived == 0) {
        throw Failure(exitNoServer, "no server: " + address_ + ": " + reason);
      }
      throw Failure(exitWrongProtocol, "wrong protocol: " + reason);
    default:
      throw Failure(exitLost, "connection lost: " + reason);
  }
}

bool Mirror::inStepWait() {
  Progress progress;
  std::uint64_t bytesSeen = 0;
  std::uint64_t aliveMs = loop_.nowMs();
  while (!isStopped_ && !link_->demuxer().inStep()) {
    turn(progressMs);
    progress.show(**link_);
    std::uint64_t const bytes = link_->stats().bytesReceived;
    if (std::exchange(bytesSeen, bytes) != bytes) aliveMs = loop_.nowMs();
    if (link_->demuxer().greeted() && loop_.nowMs() - aliveMs > timeoutMs_) {
      throw Failure(exitLost, "connection lost: nothing received for " + durationText(timeoutMs_));
    }
  }
  if (std::uint64_t const refused = link_->stats().refusedOrphans; refused != 0 && !isStopped_) {
    throw Failure(exitWrongProtocol, "wrong protocol: " + std::to_string(refused) +
                                         " of the server's trees can't be mirrored");
  }
  return !isStopped_;
}

void Mirror::follow(std::function<void()> const& changed) {
  while (!isStopped_) {
    turn(-1);
    changed();
  }
}

}  // namespace Tools
