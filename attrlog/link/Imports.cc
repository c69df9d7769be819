// Roots and shelved entities by peer.
#include "attrlog/link/Imports.h"

#include <algorithm>
#include <utility>

namespace Mox::NboAttrLog {

void Imports::peerIs(std::string const& name, std::uint64_t nonce) {
  Peer& peer = peers_[name];
  peer.claims.clear();
  if (std::exchange(peer.nonce, nonce) == nonce) return;
  std::vector<std::pair<Entity const*, Item const*>> stale;
  for (auto const& [entity, item] : peer.items) {
    if (item.shelved && item.connection == nullptr) stale.emplace_back(entity, &item);
  }
  std::sort(stale.begin(), stale.end(), [](auto const& one, auto const& other) {
    return one.second->order < other.second->order;
  });
  for (auto const& [entity, item] : stale) peer.claims[item->arguments].push_back(entity);
}

void Imports::rootIs(std::string const& peer, Ptr<Entity> const& root, Ptr<Dir::Entry> const& entry,
                     AdapterHost const* connection) {
  auto& items = peers_[peer].items;
  // Entries that their owner has ended meanwhile are of no use to anybody.
  std::erase_if(items, [&](auto const& known) {
    Item const& item = known.second;
    return item.entry && (!item.entry->target() || item.entry == entry);
  });
  items.insert_or_assign(root.get(), Item{++announced_, entry, {}, {}, connection});
}

void Imports::shelve(std::string const& peer, Ptr<Entity> const& entity,
                     std::string const& arguments, AdapterHost const* connection) {
  peers_[peer].items.insert_or_assign(entity.get(),
                                      Item{++announced_, {}, entity, arguments, connection});
}

Ptr<Entity> Imports::claim(std::string const& name, std::string const& arguments) {
  Peer& peer = peers_[name];
  auto const at = peer.claims.find(arguments);
  if (at == peer.claims.end()) return {};
  while (!at->second.empty()) {
    auto const item = peer.items.find(at->second.front());
    at->second.pop_front();
    if (item != peer.items.end() && item->second.connection == nullptr) return item->second.shelved;
  }
  return {};
}

bool Imports::isRootFrom(Entity const* entity, std::string const& name) const {
  auto const peer = peers_.find(name);
  if (peer == peers_.end()) return false;
  auto const item = peer->second.items.find(entity);
  if (item == peer->second.items.end() || item->second.shelved) return false;
  Ptr<Dir::Entry> const& entry = item->second.entry;
  return !entry || entry->target().get() == entity;
}

void Imports::drop(std::string const& name, Entity const* entity) {
  auto& items = peers_[name].items;
  auto const at = items.find(entity);
  if (at == items.end()) return;
  Item const item = std::move(at->second);
  items.erase(at);
  end(item);
}

void Imports::staleIs(std::string const& name, AdapterHost const* connection) {
  auto const peer = peers_.find(name);
  if (peer == peers_.end()) return;
  for (auto& [entity, item] : peer->second.items) {
    if (item.connection == connection) item.connection = nullptr;
  }
}

void Imports::dropStaleShelved(std::string const& peer) {
  peers_[peer].claims.clear();
  dropStale(peer, false);
}

void Imports::dropStale(std::string const& name, bool roots) {
  auto& items = peers_[name].items;
  // Whoever is notified of their end may come back here.
  std::vector<Item> stale;
  for (auto at = items.begin(); at != items.end();) {
    Item& item = at->second;
    if (item.connection == nullptr && !item.shelved == roots) {
      stale.push_back(std::move(item));
      at = items.erase(at);
    } else {
      ++at;
    }
  }
  std::sort(stale.begin(), stale.end(),
            [](Item const& one, Item const& other) { return one.order < other.order; });
  for (Item const& item : stale) end(item);
}

std::size_t Imports::size() const {
  std::size_t size = 0;
  for (auto const& [name, peer] : peers_) size += peer.items.size();
  return size;
}

void Imports::end(Item const& item) {
  if (item.entry) item.entry->operationIs(Dir::Entry::endMount);
}

}  // namespace Mox::NboAttrLog
