#include "registry/Module.h"

#include <exception>
#include <utility>

namespace Mox {
namespace {

Module* firstWaiting = nullptr;
/// In the order of their description.
Module* firstDescribed = nullptr;

void append(Module*& first, Module* Module::*next, Module& module) {
  Module** link = &first;
  while (*link) link = &((*link)->*next);
  *link = &module;
}

// The attributes of all entity types beside their own.
constexpr AttributeRow interfaceRow = {
    .id = 0x9a,
    .name = "moxHasAttrLogInterface",
    .kind = AttributeKind::interface,
    .flags = {0x00022001, 0x00000400},
    .introspectionFlags = 8,
    .type = &typeOf<bool>,
};
constexpr AttributeRow keyRow = {
    .id = 0,
    .name = "fwkKey",
    .kind = AttributeKind::key,
    .flags = {0x00200001, 0x00000400},
    .introspectionFlags = 0,
    .type = nullptr,
};

/// Enters an attribute that holds entities at their type.
void refer(MoxAttr& attribute) {
  constexpr std::uint32_t holdsEntities = 0x08000000;
  if ((attribute.flags().word0 & holdsEntities) == 0) return;
  attribute.type()->referringAttrQEnq(Ptr<MoxAttr>(&attribute));
}

void announce(IntrospectionReactor& reactor, Ptr<MoxAttr> const& attribute) {
  reactor.handleAttr(attribute);
  reactor.handleAttrContextExit();
}

/// An attribute of the kinds child and child collection.
void defineOwning(IntrospectionReactor& reactor, MoxType& owner, AttributeRow const& row) {
  MoxAttr& attributes = owner.attributes();
  attributes.attrDel(row.name);
  Ptr<MoxType> const memberType(row.type());
  Ptr<MoxAttr> const keyAttribute =
      row.memberKey ? memberType->attributes().attr(row.memberKey) : Ptr<MoxAttr>();
  Ptr<MoxAttr> const made = attributes.attrIs(row.name, memberType, keyAttribute.get(), nullptr,
                                              {row.flags[0], row.flags[1]}, row.id);
  made->rowIs(row);
  if (row.keyType) made->attrKeyTypeIs(Ptr<MoxType>(row.keyType()));
  for (ArgumentRow const& argument : row.arguments) {
    made->constructorArgNameQEnq(argument.name);
    made->constructorArgTypeQEnq(argument.typeName);
  }
  if (row.memberKey) {
    made->attrKeyArgIs(row.memberKey);
    made->attrOrderedIs(false);
  }
  made->attrIntrospectionFlagsIs(row.introspectionFlags);
  owner.attributeQEnq(made);
  refer(**made);
  announce(reactor, made);
}

void define(IntrospectionReactor& reactor, Ptr<MoxType> const& owner, AttributeRow const& row,
            TypeAccess type) {
  if (ownsEntities(row.kind)) return defineOwning(reactor, **owner, row);
  Ptr<MoxAttr> const made = reactor.defNoninstantiatingAttr(
      owner, row.name, Ptr<MoxType>(type()), Ptr<MoxType>(row.keyType ? row.keyType() : nullptr),
      {row.flags[0], row.flags[1]}, row.introspectionFlags, row.id);
  if (!made) return;
  made->rowIs(row);
  refer(**made);
}

void inheritAttributes(IntrospectionReactor& reactor, MoxType& type, MoxType const& parent) {
  for (MoxType::AttributeQ::IteratorConst it(&parent.attributeQ()); it; ++it) {
    Ptr<MoxAttr> const copy = it->attrCopy(&type);
    type.attributeQEnq(copy);
    refer(**copy);
    announce(reactor, copy);
  }
}

Ptr<MoxType const> parentOf(TypeRow const& row) {
  return Ptr<MoxType const>(row.parent ? row.parent() : nullptr);
}

void describe(IntrospectionReactor& reactor, TypeRow const& row) {
  Ptr<MoxType> const type(row.type());
  Ptr<MoxType const> const parent = parentOf(row);
  reactor.handleType(Ptr<MoxType const>(type), parent);
  type->sizeIs(row.size);
  if (parent) {
    type->isEntityIs(true);
  } else {
    type->isValueIs(true);
    type->isEnumTypeIs(true);
  }
  type->hasGenericIfSupportIs(true);
  type->docIs(row.doc);
  for (ArgumentRow const& argument : row.arguments) {
    type->constructorArgNameQEnq(argument.name);
    type->constructorArgTypeQEnq(argument.typeName);
  }
  if (parent) {
    inheritAttributes(reactor, **type, **parent);
    define(reactor, type, interfaceRow, interfaceRow.type);
  }
  for (AttributeRow const& attribute : row.attributes)
    define(reactor, type, attribute, attribute.type);
  if (row.keyType) define(reactor, type, keyRow, row.keyType);
  if (!parent) type->valAttrIs(type->attributes().attr("value").get());
  reactor.handleScopeExit();
}

/// The events of a type whose attributes exist.
void replay(IntrospectionReactor& reactor, TypeRow const& row) {
  Ptr<MoxType> const type(row.type());
  reactor.handleType(Ptr<MoxType const>(type), parentOf(row));
  for (MoxType::AttributeQ::IteratorConst it(&type->attributeQ()); it; ++it)
    announce(reactor, Ptr<MoxAttr>(*it));
  reactor.handleScopeExit();
}

void describeModule(IntrospectionReactor& reactor, Module const& module,
                    void (*describeType)(IntrospectionReactor&, TypeRow const&)) {
  reactor.moxLatestModuleIs(&module);
  for (NameSpaceRow const& nameSpace : module.nameSpaces) {
    for (char const* const name : nameSpace.names) reactor.handleNameSpace(name);
    for (TypeRow const& type : nameSpace.types) describeType(reactor, type);
    for (std::size_t i = 0; i < nameSpace.names.count; ++i) reactor.handleScopeExit();
  }
}

template <class Visit>
void forEachType(Module const& module, Visit const& visit) {
  for (NameSpaceRow const& nameSpace : module.nameSpaces) {
    for (TypeRow const& type : nameSpace.types) visit(type);
  }
}

void findAttributes(Module const& module) {
  forEachType(module, [](TypeRow const& type) {
    MoxAttr const** pointer = type.attributePointers;
    if (!pointer) return;
    MoxAttr const& attributes = type.type()->attributes();
    *pointer++ = attributes.attr("moxNboAttrLogSaForMsgChannel").get();
    *pointer++ = attributes.attr(interfaceRow.name).get();
    for (AttributeRow const& attribute : type.attributes)
      *pointer++ = attributes.attr(attribute.name).get();
    if (type.keyType) *pointer++ = attributes.attr(keyRow.name).get();
  });
}

/// The first exception of several steps, each of which is to be taken.
class FirstFailure {
 public:
  template <class Step>
  void operator()(Step const& step) {
    try {
      step();
    } catch (...) {
      if (!failure_) failure_ = std::current_exception();
    }
  }
  void rethrow() const {
    if (failure_) std::rethrow_exception(failure_);
  }

