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
/// Nothing else moves while a lost server is sought.
constexpr std::uint64_t mostReconnectMs = 1000;

/// Differs between any two mirrors: the server takes a second one of the same name for the same.
std::string ownName() {
  std::random_device random;
  char text[64];
  std::snprintf(text, sizeof text, "inventoryctl-%ld-%08x", static_cast<long>(::getpid()),
                random());
  return text;
}

LinkOptions linkOptions(Mirror::Options const& options) {
  LinkOptions link;
  link.schemaHash = InvArad::schemaHash;
  link.greetingTimeoutMs = options.timeoutMs;
  link.wantsWrite = options.wantsWrite;
  return link;
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

Mirror::Mirror(Options const& options)
    : options_(options),
      address_(options.endpoint.address()),
      roots_(new Mox::Dir),
      session_(ownName(), linkOptions(options)),
      dialer_(loop_, session_, [this] {
        std::uint64_t const most = report_ ? mostReconnectMs : INT_MAX;
        return options_.endpoint.connect(address_,
                                         static_cast<int>(std::min(options_.timeoutMs, most)));
      }) {
  // Peers name the types; the linker must not leave the model out because nothing else does.
  Inventory::Arad::AradSlice::_fwkType();
  session_.importDirIs(roots_);
  loop_.sessionIs(session_);
  dialer_.onLost([this](Link const* link, std::string const& reason, std::uint64_t) {
    if (link) {
      ended(*link, reason);
    } else if (!report_) {
      failure_.emplace(exitNoServer, "no server: " + reason);
    }
    if (failure_) dialer_.stop();
  });
  dialer_.start();
  if (failure_) throw Failure(*failure_);
}

Mirror::~Mirror() = default;

void Mirror::ended(Link const& link, std::string const& text) {
  std::string const reason = withoutPrefix(text);
  bool const isSilent = link.end() == Link::End::noGreeting;
  bool const hasSaidNothing = isSilent && link.stats().bytesReceived == 0;
  if (link.end() == Link::End::refused || (isSilent && !hasSaidNothing)) {
    failure_.emplace(exitWrongProtocol, "wrong protocol: " + reason);
  } else if (report_) {
    if (!isOutOfStep_) report_("connection lost: " + reason + "; trying again");
    isOutOfStep_ = true;
  } else if (hasSaidNothing) {
    failure_.emplace(exitNoServer, "no server: " + address_.text() + ": " + reason);
  } else {
    failure_.emplace(exitLost, "connection lost: " + reason);
  }
}

void Mirror::turn(int maxWaitMs) {
  loop_.turn(maxWaitMs);
  if (failure_) throw Failure(*failure_);
  Mox::Ptr<Link> const link = dialer_.link();
  if (!isOutOfStep_ || !link || !link->demuxer().inStep()) return;
  if (std::uint64_t const refused = link->stats().refusedOrphans; refused != 0) {
    throw Failure(exitWrongProtocol, "wrong protocol: " + std::to_string(refused) +
                                         " of the server's trees can't be mirrored");
  }
  isOutOfStep_ = false;
  if (report_) report_("in step again");
}

bool Mirror::inStepWait() {
  Progress progress;
  std::uint64_t bytesSeen = 0;
  std::uint64_t aliveMs = loop_.nowMs();
  while (!isStopped_ && isOutOfStep_) {
    turn(progressMs);
    Mox::Ptr<Link> const link = dialer_.link();
    if (!link) continue;
    progress.show(**link);
    std::uint64_t const bytes = link->stats().bytesReceived;
    if (std::exchange(bytesSeen, bytes) != bytes) aliveMs = loop_.nowMs();
    if (link->demuxer().greeted() && loop_.nowMs() - aliveMs > options_.timeoutMs) {
      throw Failure(exitLost,
                    "connection lost: nothing received for " + durationText(options_.timeoutMs));
    }
  }
  return !isStopped_;
}

void Mirror::follow(std::function<void()> const& changed) {
  while (!isStopped_) {
    turn(-1);
    changed();
  }
}

bool Mirror::mayWrite() const {
  Mox::Ptr<Link> const link = dialer_.link();
  return link && link->demuxer().greeted() && link->demuxer().mayWrite();
}

void Mirror::deliver() {
  std::uint64_t const giveUpMs = loop_.nowMs() + options_.timeoutMs;
  while (!isStopped_) {
    if (Mox::Ptr<Link> const link = dialer_.link()) {
      Demuxer const& demuxer = link->demuxer();
      bool const isOwing = demuxer.hasOwed() || demuxer.out()->committedSize() != 0;
      if (!isOwing && demuxer.unacknowledgedFrames() == 0) return;
    }
    if (loop_.nowMs() >= giveUpMs) {
      throw Failure(exitLost, "connection lost: the change was not taken within " +
                                  durationText(options_.timeoutMs));
    }
    turn(progressMs);
  }
}

void Mirror::retriesAreOn(Report report) { report_ = std::move(report); }

}  // namespace Tools
