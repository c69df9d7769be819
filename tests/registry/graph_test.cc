// The types at run time. For faults of the graph (against the attribute table), of the order and
// the completeness of the reactor's events whoever asks first, whenever the reactor comes and
// whatever it throws, and of what other modules do to it.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "Greenhouse.h"
#include "InvArad.h"
#include "registry/IntrospectionReactor.h"

namespace {

using Mox::MoxAttr;
using Mox::MoxType;
using Mox::Name;
using Mox::Ptr;

std::string text(Mox::String8 const& value) { return {value.charPtr(), value.length()}; }

std::vector<std::string> attributeTable() {
  std::ifstream in(SOURCE_DIR "/tests/moxc/schema_table.golden");
  std::vector<std::string> rows;
  for (std::string row; std::getline(in, row);) {
    if (!row.empty() && row[0] != '#') rows.push_back(row);
  }
  return rows;
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
  auto const& type = typeNamed("Inventory::Arad::SerdesCoreType");
  EXPECT_TRUE(type.isValue() && type.isEnumType() && type.hasGenericIfSupport());
  EXPECT_FALSE(type.isEntity() || type.baseType());
  EXPECT_EQ(type.size(), 4u);
  std::string rows;
  for (MoxType::AttributeQ::IteratorConst it(&type.attributeQ()); it; ++it) {
    EXPECT_EQ(it->type(), &type);
    rows += text(it->name()) + " " + std::to_string(it->id()) + " " + kindOf(**it) + "\n";
  }
  EXPECT_EQ(rows,
            "unknownCore 0 enumerator\nwarpCore 1 enumerator\nfalconCore 2 enumerator\n"
            "eagleCore 3 enumerator\nvalue 1 value\n");
  EXPECT_EQ(text(type.valAttr()->name()), "value");
}

TEST(TypeGraph, DocsDefaultsAndRangesComeFromTheSchema) {
  struct Case {
    char const* type;
    char const* attribute;
    char const* defaultText;
    int argument;
    char const* doc;
  };
  Case const cases[] = {
      {"Greenhouse::House", "temperature", "20.0", -1, "Degrees Celsius."},
      {"Greenhouse::Bed", "id", "", 0, ""},
      {"Greenhouse::Bed", "crop", "", 1, ""},
      {"Greenhouse::Bed", "watering", "dry", -1, ""},
      {"Greenhouse::Station", "humidity", "", -1, ""},
      {"Inventory::Arad::NifSerdes", "txSerdesId", "id", -1,
       "Lane that transmits for this one; the lane itself unless remapped."},
      {"Inventory::Arad::Qsgmii", "description", "\"\"", -1, nullptr},
      {"Inventory::Arad::Arad", "fapId", "", 0, nullptr},
  };
  for (auto const& [type, name, defaultText, argument, doc] : cases) {
    auto const attribute = typeNamed(type).attributes().attr(name);
    ASSERT_TRUE(attribute && attribute->row()) << name;
    EXPECT_STREQ(attribute->row()->defaultText, defaultText) << name;
    EXPECT_EQ(attribute->row()->argument, argument) << name;
    if (doc) {
      EXPECT_STREQ(attribute->doc(), doc);
    }
  }
  EXPECT_STREQ(typeNamed("Greenhouse::Bed").doc(), "One plant bed.");
  EXPECT_STREQ(typeNamed("Greenhouse::BedId").doc(), "Place of a bed in its house.");
  Mox::ValueRange const& range = *typeNamed("Hardware::Sand::AradStatsSerdesId").range();
  EXPECT_TRUE(range.least == 28 && range.largest == 32 && range.hasNull);
  EXPECT_FALSE(typeNamed("Hardware::VesperAccelId").range()->hasNull);
  EXPECT_FALSE(typeNamed("Greenhouse::Humidity").range());
}

TEST(TypeGraph, TypesKnowTheirRelationsAndBindWhatTheyInherit) {
  auto* const arad = Inventory::Arad::Arad::_fwkType();
  auto* const fapBase = Inventory::Sand::FapBase::_fwkType();
  EXPECT_EQ(arad->size(), sizeof(Inventory::Arad::Arad));
  EXPECT_TRUE(arad->isEntity() && arad->hasGenericIfSupport());
  EXPECT_FALSE(arad->isValue() || arad->isEnumType() || arad->isRootType());
  EXPECT_TRUE(typeNamed("Inventory::Arad::AradSlice").isRootType());
  std::string chain;
  for (MoxType const* at = arad; at; at = at->baseType()) chain += text(at->name()) + " ";
  EXPECT_EQ(chain, "Arad FapBase ComponentBase Entity PtrInterface ");
  // Each derived type once, whoever asked for it how often; each attribute that holds a block once.
  std::multiset<MoxType*> derived;
  for (MoxType::DerivedTypeQ::IteratorConst it(&Mox::Entity::_fwkType()->derivedTypeQ()); it; ++it)
    derived.insert(*it);
  EXPECT_EQ(derived.count(Inventory::Arad::Qsgmii::_fwkType()), 1u);
  EXPECT_EQ(derived.count(arad), 0u);
  auto const& referring = Inventory::Arad::Qsgmii::_fwkType()->referringAttrQ();
  ASSERT_EQ(referring.size(), 1u);
  EXPECT_EQ(text(referring.head()->member()->name()), "qsgmii");

  std::string copied, inherited;
  for (MoxType::AttributeQ::IteratorConst it(&fapBase->attributeQ()); it; ++it) {
    // Each type has its own.
    if (it->name() != "moxHasAttrLogInterface") copied += text(it->name()) + " ";
  }
  for (MoxType::AttributeQ::IteratorConst it(&arad->attributeQ()); it; ++it) {
    EXPECT_EQ(it->owner(), arad);
    EXPECT_EQ(arad->attr(it->id()), *it) << "ids are unique in a type";
    EXPECT_EQ(arad->attributes().attr(it->name()).get(), *it);
    if (!isOwn(**it)) inherited += text(it->name()) + " ";
  }
  EXPECT_EQ(inherited, copied);
  auto const quartet = arad->attributes().attr("serdesQuartet");
  EXPECT_EQ(argumentText(quartet->constructorArgNameQ(), quartet->constructorArgTypeQ()),
            "(id Hardware::Sand::SerdesQuartetId)");
  EXPECT_FALSE(arad->attr(0x7fff) || arad->attributes().attr("noSuch"));
}

template <class T>
std::size_t pointersOf() {
  auto const& pointers = T::_Type::attributePointers;
  std::set<MoxAttr const*> const distinct(std::begin(pointers), std::end(pointers));
  EXPECT_EQ(distinct.size(), std::size(pointers));
  for (MoxAttr const* pointer : pointers)
    EXPECT_EQ(pointer ? pointer->owner() : nullptr, T::_fwkType());
  EXPECT_EQ(text(pointers[0]->name()), "moxNboAttrLogSaForMsgChannel");
  return distinct.size();
}

TEST(TypeGraph, TheProcessKeepsAPointerToEachAttribute) {
  using namespace Inventory::Arad;
  EXPECT_EQ(pointersOf<SocProperties>() + pointersOf<NifSerdes>() + pointersOf<Qsgmii>() +
                pointersOf<Xlge>() + pointersOf<Xlge2>() + pointersOf<Cge>() +
                pointersOf<EthPort>() + pointersOf<StatsSerdes>() + pointersOf<Arad>() +
                pointersOf<AradSlice>(),
            115u);
}

/// The events of a type's own description, made from its attributes.
std::string expectedTrace(MoxType const& type) {
  std::string trace;
  auto line = [&](std::size_t depth, std::string const& what) {
    trace += std::string(2 * depth, ' ') + what + "\n";
  };
  auto rowOf = [](MoxAttr const& attribute) {
    char row[128];
    std::snprintf(row, sizeof row, " 0x%x 0x%08x 0x%08x 0x%x ",
                  static_cast<unsigned int>(attribute.id()), attribute.flags().word0,
                  attribute.flags().word1, attribute.introspectionFlags());
    std::string out = text(attribute.name()) + row + text(attribute.type()->name());
    if (attribute.keyType()) out += " [" + text(attribute.keyType()->name()) + "]";
    return out;
  };
  MoxType const* const base = type.baseType();
  line(2, "type " + text(type.name()) + " : " + (base ? text(base->name()) : "none"));
  auto attribute = [&](MoxAttr const& at, std::string const& from) {
    bool const isDefined = from.empty() && !kindOf(at).starts_with("child");
    line(3, (isDefined ? "define " : "attribute ") + rowOf(at) + from);
    if (!isDefined) line(3, "end of attribute");
  };
  if (base) {
    for (MoxType::AttributeQ::IteratorConst it(&base->attributeQ()); it; ++it)
      attribute(**it, " of " + text(it->definer()->name()));
  }
  for (MoxType::AttributeQ::IteratorConst it(&type.attributeQ()); it; ++it) {
    if (isOwn(**it)) attribute(**it, "");
  }
  line(2, "end");
  return trace;
}

std::string outputOf(std::string const& command) {
  std::string out;
  FILE* const pipe = ::popen(command.c_str(), "r");
  std::array<char, 4096> bytes;
  for (std::size_t count; (count = std::fread(bytes.data(), 1, bytes.size(), pipe)) != 0;)
    out.append(bytes.data(), count);
  EXPECT_EQ(::pclose(pipe), 0) << command;
  return out;
}

TEST(Initialisation, IsDescribedAsOneNestedWholeWhoeverAsksFirst) {
  std::string expected = "namespace Inventory\n  namespace Arad\n";
  for (char const* name :
       {"AradManagedPhy", "SerdesCoreType", "SocProperties", "NifSerdes", "Qsgmii", "Xlge", "Xlge2",
        "Cge", "EthPort", "StatsSerdes", "Arad", "AradSlice"})
    expected += expectedTrace(typeNamed((std::string("Inventory::Arad::") + name).c_str()));
  expected += "  end\nend\n";
  std::string const first = outputOf("FIRST_TYPE=Qsgmii " FIRST_ASKED);
  ASSERT_TRUE(first.ends_with(expected)) << first;
  for (std::string const name : {"SerdesCoreType", "Arad", "AradSlice"}) {
    for (std::string const reactor : {"early", "late"}) {
      EXPECT_EQ(outputOf("REACTOR=" + reactor + " FIRST_TYPE=" + name + " " FIRST_ASKED),
                "first " + name + first.substr(first.find('\n')))
          << reactor;
    }
  }
}

/// Refuses the first module as its last name space ends.
class RefusingReactor : public Mox::RecordingReactor {
 public:
  void handleScopeExit() override {
    RecordingReactor::handleScopeExit();
    if (!trace().ends_with("\nend\n") || hasRefused_) return;
    hasRefused_ = true;
    throw Mox::RangeException("refused");
  }

