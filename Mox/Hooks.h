// What upper rooms do for the substrate: the only calls that run upward. Each hook is set once,
// when its room is loaded, and null in a process without that room.
#pragma once

#include "Mox/AttributeId.h"
#include "Mox/String8.h"

namespace MOX_API Mox {

class Entity;
class MoxAttr;
class PtrInterface;

struct Hooks {
  /// The attribute log: an entity has just lost its parent.
  void (*unparented)(Entity& entity) = nullptr;
  /// The attribute log: an entity that `Entity::moxIsIdentified` marks is being destroyed.
  void (*destroyed)(Entity const& entity) = nullptr;
  /// The attribute log: whether an object is a stream adapter. Null is none.
  bool (*isStreamAdapter)(PtrInterface const* object) = nullptr;
  /// The type registry: the descriptor of an attribute; null for an unknown id.
  MoxAttr const* (*attribute)(Entity const& entity, AttributeId attribute) = nullptr;
  /// The type registry: the step of a path from an entity's parent to it, as in `serdes[5]`. Called
  /// for entities that an attribute holds; without it the name stands for the key.
  String8 (*pathStep)(Entity const& child) = nullptr;
};

extern Hooks hooks;

}  // namespace Mox
