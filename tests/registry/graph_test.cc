// The types at run time: the whole graph against the attribute table, what the reactor heard of it,
// whoever asks first, and two modules in one process.
#include <elf.h>
#include <gtest/gtest.h>
#include <link.h>

#include <array>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <map>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "Greenhouse.h"
#include "InvArad.h"
#include "InvArad/AradSliceType.h"
#include "InvArad/AradType.h"
#include "InvArad/CgeType.h"
#include "InvArad/EthPortType.h"
#include "InvArad/NifSerdesType.h"
#include "InvArad/QsgmiiType.h"
#include "InvArad/SocPropertiesType.h"
#include "InvArad/StatsSerdesType.h"
#include "InvArad/Xlge2Type.h"
#include "InvArad/XlgeType.h"
#include "registry/IntrospectionReactor.h"

namespace {

using Mox::MoxAttr;
using Mox::MoxType;
using Mox::Name;
using Mox::Ptr;

std::string text(Mox::String8 const& value) { return {value.charPtr(), value.length()}; }

std::vector<std::string> lines(std::istream& in) {
  std::vector<std::string> out;
  for (std::string line; std::getline(in, line);) {
    if (!line.empty() && line[0] != '#') out.push_back(line);
  }
  return out;
}

std::vector<std::string> attributeTable() {
  std::ifstream in(SOURCE_DIR "/tests/moxc/schema_table.golden");
  return lines(in);
}

/// The kinds of the attribute table: flag words, and the introspection flags.
using Words = std::array<std::uint32_t, 3>;
std::map<Words, std::string> const kinds = {
    {{0x00020001, 0x40200400, 0x0}, "enumerator"},
    {{0x00022001, 0x00000400, 0x8}, "interface"},
    {{0x00020001, 0x00000400, 0x8}, "handler"},
    {{0x00200001, 0x00000400, 0x0}, "key"},
    {{0x00220109, 0x40000400, 0x2}, "constructor value"},
    {{0x08220109, 0x40000400, 0x2}, "constructor reference"},
    {{0x00220143, 0x01000400, 0x2}, "value"},
    {{0x08220143, 0x01000400, 0x2}, "reference"},
    {{0x08220143, 0x11000400, 0x2}, "child"},
    {{0x01a20143, 0x01000400, 0x2}, "value collection"},
    {{0x09a20143, 0x11000400, 0x22}, "child collection"},
};

std::string kindOf(MoxAttr const& attribute) {
  auto const found = kinds.find(
      {attribute.flags().word0, attribute.flags().word1, attribute.introspectionFlags()});
  return found == kinds.end() ? "?" : found->second;
}

/// A type as the table writes it: short in its own name space.
std::string typeText(MoxType const* type, std::string const& owner) {
  std::string const name = text(type->qualifiedName());
  std::string const space = owner.substr(0, owner.rfind("::") + 2);
  if (name == "Mox::Name") return "Name";
  return name.starts_with(space) && name.find("::", space.size()) == name.npos
             ? name.substr(space.size())
             : name;
}

std::string argumentText(Mox::TypeNameQ const& names, Mox::TypeNameQ const& types) {
  std::string out;
  EXPECT_EQ(names.size(), types.size());
  Mox::TypeNameQ::IteratorConst type(&types);
  for (Mox::TypeNameQ::IteratorConst name(&names); name; ++name, ++type) {
    std::string const typeName = text(type->name());
    EXPECT_NE(typeName, "Name");
    out += (out.empty() ? "" : ", ") + text(name->name()) + " " +
           (typeName == "Mox::Name" ? "Name" : typeName);
  }
  return "(" + out + ")";
}

bool isOwn(MoxAttr const& attribute) { return attribute.definer() == attribute.owner(); }

std::vector<std::string> described(MoxType const& type) {
  std::string const name = text(type.qualifiedName());
  std::vector<std::string> out = {
      name + " : " + text(type.baseType()->qualifiedName()) + " " +
      argumentText(type.constructorArgNameQ(), type.constructorArgTypeQ())};
  bool hasOwn = false;
  for (MoxType::AttributeQ::IteratorConst it(&type.attributeQ()); it; ++it) {
    if (!isOwn(**it)) {
      EXPECT_FALSE(hasOwn) << "inherited attributes come first";
      continue;
    }
    hasOwn = true;
    char id[16];
    std::snprintf(id, sizeof id, "0x%x", static_cast<unsigned int>(it->id()));
    std::string line =
        "  " + std::string(id) + " " + text(it->name()) + " : " + typeText(it->type(), name);
    if (it->keyType()) line += " [" + typeText(it->keyType(), name) + "]";
    line += " " + kindOf(**it);
    EXPECT_EQ(kindOf(**it), it->kindName());
    if (it->keyAttr()) {
      line += ", by " + text(it->keyAttr()->name());
      EXPECT_EQ(it->keyAttr()->owner(), it->type());
      EXPECT_EQ(it->keyArg(), it->keyAttr()->name());
      EXPECT_FALSE(it->isOrdered());
    }
    if (it->constructorArgNameQ().size() != 0)
      line += " " + argumentText(it->constructorArgNameQ(), it->constructorArgTypeQ());
    out.push_back(line);
  }
  return out;
}

MoxType const& typeNamed(char const* name) { return *MoxType::typeNode(Name(name)); }

TEST(TypeGraph, IsTheAttributeTable) {
  std::vector<std::string> made;
  for (char const* name : {"SocProperties", "NifSerdes", "Qsgmii", "Xlge", "Xlge2", "Cge",
                           "EthPort", "StatsSerdes", "Arad", "AradSlice"}) {
    auto const rows = described(typeNamed((std::string("Inventory::Arad::") + name).c_str()));
    made.insert(made.end(), rows.begin(), rows.end());
  }
  EXPECT_EQ(made, attributeTable());
}

TEST(TypeGraph, EnumerationsHaveTheirEnumeratorsAndTheirValue) {
  struct Case {
    MoxType* type;
    char const* name;
    std::vector<std::string> enumerators;
  };
  Case const cases[] = {
      {Inventory::Arad::_fwkType_AradManagedPhy(),
       "AradManagedPhy",
       {"unknown", "noPhy", "externallyManagedPhy", "bcm84328", "bcm84848", "bcm84858"}},
      {Inventory::Arad::_fwkType_SerdesCoreType(),
       "SerdesCoreType",
       {"unknownCore", "warpCore", "falconCore", "eagleCore"}},
  };
  for (auto const& [type, name, enumerators] : cases) {
    EXPECT_EQ(type->name(), name);
    EXPECT_EQ(type->baseType(), nullptr);
    EXPECT_TRUE(type->isValue() && type->isEnumType() && type->hasGenericIfSupport());
    EXPECT_FALSE(type->isEntity());
    EXPECT_EQ(type->size(), 4u);
    MoxType::AttributeQ::IteratorConst it(&type->attributeQ());
    Mox::AttributeId id = 0;
    for (std::string const& enumerator : enumerators) {
      EXPECT_EQ(text(it->name()), enumerator);
      EXPECT_EQ(it->id(), id++);
      EXPECT_EQ(kindOf(**it), "enumerator");
      ++it;
    }
    EXPECT_EQ(text(it->name()), "value");
    EXPECT_EQ(it->id(), 1);
    EXPECT_EQ(it->type(), type);
    EXPECT_EQ(*it, type->valAttr());
    EXPECT_FALSE(++it);
  }
}

TEST(TypeGraph, TypesKnowTheirKindSizeAndRelations) {
  auto const& arad = typeNamed("Inventory::Arad::Arad");
  EXPECT_EQ(arad.size(), sizeof(Inventory::Arad::Arad));
  EXPECT_TRUE(arad.isEntity() && arad.hasGenericIfSupport());
  EXPECT_FALSE(arad.isValue() || arad.isEnumType() || arad.isRootType());
  EXPECT_TRUE(typeNamed("Inventory::Arad::AradSlice").isRootType());
  std::vector<std::string> chain;
  for (MoxType const* at = &arad; at; at = at->baseType()) chain.push_back(text(at->name()));
  EXPECT_EQ(chain, (std::vector<std::string>{"Arad", "FapBase", "ComponentBase", "Entity",
                                             "PtrInterface"}));
  // Each derived type once, whoever asked for it how often.
  std::map<MoxType*, int> derived;
  for (MoxType::DerivedTypeQ::IteratorConst it(&Mox::Entity::_fwkType()->derivedTypeQ()); it; ++it)
    ++derived[*it];
  EXPECT_EQ(derived[Inventory::Arad::Qsgmii::_fwkType()], 1);
  EXPECT_EQ(derived[Inventory::Arad::Arad::_fwkType()], 0);
  EXPECT_EQ(Inventory::Sand::FapBase::_fwkType()->derivedTypeQ().size(), 1u);
  // Every attribute that holds a block, inherited or not.
  auto const& referring = Inventory::Arad::Qsgmii::_fwkType()->referringAttrQ();
  ASSERT_EQ(referring.size(), 1u);
  EXPECT_EQ(text(referring.head()->member()->name()), "qsgmii");
}

TEST(TypeGraph, InheritedAttributesAreCopiesBoundToTheType) {
  auto* const arad = Inventory::Arad::Arad::_fwkType();
  auto* const fapBase = Inventory::Sand::FapBase::_fwkType();
  std::vector<std::string> copied, inherited;
  for (MoxType::AttributeQ::IteratorConst it(&fapBase->attributeQ()); it; ++it) {
    if (it->name() == "moxHasAttrLogInterface") continue;  // Each type has its own.
    copied.push_back(text(it->name()));
  }
  for (MoxType::AttributeQ::IteratorConst it(&arad->attributeQ()); it; ++it) {
    EXPECT_EQ(it->owner(), arad);
    EXPECT_EQ(arad->attr(it->id()), *it) << "ids are unique in a type";
    EXPECT_EQ(arad->attributes().attr(it->name()).get(), *it);
    if (!isOwn(**it)) inherited.push_back(text(it->name()));
  }
  EXPECT_EQ(inherited, copied);
  EXPECT_NE(arad->attributes().attr("numCores").get(),
            fapBase->attributes().attr("numCores").get());
  auto const quartet = arad->attributes().attr("serdesQuartet");
  EXPECT_EQ(argumentText(quartet->constructorArgNameQ(), quartet->constructorArgTypeQ()),
            "(id Hardware::Sand::SerdesQuartetId)");
  EXPECT_EQ(arad->attr(0x7fff), nullptr);
  EXPECT_FALSE(arad->attributes().attr("noSuch"));
}

TEST(TypeGraph, TheProcessKeepsAPointerToEachAttribute) {
  using namespace Inventory::Arad;
  std::size_t count = 0;
  auto expectAll = [&](MoxType* type, auto const& pointers) {
    std::set<MoxAttr const*> distinct;
    for (MoxAttr const* pointer : pointers) {
      ASSERT_NE(pointer, nullptr);
      EXPECT_EQ(pointer->owner(), type);
      distinct.insert(pointer);
    }
    EXPECT_EQ(text(pointers[0]->name()), "moxNboAttrLogSaForMsgChannel");
    EXPECT_EQ(distinct.size(), std::size(pointers));
    count += std::size(pointers);
  };
  expectAll(SocProperties::_fwkType(), SocProperties::_Type::attributePointers);
  expectAll(NifSerdes::_fwkType(), NifSerdes::_Type::attributePointers);
  expectAll(Qsgmii::_fwkType(), Qsgmii::_Type::attributePointers);
  expectAll(Xlge::_fwkType(), Xlge::_Type::attributePointers);
  expectAll(Xlge2::_fwkType(), Xlge2::_Type::attributePointers);
  expectAll(Cge::_fwkType(), Cge::_Type::attributePointers);
  expectAll(EthPort::_fwkType(), EthPort::_Type::attributePointers);
  expectAll(StatsSerdes::_fwkType(), StatsSerdes::_Type::attributePointers);
  expectAll(Arad::_fwkType(), Arad::_Type::attributePointers);
  expectAll(AradSlice::_fwkType(), AradSlice::_Type::attributePointers);
  EXPECT_EQ(count, 115u);
}

/// Everything that the reactor hears of a module, made from the attribute table.
class ExpectedTrace {
 public:
  std::string operator()(std::vector<MoxType const*> const& types) {
    for (MoxType const* type : types) add(*type);
    return trace_;
  }

