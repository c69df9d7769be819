// The links of a session: what each gets at first, and who leaves.
#include "attrlog/Session.h"

#include <algorithm>
#include <utility>

namespace Mox::NboAttrLog {

Session::Session(std::string name, LinkOptions options) : options_(std::move(options)) {
  options_.name = std::move(name);
}

Session::~Session() {
  for (Ptr<Link> const& link : links_) link->session_ = nullptr;
}

void Session::exportIs(Ptr<Entity> const& root) {
  if (std::find(roots_.begin(), roots_.end(), root) != roots_.end()) return;
  roots_.push_back(root);
  for (Ptr<Link> const& link : links_) link->demuxer().exportIs(root);
}

void Session::exportDel(Ptr<Entity> const& root) {
  auto const at = std::find(roots_.begin(), roots_.end(), root);
  if (at == roots_.end()) return;
  Ptr<Entity> const hold(*at);
  roots_.erase(at);
  for (Ptr<Link> const& link : links_) {
    if (link->state() != Link::State::closed) link->demuxer().exportDel(hold);
  }
}

void Session::exportsDone() {
  if (std::exchange(isExportDone_, true)) return;
  for (Ptr<Link> const& link : links_) link->demuxer().exportsDone();
}

Ptr<Link> Session::linkIs(std::unique_ptr<ByteLink> bytes, LinkOptions const& options) {
  LinkOptions named = options;
  named.name = options_.name;
  Ptr<Link> link(new Link(this, std::move(bytes), named));
  Demuxer& demuxer = link->demuxer();
  demuxer.importDirIs(importDir_);
  demuxer.importsIs(imports_);
  for (Ptr<Entity> const& root : roots_) demuxer.exportIs(root);
  if (isExportDone_) demuxer.exportsDone();
  links_.push_back(link);
  return link;
}

void Session::service(std::uint64_t nowMs) {
  std::vector<Ptr<Link>> const links = links_;
  for (Ptr<Link> const& link : links) link->service(nowMs);
}

void Session::closeIs(std::string const& reason) {
  for (Ptr<Link> const& link : links_) link->closeIs(reason);
}

void Session::handleGreeted(Link& link) {
  // Links stand in the order in which they were made; greetings may come in another.
  bool isOlder = true;
  std::vector<Ptr<Link>> const links = links_;
  for (Ptr<Link> const& other : links) {
    if (other.get() == &link) {
      isOlder = false;
      continue;
    }
    if (other->state() != Link::State::running || link.peerName().empty() ||
        other->peerName() != link.peerName()) {
      continue;
    }
    // At once: the older link may stand in the way of the roots that come next.
    Link& older = isOlder ? **other : link;
    older.closeIs("replaced by a newer connection of the same peer");
    older.tearDown();
    if (!isOlder) return;
  }
  report(link, "connected");
  if (onGreeted_) onGreeted_(link);
}

void Session::handleClosed(Link& link) {
  auto const at = std::find_if(links_.begin(), links_.end(),
                               [&link](Ptr<Link> const& held) { return held.get() == &link; });
  Ptr<Link> const hold(&link);
  if (at != links_.end()) links_.erase(at);
  report(link, link.error());
  if (onClosed_) onClosed_(link, link.error());
}

void Session::report(Link const& link, std::string const& text) const {
  if (onReport_) {
    onReport_((link.peerName().empty() ? "unknown peer" : link.peerName()) + ": " + text);
  }
}

}  // namespace Mox::NboAttrLog
