// The links of a session: what each gets at first, and who leaves.
#include "attrlog/link/Session.h"

#include "attrlog/wire/ShownText.h"

#include <algorithm>
#include <utility>

#include "attrlog/adapter/EntityIds.h"

namespace Mox::NboAttrLog {

Session::Session(std::string name, LinkOptions options) : options_(std::move(options)) {
  options_.name = std::move(name);
  options_.processNonce = newEntityId().value();
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
  named.processNonce = options_.processNonce;
  named.imports = bool(importDir_);
  Origin const origin = bytes->origin();
  named.origin = origin.place + " " + origin.credentials;
  Ptr<Link> link(new Link(this, std::move(bytes), named));
  Demuxer& demuxer = link->demuxer();
  demuxer.importDirIs(importDir_);
  demuxer.importsIs(imports_);
  demuxer.identitiesIs(identities_);
  for (Ptr<Entity> const& root : roots_) demuxer.exportIs(root);
  if (isExportDone_) demuxer.exportsDone();
  links_.push_back(link);
  if (onLink_) onLink_(**link);
  return link;
}

void Session::onLink(OnLink handler) {
  onLink_ = std::move(handler);
  if (!onLink_) return;
  for (Ptr<Link> const& link : links_) onLink_(**link);
}

void Session::service(std::uint64_t nowMs) {
  std::vector<Ptr<Link>> const links = links_;
  for (Ptr<Link> const& link : links) link->service(nowMs);
}

void Session::closeIs(std::string const& reason) {
  for (Ptr<Link> const& link : links_) link->closeIs(reason);
}

void Session::handleGreeted(Link& link) {
  if (!link.peerName().empty() && isReplaced(link)) return;
  report(link, "connected");
  if (onGreeted_) onGreeted_(link);
}

/// Anybody can give a writer's name: who may only read must not end the writer's connection.
bool Session::replaces(bool newerMayWrite, Link const& older) {
  return newerMayWrite || !older.demuxer().mayPeerWrite();
}

/// Of the links of one peer the newest is kept. `links_` has them in the order in which they were
/// made; greetings may come in another, and an old link's own when the newer one has ended already.
bool Session::isReplaced(Link& link) {
  // A peer that greets over and over costs an older link no more than this.
  constexpr std::size_t mostNewer = 16;
  // At once: the roots that come next may be those of the older link.
  auto const replace = [](Link& older) {
    older.closeIs("replaced by a newer connection of the same peer");
    older.tearDown();
  };
  std::string const& peer = link.peerName();
  for (Link::Newer const& newer : link.newer_) {
    if (newer.peerName != peer || !replaces(newer.mayWrite, link)) continue;
    replace(link);
    return true;
  }
  bool const mayWrite = link.demuxer().mayPeerWrite();
  std::vector<Ptr<Link>> const links = links_;
  for (Ptr<Link> const& older : links) {
    if (older.get() == &link) break;
    if (older->origin() != link.origin()) continue;
    if (older->state() == Link::State::greeting) {
      if (older->newer_.size() == mostNewer) older->newer_.erase(older->newer_.begin());
      older->newer_.push_back({peer, mayWrite});
    } else if (older->state() == Link::State::running && older->peerName() == peer &&
               replaces(mayWrite, **older)) {
      replace(**older);
    }
  }
  return false;
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
    onReport_(
        shownText((link.peerName().empty() ? "unknown peer" : link.peerName()) + ": " + text));
  }
}

}  // namespace Mox::NboAttrLog
