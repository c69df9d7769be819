// The words of every failure that the model raises, in one place: what peers, tools and tests may
// rely on to the letter. Identifiers and enumerations carry theirs with their class.
#pragma once

#include "Mox/Api.h"

namespace MOX_API Mox {
namespace messages {

/// ValidPtr, and every call that takes one.
inline constexpr char nullValidPtr[] = "null ValidPtr";
/// `strepToValue`: the column in bytes from 0, and the whole text.
inline constexpr char junkFormat[] = "junk at column %lld deserializing %s";
/// A log message names an entity of the wrong kind.
inline constexpr char wrongEntityType[] = "Entity is the wrong type";
/// A message reaches an adapter that is applying one.
inline constexpr char reactorActive[] = "entity reactor is already active";
/// In front of the notifier's full name, and between that and the peer's name.
inline constexpr char readOnlyProxy[] = "write-update from readonly proxy: ";
inline constexpr char readOnlyProxyPeer[] = " peerName: ";
/// A generic setter on a const instance.
inline constexpr char constInstance[] = "attempting to modify a const instance";
/// The failures of the generic interface: the name of the value, key or argument; of the attribute;
/// the operation's name and number before the attribute's name.
inline constexpr char wrongType[] = "value missing or of the wrong type: %s";
inline constexpr char badIndex[] = "attribute takes no index: %s";
inline constexpr char unknownArgument[] = "too many arguments: %s";
inline constexpr char unknownAttribute[] = "no such attribute: %s";
inline constexpr char opNotSupported[] = "operation %s (%d) not supported by attribute: %s";
/// `xDel(iterator)` with an iterator of another collection, or on a member that was removed.
inline constexpr char foreignIterator[] = "iterator stands on no member of this collection";
/// A child made again with another constructor argument: these five, with the child's name, the
/// parameter's name, the new and the old value in between.
inline constexpr char reinstantiating[] = "Reinstantiating the entity with name ";
inline constexpr char reinstantiatingWhere[] = " where constructor parameter attribute _";
inline constexpr char reinstantiatingNew[] = " has a different value of ";
inline constexpr char reinstantiatingOld[] = " than the current value of ";
inline constexpr char reinstantiatingEnd[] = " not allowed";

}  // namespace messages
}  // namespace Mox
