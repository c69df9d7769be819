// Prints each change of a tree as it is made: one line for each value, each member and each entity.
#pragma once

#include <functional>
#include <string>

#include "Mox/Dir.h"
#include "generic/TreeWatch.h"

namespace Tools {

/// Text lines (paths and values as in a dump):
///
///     created PATH: TYPE 'name'
///     deleted PATH
///     changed PATH.attribute: OLD -> NEW      a scalar, a reference, a collection's value
///     added PATH.attribute[KEY]: NEW          a collection's value
///     removed PATH.attribute[KEY]: OLD
///
/// `created` is followed, as `added`, by the values that a new entity was made with and the members
/// it has; what was below a deleted one isn't printed. JSON: one object a line, `event` being the
/// word above, with `entity`, `type`, `name`, `attribute`, `key`, `old` and `new` as far as they
/// apply.
class Watch : private Mox::TreeWatch::Listener {
 public:
  using Write = std::function<void(std::string const& line)>;

  Watch(Mox::Dir& roots, bool isJson, Write write);

  /// Prints only what is at or below this path; "": everything.
  void onlyIs(std::string const& path) { only_ = path; }

 private:
  using Node = Mox::TreeWatch::Node;

  void handleEntity(Node const& node) override;
  void handleEntityDel(Node const& node) override;
  void handleChange(Node const& node, Mox::TreeChange const& change) override;
  void writeEntity(char const* event, Node const& node);
  void writeValue(Node const& node, Mox::MoxAttr const& attribute, std::string const* key,
                  Mox::String8 const* before, Mox::String8 const* now);
  bool isWanted(std::string const& path) const;

  bool isJson_;
  Write write_;
  std::string only_;
  Mox::TreeWatch tree_;
};

}  // namespace Tools