 private:
  std::exception_ptr failure_;
};

}  // namespace

void initModule(Module& module) {
  if (module.isDone) return;
  Ptr<IntrospectionReactor> const reactor = IntrospectionReactor::global();
  if (!reactor || !reactor->isReady()) return;
  // First of all: making a type asks for this again.
  module.isDone = true;
  for (TypeAccess const type : module.types) type();
  for (BaseRow const& base : module.foreignBases) base.type();
  // Types of other modules, which may describe themselves now but not between the events of this.
  forEachType(module, [](TypeRow const& type) {
    for (AttributeRow const& attribute : type.attributes) attribute.type();
  });
  forEachType(module, [](TypeRow const& type) {
    if (type.forcePointerAccess) type.forcePointerAccess();
  });
  for (BaseRow const& base : module.foreignBases) base.forcePointerAccess();
  append(firstDescribed, &Module::nextDescribed, module);
  describeModule(**reactor, module, &describe);
}

void loadModule(Module& module) {
  FirstFailure attempt;
  attempt([&] { initModule(module); });
  forEachType(module,
              [](TypeRow const& type) { MoxType::typeNodeIs(type.type(), type.qualifiedName); });
  if (module.isDone) {
    findAttributes(module);
  } else {
    append(firstWaiting, &Module::nextWaiting, module);
  }
  attempt.rethrow();
}

void initWaitingModules() {
  FirstFailure attempt;
  Module* module = std::exchange(firstWaiting, nullptr);
  while (module) {
    Module* const next = std::exchange(module->nextWaiting, nullptr);
    attempt([&] { initModule(*module); });
    if (module->isDone) {
      findAttributes(*module);
    } else {
      append(firstWaiting, &Module::nextWaiting, *module);
    }
    module = next;
  }
  attempt.rethrow();
}

void replayModules(IntrospectionReactor& reactor) {
  FirstFailure attempt;
  Module const* const latest = reactor.moxLatestModule();
  for (Module const* module = latest ? latest->nextDescribed : firstDescribed; module;
       module = module->nextDescribed) {
    attempt([&] { describeModule(reactor, *module, &replay); });
  }
  attempt.rethrow();
}

namespace {
void const* volatile forcedPointerAccess = nullptr;
}
void forcePointerAccessH(void const* accessor) { forcedPointerAccess = accessor; }

}  // namespace Mox
