// A tree of entities as text and as JSON, the same code for every type, for the process that owns a
// tree and for the one that mirrors it.
#pragma once

#include <ostream>
#include <string>

#include "Mox/Dir.h"
#include "tools/common/Tree.h"

namespace Tools {

/// Text. One line for each entity, and one for each value:
///
///     slice: Inventory::Arad::AradSlice 'slice'
///     slice.numPorts = 0
///     slice/fap[fap0]: Inventory::Arad::Arad 'fap0'
///     slice/fap[fap0].fapId = 0
///     slice/fap[fap0]/elkGlobalSocProperties.property['core_clock'] = '720'
///
/// An entity's line has its type and name. `/attribute` leads to a singleton, `/attribute[key]` to
/// a member; `.attribute` and `.attribute[key]` are values. Roots go by name, attributes in the
/// order of their declaration with those of the base first, members by key, numbers as numbers.
/// Values and keys are in the text form of their types; a name as a key stands bare. Control bytes,
/// which only such names can bring, are written `\xHH`: a line is a line. An absent singleton and
/// an empty collection show nothing. Only the model's content shows, so that two trees in step give
/// the same bytes: no version, no count of reads.
///
/// JSON. An object with the roots by name; an entity is an object of `type`, `name` and
/// `attributes`, by name: a number, true or false, or text for a value, a path or null for a
/// reference, an entity or null for a singleton, an object by key for a collection. Bytes that are
/// not UTF-8 become U+FFFD.
enum class DumpForm { text, json };

void writeDump(std::ostream& to, Mox::Dir const& roots, DumpForm form);
/// The part of it that is an entity with all below it, or an attribute.
void writeDump(std::ostream& to, Place const& place, DumpForm form);

}  // namespace Tools
