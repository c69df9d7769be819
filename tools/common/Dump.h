// A tree of entities as text and as JSON, made from the attribute tables alone: the same code for
// every type, for the process that owns a tree and for the one that mirrors it.
#pragma once

#include <ostream>
#include <string>
#include <vector>

#include "Mox/Dir.h"
#include "Mox/Entity.h"
#include "model/TypeText.h"

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

// What the forms are made of, for others that show parts of a tree.

std::string toStd(Mox::String8 const& text);
/// The attribute table of an entity's type; null for a type without one.
Mox::TypeText const* typeText(Mox::Entity const& entity);
/// The path of what stands in `attribute`: of a value behind '.', of a child behind '/'.
std::string attributePath(std::string const& path, Mox::AttributeText const& attribute,
                          Mox::String8 const* key);
/// "Inventory::Arad::Arad 'fap0'".
std::string entityTitle(Mox::Entity const& entity);
/// The members of a collection in the order of their keys.
std::vector<Mox::MemberText> sortedMembers(Mox::Entity const& entity,
                                           Mox::AttributeText const& attribute);
/// The roots of a directory by name.
std::vector<Mox::Ptr<Mox::Entity>> sortedRoots(Mox::Dir const& roots);
/// Without the apostrophes and escapes of its text form.
std::string plainText(Mox::String8 const& text, Mox::TextKind kind);
/// A value's text as JSON.
std::string jsonValue(Mox::String8 const& text, Mox::TextKind kind);
/// Any text as a JSON string.
std::string jsonText(std::string const& text);

}  // namespace Tools
