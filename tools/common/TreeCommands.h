// Changes of a tree told in lines of text, for any type: what inventoryd reads from its standard
// input.
#pragma once

#include <stdexcept>
#include <string>

namespace Tools {

/// A line that can't be carried out; nothing has changed.
class CommandError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Carries out one line:
///
///     set PATH.attribute VALUE            a scalar or a reference
///     set PATH.attribute[KEY] VALUE       a member of a value collection
///     add PATH/attribute ARGUMENT…        a child with these constructor arguments, key first
///     del PATH.attribute[KEY]             a member of a value collection
///     del PATH/attribute[KEY]             a child; without a key the singleton
///
/// Paths are as a dump shows them, below the roots that `EntityRoot` has made known; values and
/// arguments are in the text form of their types. Blank lines and lines with `#` in front do
/// nothing. Throws CommandError.
void runCommand(std::string const& line);

/// Lets `EntityPath` find every entity below a root, by the attribute tables.
void entityPathsAreByTable();

}  // namespace Tools
