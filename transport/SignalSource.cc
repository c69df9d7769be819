// Blocks signals and reads them.
#include "transport/SignalSource.h"

#include <sys/signalfd.h>
#include <unistd.h>

#include <csignal>

namespace Mox::NboAttrLog {

SignalSource::SignalSource(std::initializer_list<int> signals) {
  sigset_t set;
  sigemptyset(&set);
  for (int const signal : signals) sigaddset(&set, signal);
  sigprocmask(SIG_BLOCK, &set, nullptr);
  descriptor_ = Descriptor(signalfd(-1, &set, SFD_NONBLOCK | SFD_CLOEXEC));
}

int SignalSource::next() {
  signalfd_siginfo info{};
  ssize_t const count = ::read(descriptor_.get(), &info, sizeof info);
  return count == sizeof info ? static_cast<int>(info.ssi_signo) : 0;
}

void SignalSource::ignoreBrokenPipes() { std::signal(SIGPIPE, SIG_IGN); }

}  // namespace Mox::NboAttrLog
