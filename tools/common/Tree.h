// Entities as tools show them: on top of generic/Text.h, which knows attributes by name and values
// by text, the members of collections in order, paths, and what a path may go on with.
#pragma once

#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "Mox/Dir.h"
#include "Mox/Entity.h"
#include "generic/Text.h"
#include "registry/MoxAttr.h"
#include "registry/MoxType.h"

namespace Tools {

/// What can't be done, in one line; nothing has changed.
class CommandError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

inline bool isCollection(Mox::MoxAttr const& attribute) { return attribute.keyType() != nullptr; }
bool ownsEntities(Mox::MoxAttr const& attribute);

struct Member {
  std::string key;              ///< as paths show it
  std::string value;            ///< of a value collection
  Mox::Ptr<Mox::Entity> child;  ///< of a collection of entities
};

/// An entity that is looked at.
class Node {
 public:
  /// Requires: `entity` is not null.
  explicit Node(Mox::Ptr<Mox::Entity> const& entity)
      : entity_(entity), generic_(Mox::genericOf(entity)) {}

  Mox::Ptr<Mox::Entity> const& entity() const { return entity_; }
  Mox::Ptr<Mox::GenericIf> const& generic() const { return generic_; }

  std::vector<Mox::MoxAttr const*> attributes() const {
    return Mox::contentOf(*entity_->fwkType());
  }
  /// Text of a value or a reference.
  std::string value(Mox::MoxAttr const& attribute) const;
  /// Null when there is none.
  Mox::Ptr<Mox::Entity> child(Mox::MoxAttr const& attribute) const;
  std::size_t count(Mox::MoxAttr const& attribute) const;
  /// Of a collection, by key: numbers by value, all else by bytes.
  std::vector<Member> members(Mox::MoxAttr const& attribute) const;
  /// Empty when there is none.
  std::optional<Member> member(Mox::MoxAttr const& attribute,
                               Mox::Ptr<Mox::GenericIf const> const& key) const;

 private:
  Mox::Ptr<Mox::GenericIf> op(Mox::MoxAttr const& attribute, Mox::GenericIf::AttributeOp::OpId id,
                              Mox::Ptr<Mox::GenericIf const> const& key = {}) const;

  Mox::Ptr<Mox::Entity> entity_;
  Mox::Ptr<Mox::GenericIf> generic_;
};

/// What a path names.
struct Place {
  Mox::Ptr<Mox::Entity> entity;   ///< the entity, or that of the attribute
  Mox::MoxAttr const* attribute;  ///< null: the entity itself
  Mox::Ptr<Mox::GenericIf const> key;
  std::string entityPath;
};

/// Where a path leads below the roots that `EntityRoot` has made known: an entity, an attribute, or
/// a member that is there. Throws CommandError.
Place placeOf(std::string const& path);

/// Texts that `path` may become: each is the path of something, or ends with the bracket behind
/// which a key has to follow.
std::vector<std::string> completionsOf(Mox::Dir const& roots, std::string_view path);

/// The roots by name.
std::vector<Mox::Ptr<Mox::Entity>> rootsOf(Mox::Dir const& roots);

/// The path of an attribute of the entity at `path`: values follow a full stop, children a slash;
/// control bytes of the key are shown as in "\x0a".
std::string attributePath(std::string const& path, Mox::MoxAttr const& attribute,
                          std::string const* key);
std::string withoutControlBytes(std::string const& text);

/// "Inventory::Arad::Arad 'fap0'".
std::string titleOf(Mox::Entity const& entity);
std::string toStd(Mox::String8 const& text);

}  // namespace Tools