 private:
  bool hasRefused_ = false;
};

/// A trace as a reactor gets it that is installed later: no attribute is defined, and inherited
/// ones that a type has replaced by its own are gone.
std::string replayed(std::string const& trace) {
  std::istringstream in(trace);
  std::string out;
  for (std::string line; std::getline(in, line);) {
    auto const at = line.find_first_not_of(' ');
    if (line.find("moxHasAttrLogInterface") != line.npos && line.find(" of ") != line.npos) {
      std::getline(in, line);
    } else if (line.compare(at, 7, "define ") != 0) {
      out += line + "\n";
    } else {
      out += line.replace(at, 6, "attribute") + "\n" + std::string(at, ' ') + "end of attribute\n";
    }
  }
  return out;
}

TEST(Initialisation, EveryReactorGetsEveryModuleOnce) {
  using Mox::IntrospectionReactor;
  using Mox::RecordingReactor;
  Ptr<IntrospectionReactor> const usual = IntrospectionReactor::global();
  auto const& trace = dynamic_cast<RecordingReactor const&>(**usual).trace();
  std::string const before = trace;
  Ptr<RecordingReactor> const late(new RecordingReactor);
  IntrospectionReactor::globalIs(late);
  EXPECT_EQ(late->trace(), replayed(before));
  EXPECT_EQ(Inventory::Arad::Qsgmii::_fwkType()->referringAttrQ().size(), 1u);

  // A module that is loaded now waits, and isn't lost behind those that the next reactor refuses.
  late->isReadyIs(false);
  void* const handle = ::dlopen(CIRCLE, RTLD_NOW);
  ASSERT_TRUE(handle) << ::dlerror();
  auto const& owner = typeNamed("Circle::Owner");
  auto const& member = typeNamed("Circle::Member");
  EXPECT_EQ(owner.attributeQ().size(), 0u);
  Ptr<RefusingReactor> const refusing(new RefusingReactor);
  EXPECT_THROW(IntrospectionReactor::globalIs(refusing), Mox::RangeException);
  EXPECT_NE(refusing->trace().find("namespace Greenhouse\n"), std::string::npos);
  EXPECT_NE(refusing->trace().find("type Member : Entity\n"), std::string::npos);

  // Each finds the key of the other's members and of its own.
  for (auto const& [type, name] :
       {std::pair(&owner, "member"), {&owner, "owner"}, {&member, "owner"}}) {
    auto const attribute = type->attributes().attr(name);
    ASSERT_TRUE(attribute && attribute->keyAttr()) << name;
    EXPECT_EQ(attribute->keyAttr()->owner(), attribute->type());
    EXPECT_EQ(text(attribute->keyAttr()->name()), "id");
  }

  // The one that was away gets what it missed, and nothing twice.
  IntrospectionReactor::globalIs(usual);
  usual->isReadyIs(true);
  ASSERT_TRUE(trace.starts_with(before));
  EXPECT_EQ(trace.substr(before.size()).find("namespace Circle\n"), 0u);
  EXPECT_EQ(trace.find("namespace Circle", before.size() + 1), std::string::npos);

  // Types outlive their library's last user.
  EXPECT_EQ(::dlclose(handle), 0);
  EXPECT_EQ(text(owner.fwkType()->name()), "MoxType");
  EXPECT_EQ(owner.attributes().attr("member")->type(), &member);
}

TEST(Initialisation, TwoModulesDontDisturbEachOther) {
  auto const& house = *Greenhouse::House::_fwkType();
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
  EXPECT_EQ(expected.size(), 320u);
  std::string const library = BINARY_DIR "/libInvArad.so";
  EXPECT_EQ(outputOf("objcopy -O binary --only-section=.mox.type " + library + " /dev/stdout"),
            expected);
  EXPECT_NE(outputOf("readelf -SW " + library + " | grep '[.]mox[.]type '").find(" WA  0   0 32\n"),
            std::string::npos);
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
  auto const reactor = Mox::IntrospectionReactor::global();
  Mox::AttributeId id = 0;
  for (char const* name : {"a", "b", "c", "a"}) {
    reactor->IntrospectionReactor::defNoninstantiatingAttr(
        type, name, Mox::Builtin<bool>::_fwkType(), nullptr, {1, 2}, 3, ++id);
  }
  EXPECT_EQ(text(type->attributeQDeq()->name()), "b");
  EXPECT_FALSE(type->attributeQDel(77));
  std::string queue;
  for (MoxType::AttributeQ::IteratorConst it(&type->attributeQ()); it; ++it) {
    EXPECT_EQ(type->attributeQIdx()[it->name()]->value(), it.key());
    EXPECT_EQ(type->attributes().attr(it->name()).get(), *it);
    queue += text(it->name()) + std::to_string(it->id()) + " ";
  }
  EXPECT_EQ(queue, "c3 a4 ");
  EXPECT_EQ(type->attributeQIdx().size(), 2u);
}

}  // namespace
