// Tells each change of a tree as it is made: one line for each value and each member. It hears by
// generic objects and keeps the text of every value, to tell the old one.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>

#include "Mox/Dir.h"
#include "Mox/Entity.h"
#include "generic/GenericIf.h"
#include "tools/common/Tree.h"

namespace Tools {

/// Text lines (paths and values as in a dump):
///
///     created PATH: TYPE 'name'
///     deleted PATH
///     changed PATH.attribute: OLD -> NEW      a scalar, a reference, a collection's value
///     added PATH.attribute[KEY]: NEW          a collection's value
///     removed PATH.attribute[KEY]: OLD
///
/// Behind `created` stand, as `added`, the values that a new entity was made with and the members
/// it has; what stood below a deleted one isn't told. JSON: one object a line, `event` being the
/// word above, with `entity`, `type`, `name`, `attribute`, `key`, `old` and `new` as far as they
/// apply.
class Watch : private Mox::GenericIf::Listener {
 public:
  using Write = std::function<void(std::string const& line)>;

  /// Remembers what stands in `roots` without telling it; tells changes from here on.
  Watch(Mox::Dir& roots, bool isJson, Write write);
  ~Watch() override;
  Watch(Watch const&) = delete;
  Watch& operator=(Watch const&) = delete;

  /// Tells only what lies at or below this path; "": everything.
  void onlyIs(std::string const& path) { only_ = path; }
  /// Looks for roots that came or went, which nobody tells. Cheap when there are none.
  void rootsCheck();

 private:
  using Slot = std::pair<Mox::AttributeId, std::string>;  // the key's text, empty for none
  struct Known {
    Known(Mox::Ptr<Mox::Entity> const& entity, std::string const& at) : node(entity), path(at) {}
    Node node;
    std::string path;
    std::map<Slot, std::string> values;
    std::map<Slot, Mox::Ptr<Mox::Entity>> children;
  };

  void handleAttribute(Mox::GenericIf& of, Mox::AttributeId id,
                       Mox::Ptr<Mox::GenericIf const> const& key) override;
  void scanRoots(bool tells);
  void entityIs(Mox::Ptr<Mox::Entity> const& entity, std::string const& path, bool tells);
  void entityDel(Mox::Ptr<Mox::Entity> const& entity);
  /// Compares one attribute with what is known; of a collection one key, or all if `key` is null.
  void attributeCheck(Known& known, Mox::MoxAttr const& attribute,
                      Mox::Ptr<Mox::GenericIf const> const& key, bool tells);
  void memberIs(Known& known, Mox::MoxAttr const& attribute, std::string const* key,
                Member const* member, bool tells);
  void valueIs(Known& known, Mox::MoxAttr const& attribute, std::string const* key,
               std::string const* value, bool tells);
  void childIs(Known& known, Mox::MoxAttr const& attribute, std::string const* key,
               Mox::Ptr<Mox::Entity> const& child, bool tells);
  void tellEntity(char const* event, Mox::Ptr<Mox::Entity> const& entity, std::string const& path);
  void tellValue(Known const& known, Mox::MoxAttr const& attribute, std::string const* key,
                 std::string const* old, std::string const* value);
  bool isWanted(std::string const& path) const;

  Mox::Ptr<Mox::Dir> roots_;
  std::uint32_t rootsVersion_;
  bool isJson_;
  Write write_;
  std::string only_;
  std::map<std::string, Mox::Ptr<Mox::Entity>> knownRoots_;
  std::map<Mox::Entity const*, std::unique_ptr<Known>> known_;
  std::map<Mox::GenericIf const*, Known*> byGeneric_;
};

}  // namespace Tools
