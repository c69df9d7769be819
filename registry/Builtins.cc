// The types that every module stands on: builtins, texts, and the bases of all entities.
#include "registry/IntrospectionReactor.h"
#include "registry/ValueType.h"

namespace Mox {
namespace {

MoxType* newBaseType(char const* name, char const* qualifiedName, MoxType* base) {
  auto* const type = new MoxType(name, nullptr, base, {});
  type->referencesLeak();
  if (base) base->derivedTypeQEnq(Ptr<MoxType>(type));
  MoxType::typeNodeIs(type, qualifiedName);
  return type;
}

/// What all entities have. Read only, but for the name of those that are made with one.
constexpr AttributeRow entityAttributes[] = {
    {2, "name", AttributeKind::constructorValue, {0x00220109, 0x40000400}, 2, &typeOf<Name>},
    {3, "parent", AttributeKind::system, {0x08220001, 0x00000400}, 0, &typeOf<Entity>},
    {4, "parentAttrId", AttributeKind::system, {0x00220001, 0x00000400}, 0, &typeOf<unsigned int>},
    {5, "fullName", AttributeKind::system, {0x00220001, 0x00000400}, 0, &typeOf<String8>},
    {6, "version", AttributeKind::system, {0x00220001, 0x00000400}, 0, &typeOf<unsigned int>},
    {7, "readCount", AttributeKind::system, {0x00220001, 0x00000400}, 0, &typeOf<unsigned int>},
    {8, "entityFlags", AttributeKind::system, {0x00220001, 0x00000400}, 0, &typeOf<unsigned int>},
    {0x99,
     "moxNboAttrLogSaForMsgChannel",
     AttributeKind::interface,
     {0x00022001, 0x00000400},
     8,
     &typeOf<PtrInterface>},
};

}  // namespace

#define MOX_BUILTIN(T, name)                                  \
  template <>                                                 \
  MoxType* Builtin<T>::_fwkType() {                           \
    static MoxType* const type = newValueType<T>(name, name); \
    return type;                                              \
  }
MOX_BUILTIN(bool, "bool")
MOX_BUILTIN(unsigned char, "U8")
MOX_BUILTIN(unsigned short, "U16")
MOX_BUILTIN(unsigned int, "U32")
MOX_BUILTIN(unsigned long long, "U64")
MOX_BUILTIN(int, "int")
MOX_BUILTIN(double, "double")
MOX_BUILTIN(void*, "void*")
MOX_BUILTIN(String8, "String8")
#undef MOX_BUILTIN

MoxType* Name::_fwkType() {
  static MoxType* const type = newValueType<Name>("Name", "Mox::Name");
  return type;
}

MoxType* PtrInterface::_fwkType() {
  static MoxType* const type = newBaseType("PtrInterface", "Mox::PtrInterface", nullptr);
  return type;
}

MoxType* Entity::_fwkType() {
  static MoxType* type = nullptr;
  if (type) return type;
  type = newBaseType("Entity", "Mox::Entity", PtrInterface::_fwkType());
  type->sizeIs(sizeof(Entity));
  type->isEntityIs(true);
  type->hasGenericIfSupportIs(true);
  // Modules describe the copies that their types inherit to the reactor.
  for (AttributeRow const& row : entityAttributes) {
    Ptr<MoxAttr> const attribute = type->attributes().attrIs(
        row.name, Ptr<MoxType>(row.type()), nullptr, nullptr, {row.flags[0], row.flags[1]}, row.id);
    attribute->rowIs(row);
    attribute->attrIntrospectionFlagsIs(row.introspectionFlags);
    type->attributeQEnq(attribute);
  }
  return type;
}

MoxType* MoxType::_fwkType() {
  static MoxType* const type = newBaseType("MoxType", "Mox::MoxType", Entity::_fwkType());
  return type;
}
MoxType const* MoxType::fwkType() const { return _fwkType(); }

}  // namespace Mox
