// The run-time type of Mox::Dir and its row.
#include "generic/DirGeneric.h"

#include "generic/Generated.h"
#include "registry/MoxType.h"

namespace Mox {
namespace {

constexpr ArgumentRow entryArguments[] = {{"name", "Mox::Name"}, {"target", "Mox::Entity"}};
constexpr GenericArgumentType entryArgumentTypes[] = {{&typeOf<Name>, false},
                                                      {&typeOf<Entity>, true}};
constexpr AttributeRow entryRow{.id = Dir::entryId,
                                .name = "entry",
                                .kind = AttributeKind::childCollection,
                                .flags = {0x09a20143, 0x11000400},
                                .introspectionFlags = 0x22,
                                .type = &typeOf<Entity>,
                                .doc = "The entities of the directory, by name.",
                                .keyType = &typeOf<Name>,
                                .memberKey = "name",
                                .arguments = entryArguments};

class DirType final : public MoxType {
 public:
  DirType() : MoxType("Dir", nullptr, Entity::_fwkType(), {}) {
    sizeIs(sizeof(Dir));
    isEntityIs(true);
    hasGenericIfSupportIs(true);
    constructorArgNameQEnq("name");
    constructorArgTypeQEnq("Mox::Name");
    for (AttributeQ::IteratorConst at(&Entity::_fwkType()->attributeQ()); at; ++at) {
      attributeQEnq(at->attrCopy(this));
    }
    MoxAttr::AttrFlags const flags{entryRow.flags[0], entryRow.flags[1]};
    Ptr<MoxAttr> const entry = attributes().attrIs(entryRow.name, Ptr<MoxType>(entryRow.type()),
                                                   nullptr, nullptr, flags, entryRow.id);
    entry->rowIs(entryRow);
    entry->attrKeyTypeIs(Ptr<MoxType>(entryRow.keyType()));
    entry->attrKeyArgIs(entryRow.memberKey);
    entry->attrOrderedIs(false);
    entry->attrIntrospectionFlagsIs(entryRow.introspectionFlags);
    for (ArgumentRow const& argument : entryRow.arguments) {
      entry->constructorArgNameQEnq(argument.name);
      entry->constructorArgTypeQEnq(argument.typeName);
    }
    attributeQEnq(entry);
    typeNodeIs(this, "Mox::Dir");
    referencesLeak();
    Entity::_fwkType()->derivedTypeQEnq(Ptr<MoxType>(this));
  }
  using MoxType::genericIf;
  Ptr<GenericIf> genericIf_(PtrInterface* instance, bool isConst) const override {
    return Dir::GenericIf_::make(Ptr<Dir>(dynamic_cast<Dir*>(instance)), isConst);
  }
};

}  // namespace

MoxType* Dir::_fwkType() {
  static MoxType* const type = new DirType;
  return type;
}

GenericRows const& Dir::GenericIf_::GenericIf_Adapter_::moxRows() {
  static constexpr GenericRow rows[] = {[] {
    GenericRow row =
        generic::collectionRow<&Dir::entries_, &Dir::entryTarget, &Dir::entryDel,
                               &GenericIf_Adapter_::entryKey_, &GenericIf_Adapter_::entryKeys_>();
    row.attribute = &entryRow;
    row.argumentTypes = entryArgumentTypes;
    row.make = [](Entity& dir, void* const* arguments) {
      auto const made = static_cast<Dir&>(dir).entryIs(
          generic::unwrapped<Name>(arguments[0]), generic::unwrapped<Ptr<Entity>>(arguments[1]));
      return made ? made->target() : Ptr<Entity>();
    };
    row.memberValue = [](PtrInterface& member, bool isConst) {
      return generic::wrapped(static_cast<Entry&>(member).target(), isConst);
    };
    return row;
  }()};
  static GenericRows const table{rows, nullptr, nullptr};
  return table;
}

Dir::GenericIf_::GenericIf_(Ptr<Dir> const& entity, bool isConst) : GenericIfOf(isConst) {
  bind(this, entity);
}
Dir::GenericIf_::~GenericIf_() = default;
GenericRows const& Dir::GenericIf_::moxRows() { return GenericIf_Adapter_::moxRows(); }

Ptr<Dir::GenericIf_::GenericIf_Adapter_> Dir::GenericIf_::GenericIf_Adapter_Is(
    Ptr<Dir> const& entity, Ptr<GenericIf_> const& reactor) {
  Ptr<GenericIf_Adapter_> const made(new GenericIf_Adapter_(entity, reactor));
  made->hasNotificationActiveIs(true);
  return made;
}

Dir::GenericIf_::GenericIf_Adapter_::GenericIf_Adapter_(Ptr<Dir> const& entity,
                                                        Ptr<GenericIf_> const& reactor)
    : GenericIfAdapter(entity, reactor.get()) {}
Dir::GenericIf_::GenericIf_Adapter_::~GenericIf_Adapter_() = default;
void Dir::GenericIf_::GenericIf_Adapter_::onEntry(Name key) {
  if (Ptr<GenericIf_> const held = reactorAs<GenericIf_>()) held->onEntry(key);
}
void Dir::GenericIf_::GenericIf_Adapter_::onEntry() {
  if (Ptr<GenericIf_> const held = reactorAs<GenericIf_>()) held->onEntry();
}

}  // namespace Mox
