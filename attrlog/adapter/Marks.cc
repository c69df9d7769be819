// The open transactions of all collections of the process.
#include "attrlog/adapter/Marks.h"

#include <algorithm>
#include <map>
#include <utility>

#include "attrlog/adapter/Rows.h"

namespace Mox::NboAttrLog {
namespace {

struct Transaction {
  AdapterHost const* connection;
  MarkedMembers away;  ///< those marked, while they don't stand
};

struct Collection {
  std::vector<Transaction> open;
  AdapterHost const* standing = nullptr;  ///< whose marks are on the members

  Transaction* of(AdapterHost const* connection) {
    auto const at = std::find_if(open.begin(), open.end(), [connection](Transaction const& one) {
      return one.connection == connection;
    });
    return at == open.end() ? nullptr : &*at;
  }
};

using Place = std::pair<Entity const*, AttributeId>;

struct Collections {
  std::map<Place, Collection> all;
  /// The one asked for last: frames come collection by collection.
  Place latest;
  Collection* found = nullptr;

  Collection* at(Place const& place) {
    if (all.empty()) return nullptr;
    if (place != latest) {
      auto const at = all.find(place);
      found = at == all.end() ? nullptr : &at->second;
      latest = place;
    }
    return found;
  }
  Collection& made(Place const& place) {
    latest = Place();
    return all[place];
  }
  void erase(Place const& place) {
    latest = Place();
    all.erase(place);
  }
};

Collections& collections() {
  static Collections all;
  return all;
}

void standingIs(Entity& entity, AttrRow const& row, Collection& collection,
                AdapterHost const* connection) {
  if (collection.standing == connection) return;
  if (Transaction* before = collection.of(collection.standing)) {
    row.marksTake(entity, before->away);
  }
  Transaction* const now = collection.of(connection);
  if (now) {
    for (auto const& member : now->away) member->moxMarkedForDeletionIs(true);
    now->away.clear();
  }
  collection.standing = now ? connection : nullptr;
}

}  // namespace

void Marks::enter(Entity& entity, AttrRow const& row, AdapterHost const* connection) {
  if (Collection* const collection = collections().at({&entity, row.id})) {
    standingIs(entity, row, *collection, connection);
  }
}

void Marks::begin(Entity& entity, AttrRow const& row, AdapterHost const* connection) {
  Collection& collection = collections().made({&entity, row.id});
  standingIs(entity, row, collection, connection);
  if (!collection.of(connection)) collection.open.push_back({connection, {}});
  collection.standing = connection;
}

void Marks::end(Entity& entity, AttrRow const& row, AdapterHost const* connection) {
  Collection* const collection = collections().at({&entity, row.id});
  if (collection == nullptr) return;
  std::erase_if(collection->open,
                [connection](Transaction const& one) { return one.connection == connection; });
  if (collection->standing == connection) collection->standing = nullptr;
  if (collection->open.empty()) collections().erase({&entity, row.id});
}

void Marks::drop(Entity& entity, AttrRow const& row, AdapterHost const* connection) {
  Collection const* const collection = collections().at({&entity, row.id});
  if (collection == nullptr) return;
  if (collection->standing == connection) {
    MarkedMembers marked;
    row.marksTake(entity, marked);
  }
  end(entity, row, connection);
}

std::size_t Marks::openCount() { return collections().all.size(); }

}  // namespace Mox::NboAttrLog
