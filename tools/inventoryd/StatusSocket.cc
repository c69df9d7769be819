// Answers without waiting for anybody.
#include "tools/inventoryd/StatusSocket.h"

#include <algorithm>
#include <utility>

namespace Tools {
namespace {

using namespace Mox::NboAttrLog;

/// One who doesn't read costs no more than the text. When there are more, the oldest goes: those
/// who don't read keep nobody out.
constexpr std::size_t mostAskers = 16;

}  // namespace

StatusSocket::StatusSocket(PollLoop& loop, SocketAddress const& address, unsigned int mode,
                           Text text)
    : loop_(loop), listener_(address, mode), text_(std::move(text)) {
  loop_.listenerIs(listener_,
                   [this](std::unique_ptr<SocketLink> link) { accepted(std::move(link)); });
}

StatusSocket::~StatusSocket() {
  loop_.listenerDel(listener_);
  for (auto const& [fd, asker] : askers_) loop_.descriptorDel(fd);
}

void StatusSocket::accepted(std::unique_ptr<SocketLink> link) {
  if (askers_.size() >= mostAskers) {
    auto const oldest = std::min_element(
        askers_.begin(), askers_.end(),
        [](auto const& a, auto const& b) { return a.second.number < b.second.number; });
    loop_.descriptorDel(oldest->first);
    askers_.erase(oldest);
  }
  int const fd = link->fd();
  askers_[fd] = {std::move(link), text_(), ++lastAsker_};
  loop_.descriptorIs(
      fd, [this, fd] { tell(fd); }, PollLoop::Wait::toWrite);
}

void StatusSocket::tell(int fd) {
  Asker& asker = askers_.at(fd);
  ByteResult const result =
      asker.link->write(asker.text.data() + asker.sent, asker.text.size() - asker.sent);
  asker.sent += result.count;
  if (result.state == ByteResult::State::open && asker.sent < asker.text.size()) return;
  loop_.descriptorDel(fd);
  askers_.erase(fd);
}

}  // namespace Tools
