// Changes of a tree told in text, for any type: what inventoryd reads from its standard input and
// inventoryctl from its command line.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "Mox/Dir.h"
#include "tools/common/Tree.h"

namespace Tools {

/// A verb and what it is about.
struct Command {
  std::string verb;  ///< empty: nothing is to be done
  std::vector<std::string> words;
};

/// Splits a line at blanks outside of brackets and apostrophes. What stands behind the path of
/// `set` is one word. A line with `#` in front does nothing.
Command commandOf(std::string_view line);

/// Carries out one change:
///
///     set PATH.attribute VALUE            a scalar or a reference
///     set PATH.attribute[KEY] VALUE       a member of a value collection
///     add PATH/attribute ARGUMENT…        a child with these constructor arguments in their order,
///     or
///                                         as NAME=VALUE; references may be left out
///     add PATH/attribute[KEY] ARGUMENT…   the same, with the key from the path
///     add PATH.attribute[KEY] VALUE       a new member of a value collection
///     del PATH.attribute[KEY]             a member of a value collection
///     del PATH/attribute[KEY]             a child; without a key the singleton
///
/// Paths are as a dump shows them, below the roots that `KnownRoots` has made known; values and
/// arguments are in the text form of their types. Throws CommandError, also for another verb.
void change(Command const& command);

/// Makes the roots known to paths, those in the texts of references too, for as long as it lives.
class KnownRoots {
 public:
  explicit KnownRoots(Mox::Dir const& roots);
  ~KnownRoots();
  KnownRoots(KnownRoots const&) = delete;
  KnownRoots& operator=(KnownRoots const&) = delete;

 private:
  struct Roots;
  std::unique_ptr<Roots> roots_;
};

}  // namespace Tools