 private:
  void add(MoxType const& type) {
    MoxType const* const base = type.baseType();
    line(2, "type " + text(type.name()) + " : " + (base ? text(base->name()) : "none"));
    if (base) {
      for (MoxType::AttributeQ::IteratorConst it(&base->attributeQ()); it; ++it) {
        line(3, "attribute " + rowOf(**it) + " of " + text(it->definer()->name()));
        line(3, "end of attribute");
      }
    }
    for (MoxType::AttributeQ::IteratorConst it(&type.attributeQ()); it; ++it) {
      if (!isOwn(**it)) continue;
      bool const isChild = kindOf(**it).starts_with("child");
      line(3, (isChild ? "attribute " : "define ") + rowOf(**it));
      if (isChild) line(3, "end of attribute");
    }
    line(2, "end");
  }
  static std::string rowOf(MoxAttr const& attribute) {
    char row[128];
    std::snprintf(row, sizeof row, " 0x%x 0x%08x 0x%08x 0x%x ",
                  static_cast<unsigned int>(attribute.id()), attribute.flags().word0,
                  attribute.flags().word1, attribute.introspectionFlags());
    std::string out = text(attribute.name()) + row + text(attribute.type()->name());
    if (attribute.keyType()) out += " [" + text(attribute.keyType()->name()) + "]";
    return out;
  }
  void line(std::size_t depth, std::string const& what) {
    trace_ += std::string(2 * depth, ' ') + what + "\n";
  }

