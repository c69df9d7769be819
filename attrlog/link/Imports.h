// What peers have brought into this process: the roots in the import directory, and the entities to
// which only references lead. Outlives the connections, so that a peer which comes back finds its
// objects, and with them their subscribers. A session owns one; its connections share it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>
#include <unordered_map>
#include <vector>

#include "Mox/Dir.h"
#include "Mox/Entity.h"
#include "Mox/Ptr.h"

namespace MOX_API Mox {
namespace NboAttrLog {

class AdapterHost;

class Imports {
 public:
  /// A connection with the peer begins. `nonce` tells its process from earlier ones under its name.
  void peerIs(std::string const& peer, std::uint64_t nonce);
  /// A root of the peer is about to be entered in a directory (`entry` is null), has been entered,
  /// or is bound again.
  void rootIs(std::string const& peer, Ptr<Entity> const& root, Ptr<Dir::Entry> const& entry,
              AdapterHost const* connection);
  /// An entity without a place of its own is kept, or bound again. `arguments`: what it was made
  /// of, as bytes that are equal for equal arguments.
  void shelve(std::string const& peer, Ptr<Entity> const& entity, std::string const& arguments,
              AdapterHost const* connection);
  /// An entity that an earlier process under the peer's name has announced, made of the same
  /// arguments, the first announced first; null without one. Entities that the same process
  /// announced are known by their ids.
  Ptr<Entity> claim(std::string const& peer, std::string const& arguments);
  /// True when the entity is a root that this peer brought.
  bool isRootFrom(Entity const* entity, std::string const& peer) const;
  /// The peer has withdrawn the entity: a root leaves its directory, another one is released.
  void drop(std::string const& peer, Entity const* entity);
  /// The connection is gone: what came over it is stale.
  void staleIs(std::string const& peer, AdapterHost const* connection);
  /// The peer has announced all its roots: the stale ones are dropped.
  void dropStaleRoots(std::string const& peer) { dropStale(peer, true); }
  /// And all its trees have come: what no reference in them leads to is released.
  void dropStaleShelved(std::string const& peer);
  std::size_t size() const;

 private:
  struct Item {
    std::uint64_t order;            ///< of announcement
    Ptr<Dir::Entry> entry;          ///< of a root in a directory
    Ptr<Entity> shelved;            ///< null: a root
    std::string arguments;          ///< of what is shelved
    AdapterHost const* connection;  ///< null: stale
  };
  struct Peer {
    std::uint64_t nonce = 0;
    std::unordered_map<Entity const*, Item> items;
    /// Stale entities of an earlier process by their arguments, in order of announcement.
    std::unordered_map<std::string, std::deque<Entity const*>> claims;
  };

  void dropStale(std::string const& peer, bool roots);
  static void end(Item const& item);

  std::unordered_map<std::string, Peer> peers_;
  std::uint64_t announced_ = 0;
};

}  // namespace NboAttrLog
}  // namespace Mox
