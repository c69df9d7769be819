// Roots and shelved entities by peer.
#include "attrlog/link/Imports.h"

#include <algorithm>
#include <utility>

#include "attrlog/adapter/AdapterHost.h"
#include "model/TypeText.h"
#include "registry/MoxType.h"

namespace Mox::NboAttrLog {
namespace {

/// The type and what an entity was made of, references by what they name.
std::string argumentsOf(Entity const& entity) {
  MoxType const& type = *entity.fwkType();
  std::string text(type.qualifiedName().view());
  auto const add = [&text](String8 const& value) { text.append(1, ' ').append(value.view()); };
  add(textOf(entity.name()));
  type.typeText()->forEach([&](AttributeText const& attribute) {
    if (attribute.form == AttributeText::Form::scalar && !attribute.set) {
      add(attribute.value(entity));
    }
  });
  return text;
}

}  // namespace

void Imports::rootIs(std::string const& peer, Ptr<Dir::Entry> const& entry,
                     AdapterHost const* connection) {
  // Entries that their owner has ended meanwhile are of no use to anybody.
  std::erase_if(items_, [&](Item const& item) {
    return item.entry && (!item.entry->target() || item.entry == entry);
  });
  items_.push_back({peer, entry, {}, {}, connection});
}

void Imports::shelve(std::string const& peer, Ptr<Entity> const& entity,
                     AdapterHost const* connection) {
  items_.push_back({peer, {}, entity, argumentsOf(**entity), connection});
}

void Imports::lend(std::string const& peer, Ptr<Entity> const& entity) {
  auto const isKnown = [&](Item const& item) {
    return item.shelved == entity && item.peer == peer;
  };
  if (std::none_of(items_.begin(), items_.end(), isKnown)) shelve(peer, entity, nullptr);
}

Ptr<Entity> Imports::claim(std::string const& peer, Entity const& made,
                           AdapterHost const* connection) {
  std::string const arguments = argumentsOf(made);
  for (Item& item : items_) {
    // One that this end has announced to the peer meanwhile has its id on this connection.
    if (item.shelved && item.connection == nullptr && item.peer == peer &&
        item.arguments == arguments &&
        !item.shelved->moxNboAttrLogSa(Ptr<Out const>(connection->out))) {
      item.connection = connection;
      return item.shelved;
    }
  }
  return {};
}

bool Imports::isRootFrom(Entity const* entity, std::string const& peer) const {
  return std::any_of(items_.begin(), items_.end(), [&](Item const& item) {
    return item.entry && item.entity() == entity && item.peer == peer;
  });
}

void Imports::drop(Entity const* entity, AdapterHost const* connection) {
  auto const at = std::find_if(items_.begin(), items_.end(), [&](Item const& item) {
    return item.entity() == entity && item.connection == connection;
  });
  if (at == items_.end()) return;
  Item const item = std::move(*at);
  items_.erase(at);
  end(item);
}

void Imports::staleIs(AdapterHost const* connection) {
  for (Item& item : items_) {
    if (item.connection == connection) item.connection = nullptr;
  }
}

void Imports::dropStale(std::string const& peer, bool roots) {
  auto const isKept = [&](Item const& item) {
    return item.connection != nullptr || item.peer != peer ||
           static_cast<bool>(item.entry) != roots;
  };
  // Whoever hears of their end may come back here.
  auto const at = std::stable_partition(items_.begin(), items_.end(), isKept);
  std::vector<Item> const stale(at, items_.end());
  items_.erase(at, items_.end());
  for (Item const& item : stale) end(item);
}

void Imports::end(Item const& item) {
  if (item.entry) item.entry->operationIs(Dir::Entry::endMount);
}

}  // namespace Mox::NboAttrLog