  std::string trace_;
};

std::string outputOf(std::string const& command, int expectedCode = 0) {
  std::string out;
  FILE* const pipe = ::popen(command.c_str(), "r");
  std::array<char, 4096> bytes;
  for (std::size_t count; (count = std::fread(bytes.data(), 1, bytes.size(), pipe)) != 0;)
    out.append(bytes.data(), count);
  EXPECT_EQ(::pclose(pipe), expectedCode << 8) << command;
  return out;
}

char const* const typesInOrder[] = {
    "AradManagedPhy", "SerdesCoreType", "SocProperties", "NifSerdes",
    "Qsgmii",         "Xlge",           "Xlge2",         "Cge",
    "EthPort",        "StatsSerdes",    "Arad",          "AradSlice"};

TEST(Initialisation, IsHeardAsOneNestedWholeWhoeverAsksFirst) {
  std::vector<MoxType const*> types;
  for (char const* name : typesInOrder)
    types.push_back(&typeNamed((std::string("Inventory::Arad::") + name).c_str()));
  std::string const expected =
      "namespace Inventory\n  namespace Arad\n" + ExpectedTrace()(types) + "  end\nend\n";
  std::string const siblings = outputOf("FIRST_TYPE=Qsgmii " FIRST_ASKED);
  std::string const from = siblings.substr(siblings.find("namespace"));
  ASSERT_TRUE(from.ends_with(expected)) << from;
  for (char const* name : typesInOrder) {
    for (char const* reactor : {"early", "late"}) {
      std::string const told =
          outputOf(std::string("REACTOR=") + reactor + " FIRST_TYPE=" + name + " " FIRST_ASKED);
      EXPECT_EQ(told, std::string("first ") + name + siblings.substr(siblings.find('\n')))
          << reactor;
    }
  }
}

TEST(Initialisation, ASecondCallDoesNothing) {
  auto* const reactor =
      dynamic_cast<Mox::RecordingReactor*>(Mox::IntrospectionReactor::global().get());
  std::string const before = reactor->trace();
  EXPECT_EQ(Inventory::Arad::Qsgmii::_fwkType(), Inventory::Arad::Qsgmii::_fwkType());
  reactor->isReadyIs(true);
  EXPECT_EQ(reactor->trace(), before);
}

TEST(Initialisation, TwoModulesDontDisturbEachOther) {
  auto const& house = *Greenhouse::House::_fwkType();
  EXPECT_EQ(text(house.qualifiedName()), "Greenhouse::House");
  EXPECT_EQ(described(house),
            (std::vector<std::string>{
                "Greenhouse::House : Mox::Entity (name Name)",
                "  0x9a moxHasAttrLogInterface : bool interface",
                "  0x102 temperature : double value",
                "  0x103 station : Station child (name Name)",
                "  0x104 bed : Bed [BedId] child collection, by id (id BedId, crop String8)",
                "  0x105 note : String8 [String8] value collection",
            }));
  EXPECT_EQ(Mox::Entity::_fwkType()->attr(0x102), nullptr);
  std::set<MoxType const*> known;
  for (MoxType const* type : MoxType::typeNodes()) {
    EXPECT_EQ(MoxType::typeNode(type->qualifiedName()), type);
    known.insert(type);
  }
  EXPECT_TRUE(known.contains(&house) && known.contains(Mox::Entity::_fwkType()));
  // One graph holds both, and the first stands as before.
  auto* const reactor =
      dynamic_cast<Mox::RecordingReactor*>(Mox::IntrospectionReactor::global().get());
  EXPECT_NE(reactor->trace().find("namespace Greenhouse\n  type Watering : none\n"),
            std::string::npos);
  EXPECT_EQ(described(typeNamed("Inventory::Arad::Qsgmii")).size(), 6u);
}

/// The section of a loaded library's file, and its alignment.
std::string sectionOf(std::string const& file, char const* wanted, std::uint64_t& alignment,
                      std::uint64_t& flags) {
  std::ifstream in(file, std::ios::binary);
  std::string const bytes((std::istreambuf_iterator<char>(in)), {});
  ElfW(Ehdr) header;
  std::memcpy(&header, bytes.data(), sizeof header);
  auto section = [&](unsigned int index) {
    ElfW(Shdr) out;
    std::memcpy(&out, bytes.data() + header.e_shoff + index * sizeof out, sizeof out);
    return out;
  };
  auto const names = section(header.e_shstrndx);
  for (unsigned int i = 0; i < header.e_shnum; ++i) {
    auto const at = section(i);
    if (std::strcmp(bytes.data() + names.sh_offset + at.sh_name, wanted) != 0) continue;
    alignment = at.sh_addralign;
    flags = at.sh_flags;
    return bytes.substr(at.sh_offset, at.sh_size);
  }
  return {};
}

TEST(TypeSection, HoldsTheQualifiedNamesAndNothingElse) {
#ifdef __clang__
#if __has_feature(address_sanitizer)
  GTEST_SKIP() << "Clang's address sanitizer sets each name apart from the next";
#endif
#endif
  std::string expected;
  for (char const* name : {"AradSlice", "Arad", "StatsSerdes", "EthPort", "Cge", "Xlge2", "Xlge",
                           "Qsgmii", "NifSerdes", "SocProperties"})
    expected += std::string("Inventory::Arad::") + name + '\0';
  expected.resize((expected.size() + 31) / 32 * 32);
  for (char const* name : {"SerdesCoreType", "AradManagedPhy"})
    expected += std::string("Inventory::Arad::") + name + '\0';
  std::uint64_t alignment = 0, flags = 0;
  EXPECT_EQ(sectionOf(BINARY_DIR "/libInvArad.so", ".mox.type", alignment, flags), expected);
  EXPECT_EQ(expected.size(), 320u);
  EXPECT_EQ(alignment, 32u);
  EXPECT_TRUE(flags & SHF_WRITE);
}

// The order of a type's virtual operations.

template <class Operation>
int slot(Operation operation) {
  std::uintptr_t word = 0;
  std::memcpy(&word, &operation, sizeof word);
  return static_cast<int>(word / sizeof(void*));
}

#define SLOT(x) slot(&MoxType::x)
#define SLOT_OF(x, Result, ...) slot(static_cast<Result(MoxType::*) __VA_ARGS__>(&MoxType::x))
/// Of a queue: deletion by key and by iterator, then the four others.
#define QUEUE_SLOTS(q, Member, Queue)                                                             \
  SLOT_OF(q##Del, Ptr<Member>, (unsigned int)),                                                   \
      SLOT_OF(q##Del, Ptr<Member>, (Queue::IteratorConst const&)), SLOT(q##Notify), SLOT(q##Enq), \
      SLOT(q##Deq), SLOT(q##Is)

TEST(TypeSlots, StandInTheirOrder) {
  using In = Ptr<Mox::NboAttrLog::In> const&;
  using Generic = Ptr<Mox::GenericIf>;
  int const slots[] = {
      SLOT_OF(newEntity, Ptr<Mox::Entity>, (Name const&, Mox::Dir*) const),
      SLOT_OF(newEntity, Ptr<Mox::Entity>,
              (In, Mox::PtrInterface::NotifieeConst::Mox_BitSet, unsigned int, Mox::PtrInterface*)
                  const),
      SLOT(childAttrLogIs),
      SLOT_OF(genericIf, Generic, (void const*, bool) const),
      SLOT_OF(genericIf, Generic, (Mox::GenericIf const*, bool) const),
      SLOT_OF(genericIf, Generic, (Mox::String8 const&, bool) const),
      SLOT(genericIf_),
      SLOT(typeFlagsDoEmbeddedWriteConstraints),
      SLOT_OF(nestedTypeDel, Ptr<MoxType>, (Name const&)),
      SLOT_OF(nestedTypeDel, Ptr<MoxType>, (MoxType::NestedTypes::Iterator const&)),
      SLOT(nestedTypeNotify),
      SLOT(nestedTypeIs),
      SLOT(type_AttrIs),
      QUEUE_SLOTS(referringAttrQ, MoxAttr, MoxType::ReferringAttrQ),
      QUEUE_SLOTS(derivedTypeQ, MoxType, MoxType::DerivedTypeQ),
      SLOT(typeFlagsIs),
      SLOT(sizeIs),
      SLOT(valAttrIs),
      SLOT(defaultCollectionIs),
      QUEUE_SLOTS(attributeQ, MoxAttr, MoxType::AttributeQ),
      SLOT_OF(attributeQIdxDel, bool, (Name const&)),
      SLOT_OF(attributeQIdxDel, bool, (MoxType::AttributeQIdx::Iterator const&)),
      SLOT(attributeQIdxNotify),
      SLOT(attributeQIdxIs),
      QUEUE_SLOTS(constructorArgNameQ, Mox::TypeName, Mox::TypeNameQ),
      QUEUE_SLOTS(constructorArgTypeQ, Mox::TypeName, Mox::TypeNameQ),
  };
  ASSERT_EQ(std::size(slots), 51u);
  for (int i = 0; i < 51; ++i) EXPECT_EQ(slots[i], 25 + i) << "operation " << 26 + i;
}

TEST(TypeQueues, KeepOneAttributeOfAName) {
  Ptr<MoxType> const type(new MoxType("T", nullptr, nullptr, {}));
  auto define = [&](char const* name, Mox::AttributeId id) {
    return Mox::IntrospectionReactor::global()->IntrospectionReactor::defNoninstantiatingAttr(
        type, name, Mox::Builtin<bool>::_fwkType(), nullptr, {1, 2}, 3, id);
  };
  auto queue = [&] {
    std::string out;
    for (MoxType::AttributeQ::IteratorConst it(&type->attributeQ()); it; ++it) {
      EXPECT_EQ(type->attributeQIdx()[it->name()]->value(), it.key());
      EXPECT_EQ(type->attributes().attr(it->name()).get(), *it);
      out += text(it->name()) + std::to_string(it->id()) + " ";
    }
    EXPECT_EQ(type->attributeQIdx().size(), type->attributeQ().size());
    return out;
  };
  define("a", 1);
  define("b", 2);
  define("c", 3);
  define("a", 4);
  EXPECT_EQ(queue(), "b2 c3 a4 ");
  EXPECT_EQ(text(type->attributeQDeq()->name()), "b");
  EXPECT_EQ(queue(), "c3 a4 ");
  MoxType::AttributeQ::IteratorConst it(&type->attributeQ());
  EXPECT_EQ(type->attributeQDel(it)->id(), 3);
  EXPECT_FALSE(type->attributeQDel(77));
  define("d", 5);
  EXPECT_EQ(queue(), "a4 d5 ");
  EXPECT_EQ(type->attributes().attr("d")->introspectionFlags(), 3u);
}

}  // namespace
