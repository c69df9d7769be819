// What a process exports and imports over its connections, and those connections. Roots and the
// import directory outlive every connection: each new link gets them again. Programs own one.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "Mox/Dir.h"
#include "Mox/Entity.h"
#include "Mox/Ptr.h"
#include "attrlog/link/ByteLink.h"
#include "attrlog/link/Link.h"

namespace MOX_API Mox {
namespace NboAttrLog {

/// Callbacks run inside of `service`, behind the dispatch; they may use the session and its links
/// but not destroy it.
class Session {
 public:
  using OnClosed = std::function<void(Link& link, std::string const& reason)>;
  using OnGreeted = std::function<void(Link& link)>;
  using OnReport = std::function<void(std::string const& line)>;
  using OnLink = std::function<void(Link& link)>;

  /// `name` is sent to peers and should differ between the processes that one peer serves: a new
  /// connection with a name ends the older ones with that name and the same origin, so that a peer
  /// which lost its connection and came back isn't held up by what is left of them; one that greets
  /// later still is ended then. A connection over which the peer may not write never ends one over
  /// which it may. An empty name ends nothing.
  explicit Session(std::string name, LinkOptions options = {});
  /// Ends the links without a callback.
  ~Session();
  Session(Session const&) = delete;
  Session& operator=(Session const&) = delete;

  /// Shows a tree to all peers, until `exportDel`. Counted.
  void exportIs(Ptr<Entity> const& root);
  void exportDel(Ptr<Entity> const& root);
  /// All roots that a peer should wait for are exported.
  void exportsDone();
  /// Where the peers' roots are entered; null: they are refused. Holds for links made later.
  void importDirIs(Ptr<Dir> const& dir) { importDir_ = dir; }

  /// A connection over `bytes`. It is served by `service` from here on.
  Ptr<Link> linkIs(std::unique_ptr<ByteLink> bytes) { return linkIs(std::move(bytes), options_); }
  /// The same with other permissions than the session's own; the name stays the session's.
  Ptr<Link> linkIs(std::unique_ptr<ByteLink> bytes, LinkOptions const& options);
  LinkOptions const& options() const { return options_; }
  std::vector<Ptr<Link>> const& links() const { return links_; }

  /// One turn of every link; links that have ended leave the session.
  void service(std::uint64_t nowMs);
  /// Flags every link to end in the next `service`.
  void closeIs(std::string const& reason);

  void onClosed(OnClosed handler) { onClosed_ = std::move(handler); }
  /// A peer's greeting was accepted.
  void onGreeted(OnGreeted handler) { onGreeted_ = std::move(handler); }
  /// Calls the handler for each link of the session, those of now included: for a loop that waits
  /// for them.
  void onLink(OnLink handler);
  /// One line about each thing that somebody who looks after the process wants to know. What peers
  /// have named in it has been through `shownText`.
  void onReport(OnReport handler) { onReport_ = std::move(handler); }

 private:
  friend class Link;

  void handleGreeted(Link& link);
  bool isReplaced(Link& link);
  static bool replaces(bool newerMayWrite, Link const& older);
  void handleClosed(Link& link);
  void report(Link const& link, std::string const& text) const;

  LinkOptions options_;
  std::vector<Ptr<Entity>> roots_;
  bool isExportDone_ = false;
  Ptr<Dir> importDir_;
  std::shared_ptr<Imports> imports_ = std::make_shared<Imports>();
  std::shared_ptr<Identities> identities_ = std::make_shared<Identities>();
  std::vector<Ptr<Link>> links_;
  OnClosed onClosed_;
  OnGreeted onGreeted_;
  OnReport onReport_;
  OnLink onLink_;
};

}  // namespace NboAttrLog
}  // namespace Mox
