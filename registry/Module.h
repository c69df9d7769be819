// How a module builds the run-time objects of its types: the tables that the schema compiler
// writes, and the one algorithm that turns them into types and attributes. Only generated code
// includes this.
#pragma once

#include <cstddef>
#include <cstring>
#include <type_traits>

#include "Mox/AttributeRow.h"
#include "Mox/Ptr.h"
#include "registry/IntrospectionReactor.h"
#include "registry/MoxAttr.h"
#include "registry/MoxType.h"
#include "registry/ValueType.h"

namespace MOX_API Mox {

struct TypeRow {
  char const* qualifiedName;
  TypeAccess type;
  TypeAccess parent;  ///< null for an enumeration
  unsigned int size;
  char const* doc;
  Table<ArgumentRow> arguments = {};  ///< of the constructor
  /// Own ones; of an enumeration its enumerators, and behind them its value.
  Table<AttributeRow> attributes;
  TypeAccess keyType = nullptr;  ///< of the attribute `fwkKey`; null for a type without it
  /// Instantiates the accessors of `Ptr<T>`; null for an enumeration.
  void (*forcePointerAccess)() = nullptr;
  /// The process's pointers to the attribute of the message channel, to `moxHasAttrLogInterface`,
  /// to each of `attributes`, and to `fwkKey`; null for an enumeration.
  MoxAttr const** attributePointers = nullptr;
};

/// Types that stand side by side in one name space.
struct NameSpaceRow {
  Table<char const*> names;  ///< from the outermost to the innermost
  Table<TypeRow> types;
};

struct BaseRow {
  TypeAccess type;
  void (*forcePointerAccess)();
};

/// One for each module, static.
struct Module {
  Table<NameSpaceRow> nameSpaces;
  Table<TypeAccess> types;      ///< own ones, in the order in which they are made
  Table<BaseRow> foreignBases;  ///< made after them
  bool isDone = false;
  Module* nextWaiting = nullptr;
  Module* nextDescribed = nullptr;
};

/// Describes a module's types to the reactor of the process, once. Does nothing as long as that
/// isn't ready. An exception of the reactor passes through; the module counts as described.
void initModule(Module& module);

/// What the loader runs for a module: makes its types, records their names, finds its attributes.
/// If the reactor isn't ready the module is described when it is.
void loadModule(Module& module);

// Each of these goes on behind a module whose description the reactor refuses, and passes the first
// exception through at the end.

/// Describes the modules that were loaded before the reactor was ready.
void initWaitingModules();

/// Describes to `reactor` the modules that were described to another one since it was the reactor
/// of the process. All attributes exist: each is an event `handleAttr`.
void replayModules(IntrospectionReactor& reactor);

/// The one instance of `Type`. `instance` is the place that keeps it, `init` describes its module,
/// and `base` is what it derives from, null for an enumeration.
template <class Type>
MoxType* typeInstance(MoxType*& instance, void (*init)(), TypeAccess base) {
  if (instance) return instance;
  init();
  if (instance) return instance;
  auto* const made = new Type;
  instance = made;
  made->referencesLeak();
  if (base) base()->derivedTypeQEnq(Ptr<MoxType>(made));
  return made;
}

/// Takes the address of an accessor of a pointer, so that the accessor is in the module for those
/// who reach it by reflection.
void forcePointerAccessH(void const* accessor);

/// The address of a member function, which isn't virtual.
template <class Function>
void const* functionAddress(Function function) {
  static_assert(std::is_member_function_pointer_v<Function>);
  void const* address;
  std::memcpy(&address, &function, sizeof address);
  return address;
}

template <class T>
void forcePointerAccess() {
  forcePointerAccessH(functionAddress(&Ptr<T>::operator*));
  forcePointerAccessH(functionAddress(&Ptr<T>::operator->));
}

}  // namespace Mox
