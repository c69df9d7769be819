// What inventoryctl shows of a tree and of the types, on the command line and at its prompt.
#pragma once

#include <ostream>
#include <string>

#include "Mox/Dir.h"
#include "tools/common/Dump.h"

namespace Tools {

/// One level of the tree. "": the roots. An entity: a line for each attribute; a collection: one
/// for each member. JSON: an object by the same paths. Throws CommandError.
void list(std::ostream& to, Mox::Dir const& roots, std::string const& path, DumpForm form);

/// A value alone; of an entity or a collection the part of a dump. Throws CommandError.
void get(std::ostream& to, std::string const& path, DumpForm form);

/// "": all types of entities, with their bases. A type by its name, short or qualified: its
/// attributes, or its enumerators. Throws CommandError.
void types(std::ostream& to, std::string const& name, DumpForm form);

}  // namespace Tools
