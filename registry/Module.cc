#include "registry/Module.h"

namespace Mox {
namespace {

Module* firstWaiting = nullptr;

/// Own attributes of the kinds child and child collection.
void defineChild(IntrospectionReactor& reactor, MoxType& owner, AttributeRow const& row) {
  MoxAttr& attributes = owner.attributes();
  attributes.attrDel(row.name);
  Ptr<MoxType> const memberType(row.type());
  Ptr<MoxAttr> const keyAttribute =
      row.memberKey ? memberType->attributes().attr(row.memberKey) : Ptr<MoxAttr>();
  Ptr<MoxAttr> const made =
      attributes.attrIs(row.name, memberType, keyAttribute.get(), nullptr, row.flags, row.id);
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
  reactor.handleAttr(made);
  reactor.handleAttrContextExit();
}

void inheritAttributes(IntrospectionReactor& reactor, MoxType& type, MoxType const& parent) {
  for (MoxType::AttributeQ::IteratorConst it(&parent.attributeQ()); it; ++it) {
    Ptr<MoxAttr> const copy = it->attrCopy(&type);
    type.attributeQEnq(copy);
    reactor.handleAttr(copy);
    reactor.handleAttrContextExit();
  }
}

void describe(IntrospectionReactor& reactor, TypeRow const& row) {
  Ptr<MoxType> const type(row.type());
  Ptr<MoxType const> const parent(row.parent ? row.parent() : nullptr);
  reactor.handleType(Ptr<MoxType const>(type), parent);
  type->sizeIs(row.size);
  if (parent) {
    type->isEntityIs(true);
  } else {
    type->isValueIs(true);
    type->isEnumTypeIs(true);
  }
  type->hasGenericIfSupportIs(true);
  for (ArgumentRow const& argument : row.arguments) {
    type->constructorArgNameQEnq(argument.name);
    type->constructorArgTypeQEnq(argument.typeName);
  }
  if (parent) inheritAttributes(reactor, **type, **parent);
  for (AttributeRow const& attribute : row.attributes) {
    if (attribute.isInstantiating) {
      defineChild(reactor, **type, attribute);
    } else {
      reactor.defNoninstantiatingAttr(
          type, attribute.name, Ptr<MoxType>(attribute.type()),
          Ptr<MoxType>(attribute.keyType ? attribute.keyType() : nullptr), attribute.flags,
          attribute.introspectionFlags, attribute.id);
    }
  }
  if (!parent) type->valAttrIs(type->attributes().attr("value").get());
  reactor.handleScopeExit();
}

void findAttributes(Module const& module) {
  for (NameSpaceRow const& nameSpace : module.nameSpaces) {
    for (TypeRow const& type : nameSpace.types) {
      MoxAttr const** pointer = type.attributePointers;
      if (!pointer) continue;
      MoxAttr const& attributes = type.type()->attributes();
      *pointer++ = attributes.attr("moxNboAttrLogSaForMsgChannel").get();
      for (AttributeRow const& attribute : type.attributes)
        *pointer++ = attributes.attr(attribute.name).get();
    }
  }
}

}  // namespace

void initModule(Module& module) {
  if (module.isDone) return;
  Ptr<IntrospectionReactor> const reactor = IntrospectionReactor::global();
  if (!reactor || !reactor->isReady()) return;
  // First of all: making a type asks for this again.
  module.isDone = true;
  for (TypeAccess const type : module.types) type();
  for (BaseRow const& base : module.foreignBases) base.type();
  for (NameSpaceRow const& nameSpace : module.nameSpaces) {
    for (TypeRow const& type : nameSpace.types) {
      if (type.forcePointerAccess) type.forcePointerAccess();
    }
  }
  for (BaseRow const& base : module.foreignBases) base.forcePointerAccess();
  for (NameSpaceRow const& nameSpace : module.nameSpaces) {
    for (char const* const name : nameSpace.names) reactor->handleNameSpace(name);
    for (TypeRow const& type : nameSpace.types) describe(**reactor, type);
    for (std::size_t i = 0; i < nameSpace.names.count; ++i) reactor->handleScopeExit();
  }
}

void loadModule(Module& module) {
  for (NameSpaceRow const& nameSpace : module.nameSpaces) {
    for (TypeRow const& type : nameSpace.types) {
      MoxType::typeNodeIs(type.type(), type.qualifiedName);
    }
  }
  if (module.isDone) {
    findAttributes(module);
  } else {
    module.nextWaiting = firstWaiting;
    firstWaiting = &module;
  }
}

void initWaitingModules() {
  // A module stands on those loaded before it.
  Module* inOrder = nullptr;
  while (Module* const module = firstWaiting) {
    firstWaiting = module->nextWaiting;
    module->nextWaiting = inOrder;
    inOrder = module;
  }
  while (Module* const module = inOrder) {
    inOrder = module->nextWaiting;
    initModule(*module);
    findAttributes(*module);
  }
}

namespace {
void const* volatile forcedPointerAccess = nullptr;
}
void forcePointerAccessH(void const* accessor) { forcedPointerAccess = accessor; }

}  // namespace Mox
