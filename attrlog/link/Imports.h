// What peers have brought into this process: the roots that stand in the import directory and the
// entities that only references lead to. Outlives the connections, so that a peer which comes back
// finds its objects, and with them their subscribers. A session owns one; its connections use it.
#pragma once

#include <string>
#include <vector>

#include "Mox/Dir.h"
#include "Mox/Entity.h"
#include "Mox/Ptr.h"

namespace MOX_API Mox {
namespace NboAttrLog {

class AdapterHost;

class Imports {
 public:
  /// A root of `peer` has been entered in a directory, or is bound again.
  void rootIs(std::string const& peer, Ptr<Dir::Entry> const& entry, AdapterHost const* connection);
  /// An entity without a place of its own is kept.
  void shelve(std::string const& peer, Ptr<Entity> const& entity, AdapterHost const* connection);
  /// This end may write what the peer shows, and has announced the entity to it: the peer's next
  /// connection may bring it back.
  void lend(std::string const& peer, Ptr<Entity> const& entity);
  /// The entity made of the same arguments as `made` which an earlier connection with the peer
  /// knew, and this one doesn't; null without one.
  Ptr<Entity> claim(std::string const& peer, Entity const& made, AdapterHost const* connection);
  /// True when the entity is a root that this peer brought.
  bool isRootFrom(Entity const* entity, std::string const& peer) const;
  /// The peer has withdrawn the entity: a root leaves its directory, another one is let go.
  void drop(Entity const* entity, AdapterHost const* connection);
  /// The connection is gone: what came over it is stale.
  void staleIs(AdapterHost const* connection);
  /// The peer has announced all its roots: the stale ones are dropped.
  void dropStaleRoots(std::string const& peer) { dropStale(peer, true); }
  /// And all its trees have come: what no reference in them has led to is let go.
  void dropStaleShelved(std::string const& peer) { dropStale(peer, false); }
  std::size_t size() const { return items_.size(); }

 private:
  struct Item {
    std::string peer;
    Ptr<Dir::Entry> entry;          ///< of a root
    Ptr<Entity> shelved;            ///< of anything else
    std::string arguments;          ///< of that
    AdapterHost const* connection;  ///< null: stale

    Entity const* entity() const { return entry ? entry->target().get() : shelved.get(); }
  };

  void dropStale(std::string const& peer, bool roots);
  static void end(Item const& item);

  std::vector<Item> items_;
};

}  // namespace NboAttrLog
}  // namespace Mox
