// Every attribute of every type through the generic interface: the same effects as typed access,
// and for everything that can't be, the one failure that comes first, with nothing touched.
#include <gtest/gtest.h>

#include <memory>

#include "generic/Text.h"
#include "tests/attrlog/Mirror.h"
#include "tests/generic/Typed.h"
#include "tests/model/SchemaTable.h"

namespace {

using Mox::AttributeId;
using Mox::Entity;
using Mox::GenericIf;
using Mox::MoxAttr;
using Mox::MoxType;
using Mox::Ptr;
using Mox::String8;
using Op = GenericIf::AttributeOp;
using schemaTable::samples;
using schemaTable::text;
using typedAccess::Texts;

/// A slice with one entity of every type that can stand in one.
Ptr<Inventory::Arad::AradSlice> tree() {
  using namespace Inventory::Arad;
  Ptr<AradSlice> const slice(new AradSlice("s"));
  Ptr<Arad> const arad = slice->fapIs("f", 4);
  arad->pciDeviceIs("p");
  arad->serdesIs(30, true, false, 1, 2, 300)
      ->jerichoNifSerdesTuningIs(Hardware::Sand::serdesTuningBackplane);
  arad->nifSerdesQuartetIs(3);
  arad->serdesQuartetIs(3);
  arad->fabricSerdesIs(9);
  arad->tempSensorIs(9);
  arad->qsgmiiIs(30);
  arad->xlgeIs(4);
  arad->xlge2Is(4);
  arad->cgeIs(4);
  arad->portIs(30, nullptr)->txConnectionIs(30);
  arad->elkPerUnitsSocPropertiesIs(30);
  arad->statsSerdesIs(29, true);
  arad->mdioAccelBlockIs(9, 8, 2.5);
  return slice;
}

/// The first entity of a type in a tree; null for none.
Ptr<Entity> find(Ptr<Entity> const& entity, std::string const& type) {
  if (text(entity->fwkType()->qualifiedName()) == type) return entity;
  Ptr<GenericIf> const object = Mox::genericOf(entity, true);
  for (MoxAttr const* attribute : Mox::contentOf(*entity->fwkType())) {
    if (attributeForm(*attribute) == Mox::AttributeForm::child) {
      Ptr<Entity> const child =
          entityOf(object->attributeOp({attribute->id(), Op::attrGet}, nullptr, nullptr));
      if (Ptr<Entity> const found = child ? find(child, type) : nullptr) return found;
    } else if (attributeForm(*attribute) == Mox::AttributeForm::children) {
      for (Mox::AttributeWalk at(object, attribute->id()); at; ++at) {
        if (Ptr<Entity> const found = find(entityOf(at.value()), type)) return found;
      }
    }
  }
  return {};
}

/// One of two equal trees with its mirror, and everything that a step did to one entity of it.
class Side {
 public:
  explicit Side(std::string const& type)
      : slice_(tree()), mirror_(Ptr<Entity>(slice_)), entity(find(slice_, type)) {
    if (!entity) entity = schemaTable::make(type);
    object = Mox::genericOf(entity);
    watch_ = std::make_unique<Mox::AttributeWatch>(
        object, [this](GenericIf&, AttributeId id, Ptr<GenericIf const> const& key) {
          heard_ += " " + std::to_string(id) + (key ? "[" + text(key->strRep()) + "]" : "");
        });
    mirror_.connect();
    mirror_.settle();
  }

  std::string effectOf(std::function<String8()> const& action) {
    auto const& sent = mirror_.exporterLink->stats();
    auto const framesBefore = sent.framesSent, bytesBefore = sent.bytesSent;
    auto const versionBefore = entity->version(), readsBefore = entity->readCount();
    heard_.clear();
    std::string result;
    try {
      result = text(action());
    } catch (Mox::Exception const& failure) {
      result = "! " + text(failure.message());
    }
    std::string const counts = " version +" + std::to_string(entity->version() - versionBefore) +
                               " reads +" + std::to_string(entity->readCount() - readsBefore);
    mirror_.settle();
    return result + counts + " heard" + heard_ + " sent " +
           std::to_string(mirror_.exporterLink->stats().framesSent - framesBefore) + " frames " +
           std::to_string(mirror_.exporterLink->stats().bytesSent - bytesBefore) + " bytes";
  }
  std::string mirrored() { return Mox::NboAttrLog::test::treeText(mirror_.copy()); }

 private:
  Ptr<Inventory::Arad::AradSlice> slice_;
  Mox::NboAttrLog::test::Mirror mirror_;
  std::unique_ptr<Mox::AttributeWatch> watch_;
  std::string heard_;

 public:
  Ptr<Entity> entity;
  Ptr<GenericIf> object;
};

/// The same steps on both sides; what differs is told.
class Twins {
 public:
  Twins(std::string const& type, schemaTable::Attribute const& attribute,
        typedAccess::Attribute const& typed)
      : name_(type + "." + attribute.name),
        attribute_(attribute),
        typed_(typed),
        typedSide_(type),
        genericSide_(type),
        described_(genericSide_.entity->fwkType()->attr(attribute.id)) {
    EXPECT_EQ(genericSide_.object->attributeId(attribute.name.c_str()), attribute.id) << name_;
    EXPECT_EQ(genericSide_.object->attributeString(attribute.id), attribute.name.c_str()) << name_;
  }

  void get() {
    step(
        "get", [&] { return typed_.get(entity()); },
        [&] { return shown(op(Op::attrGet, nullptr, nullptr)); });
  }
  void set(std::string const& value) {
    step(
        "set " + value, [&] { return typed_.set(entity(), value.c_str()), String8(); },
        [&] { return shown(op(Op::attrSet, nullptr, carried(value))); });
  }
  void del() {
    step(
        "del", [&] { return typed_.del(entity()); },
        [&] { return shown(op(Op::attrDel, nullptr, nullptr)); });
  }
  void getKey(std::string const& key) {
    step(
        "get " + key, [&] { return typed_.getKey(entity(), key.c_str()); },
        [&] { return shown(op(Op::attrGet, keyOf(key), nullptr)); });
  }
  void exists(std::string const& key) {
    step(
        "exists " + key, [&] { return shownBool(typed_.exists(entity(), key.c_str())); },
        [&] { return shown(op(Op::attrExists, keyOf(key), nullptr)); });
  }
  void setKey(std::string const& key, std::string const& value) {
    step(
        "set " + key + " " + value,
        [&] { return typed_.setKey(entity(), key.c_str(), value.c_str()), String8(); },
        [&] { return shown(op(Op::attrSet, keyOf(key), carried(value))); });
  }
  void delKey(std::string const& key) {
    step(
        "del " + key, [&] { return typed_.delKey(entity(), key.c_str()); },
        [&] { return shown(op(Op::attrDel, keyOf(key), nullptr)); });
  }
  void count() {
    step(
        "count", [&] { return Mox::valueToStrep(typed_.count(entity())); },
        [&] { return shown(op(Op::attrCount, nullptr, nullptr)); });
  }
  void make(std::vector<std::string> const& arguments) {
    Texts texts;
    std::vector<Mox::NamedText> named;
    for (std::size_t i = 0; i < arguments.size(); ++i) {
      texts.push_back(arguments[i].c_str());
      named.push_back({attribute_.arguments.at(i).name.c_str(), arguments[i].c_str()});
    }
    step(
        "make", [&] { return typed_.make(entity(), texts); },
        [&] { return shown(op(Op::attrSet, nullptr, argumentsFromText(*described_, named))); });
  }
  void walk() {
    step(
        "walk",
        [&] {
          String8 keys;
          for (String8 const& key : typed_.keys(entity())) keys += key + " ";
          return keys;
        },
        [&] {
          String8 keys;
          for (Mox::AttributeWalk at(genericSide_.object, attribute_.id); at; ++at) {
            keys += at.key()->strRep() + " ";
          }
          return keys;
        });
  }
  void end() { EXPECT_EQ(genericSide_.mirrored(), typedSide_.mirrored()) << name_; }

 private:
  Entity& entity() { return **typedSide_.entity; }
  Ptr<GenericIf> op(Op::OpId op, Ptr<GenericIf const> const& index, Ptr<GenericIf> const& value) {
    return genericSide_.object->attributeOp({attribute_.id, op}, index, value);
  }
  Ptr<GenericIf> carried(std::string const& value) {
    return described_->type()->genericIf(String8(value.c_str()), false);
  }
  Ptr<GenericIf> keyOf(std::string const& key) {
    return described_->keyType()->genericIf(String8(key.c_str()), false);
  }
  static String8 shown(Ptr<GenericIf> const& result) {
    return result ? result->strRep() : String8();
  }
  static String8 shownBool(bool value) { return Mox::valueToStrep(value); }
  void step(std::string const& what, std::function<String8()> const& typed,
            std::function<String8()> const& generic) {
    std::string const expected = typedSide_.effectOf(typed);
    EXPECT_EQ(genericSide_.effectOf(generic), expected) << name_ << " " << what;
  }

  std::string name_;
  schemaTable::Attribute const& attribute_;
  typedAccess::Attribute const& typed_;
  Side typedSide_;
  Side genericSide_;
  MoxAttr const* described_;
};

std::vector<std::string> arguments(schemaTable::Attribute const& attribute, std::size_t sample) {
  std::vector<std::string> values;
  for (schemaTable::Argument const& argument : attribute.arguments) {
    auto const& all = samples(argument.type);
    values.push_back(all[sample % all.size()]);
  }
  return values;
}

void run(Twins& twins, schemaTable::Attribute const& attribute) {
  if (attribute.isConstant()) return twins.get();
  if (attribute.kind == "child") {
    twins.del();
    twins.get();
    for (std::size_t const sample : {1, 1, 2}) twins.make(arguments(attribute, sample));
    twins.get();
    twins.del();
    return twins.del();
  }
  if (!attribute.isCollection()) {
    auto const& values = samples(attribute.type);
    twins.get();
    for (std::size_t const sample : {1, 1, 2, 0}) {
      twins.set(values[sample % values.size()]);
      twins.get();
    }
    return;
  }
  auto const& keys = samples(attribute.keyType);
  std::string const first = keys[1], second = keys[2 % keys.size()];
  twins.exists(first);
  twins.getKey(first);
  twins.delKey(first);
  if (attribute.kind == "value collection") {
    auto const& values = samples(attribute.type);
    for (std::size_t const sample : {1, 1, 0}) twins.setKey(first, values[sample]);
    twins.setKey(second, values[1]);
  } else {
    std::vector<std::string> other = arguments(attribute, 2);
    other[0] = first;
    twins.make(arguments(attribute, 1));
    twins.make(arguments(attribute, 1));
    twins.make(other);
    other[0] = second;
    twins.make(other);
  }
  twins.exists(first);
  twins.getKey(first);
  twins.count();
  twins.walk();
  twins.delKey(first);
  twins.getKey(first);
  twins.delKey(first);
  twins.count();
}

TEST(Access, DoesToEveryAttributeWhatTypedAccessDoes) {
  schemaTable::Board const board;
  std::size_t count = 0;
  for (schemaTable::Type const& type : schemaTable::types()) {
    if (!schemaTable::make(type.name)) continue;  // a base type
    auto const typed = typedAccess::table().find(type.name.substr(type.name.rfind(':') + 1));
    for (schemaTable::Attribute const& attribute : schemaTable::attributes(type)) {
      ASSERT_TRUE(typed != typedAccess::table().end() && typed->second.contains(attribute.name))
          << type.name << "." << attribute.name;
      Twins twins(type.name, attribute, typed->second.at(attribute.name));
      run(twins, attribute);
      twins.end();
      ++count;
    }
  }
  EXPECT_GT(count, 120u);
}

// Failures.

enum class Index { none, key, wrong, emptyList };
enum class Value { none, right, wrong, list, shortList, longList };

/// What a call of one attribute is to end with: "" or the failure's kind and the name it tells.
std::string expected(schemaTable::Attribute const& attribute, std::string const& keyName,
                     bool isConst, Index index, int op, Value value) {
  std::string const& name = attribute.name;
  bool const isList = value == Value::list || value == Value::shortList || value == Value::longList;
  auto const notSupported = "op " + name;
  if (isConst && op >= Op::attrSet) return "const attempting to modify a const instance";
  if (attribute.kind == "handler") {
    if (op != Op::attrGet) return notSupported;
    return index == Index::emptyList ? "" : "type Mox::GenericIf::List_";
  }
  auto const make = [&]() -> std::string {
    if (!isList) return "type Mox::GenericIf::List_";
    auto const& last = attribute.arguments.back();
    if (value == Value::shortList) return "type " + last.name;
    return value == Value::longList ? "arg " + name : "";
  };
  auto const wrongValue = [&](std::string const& what) { return "type " + what; };
  if (!attribute.isCollection()) {
    if (index != Index::none) return "index " + name;
    if (op == Op::attrGet) return "";
    if (attribute.kind == "child") {
      if (op == Op::attrDel) return "";
      return op == Op::attrSet ? make() : notSupported;
    }
    if (op != Op::attrSet || attribute.isConstant()) return notSupported;
    if (value == Value::none) return attribute.kind == "reference" ? "" : wrongValue(name);
    if (value == Value::right) return "";
    return isList ? "type List" : "type SerdesCoreType";
  }
  if (op == Op::attrCount || op == Op::attrVersion) return "";
  if (op != Op::attrGet && op != Op::attrExists && op != Op::attrSet && op != Op::attrDel) {
    return notSupported;
  }
  if (op == Op::attrSet && attribute.kind == "child collection") {
    return index != Index::none ? "index " + name : make();
  }
  if (index == Index::none) return "type " + keyName;
  if (index == Index::wrong) return "type SerdesCoreType";
  if (index == Index::emptyList) return "type List";
  if (op != Op::attrSet) return "";
  if (value == Value::none) return wrongValue(name);
  if (value == Value::right) return "";
  return isList ? "type List" : "type SerdesCoreType";
}

std::string outcome(std::function<void()> const& action) {
  auto const told = [](char const* kind, Mox::Exception const& failure) {
    std::string const message = text(failure.message());
    auto const colon = message.find(": ");
    return std::string(kind) + " " + (colon == message.npos ? message : message.substr(colon + 2));
  };
  try {
    action();
    return "";
  } catch (Mox::ConstException const& failure) {
    return told("const", failure);
  } catch (Mox::BadIndexAttrException const& failure) {
    return told("index", failure);
  } catch (Mox::OpNotSupportedException const& failure) {
    return told("op", failure);
  } catch (Mox::UnknownArgException const& failure) {
    return told("arg", failure);
  } catch (Mox::UnknownAttrException const& failure) {
    return told("attr", failure);
  } catch (Mox::TypeException const& failure) {
    return told("type", failure);
  }
}

Ptr<GenericIf> valueFor(schemaTable::Attribute const& attribute, MoxAttr const* described,
                        Value value) {
  if (value == Value::none) return {};
  if (value == Value::wrong) return Mox::carrier(Inventory::Arad::falconCore);
  if (value == Value::right && attribute.kind != "handler" && !attribute.isConstant()) {
    return described->type()->genericIf(String8(samples(attribute.type)[1].c_str()), false);
  }
  Ptr<GenericIf::List_> const list(new GenericIf::List_);
  if (value == Value::right || attribute.arguments.empty()) return list;
  std::vector<Mox::NamedText> named;
  auto const values = arguments(attribute, 1);
  for (std::size_t i = 0; i < values.size(); ++i) {
    named.push_back({attribute.arguments[i].name.c_str(), values[i].c_str()});
  }
  Ptr<GenericIf> const whole = argumentsFromText(*described, named);
  Ptr<GenericIf> const carrying = whole->clone();
  auto& queue = static_cast<GenericIf::List_&>(**carrying).list();
  auto& copy = static_cast<GenericIf::List_&>(**list).list();
  for (std::size_t left = queue.size(); left > (value == Value::shortList ? 1u : 0u); --left) {
    copy.enq(queue.deq());
  }
  if (value == Value::longList) copy.enq(Ptr<GenericIf>());
  EXPECT_EQ(static_cast<GenericIf::List_&>(**whole).list().size(), values.size()) << "a copy";
  return list;
}

TEST(Access, FailuresComeInTheirOrderAndTouchNothing) {
  schemaTable::Board const board;
  std::size_t calls = 0;
  for (schemaTable::Type const& type : schemaTable::types()) {
    Ptr<Entity> entity = schemaTable::make(type.name);
    if (!entity) continue;
    auto attributes = schemaTable::attributes(type);
    for (auto const& own : type.attributes) {
      if (own.kind == "handler") attributes.push_back(own);
    }
    for (schemaTable::Attribute const& attribute : attributes) {
      MoxAttr const* const described = entity->fwkType()->attr(attribute.id);
      std::string keyName = "mox_index";
      if (attribute.kind == "child collection") keyName = attribute.arguments.front().name;
      if (keyName == "tuningMode") keyName = "jerichoNifSerdesTuning_TuningMode";
      for (bool const isConst : {false, true})
        for (Index const index : {Index::none, Index::key, Index::wrong, Index::emptyList})
          for (int const op : {0, 1, 2, 3, 77, 128, 129, 200})
            for (Value const value : {Value::none, Value::right, Value::wrong, Value::list,
                                      Value::shortList, Value::longList}) {
              // A list for what takes none is like any other.
              bool const wantsList = !attribute.arguments.empty();
              if (!wantsList && (value == Value::shortList || value == Value::longList)) continue;
              if (wantsList && value == Value::right) continue;
              Ptr<GenericIf const> key;
              if (index == Index::wrong) key = Mox::carrier(Inventory::Arad::falconCore);
              if (index == Index::emptyList) key = new GenericIf::List_;
              if (index == Index::key) {
                key = described->keyType()
                          ? described->keyType()->genericIf(
                                String8(samples(attribute.keyType)[1].c_str()), false)
                          : Mox::carrier(7u);
              }
              Ptr<GenericIf> const object = Mox::genericOf(entity, isConst);
              Ptr<GenericIf> const given = valueFor(attribute, described, value);
              auto const version = entity->version(), reads = entity->readCount();
              std::string const wanted = expected(attribute, keyName, isConst, index, op, value);
              // A carrier of the one enumeration is right where that is the type.
              if (wanted == "type SerdesCoreType" && (attribute.type == "SerdesCoreType")) continue;
              std::string const seen = outcome([&] {
                Ptr<GenericIf> const result =
                    object->attributeOp({attribute.id, static_cast<Op::OpId>(op)}, key, given);
                if (result && attribute.name != "pllClock") {
                  EXPECT_EQ(result->isConst(), isConst);
                }
              });
              EXPECT_EQ(seen, wanted)
                  << type.name << "." << attribute.name << " const " << isConst << " index "
                  << int(index) << " op " << op << " value " << int(value);
              ++calls;
              if (!seen.empty()) {
                EXPECT_EQ(entity->version(), version);
                EXPECT_EQ(entity->readCount(), reads);
              } else if (op >= Op::attrSet) {
                entity = schemaTable::make(type.name);
              }
            }
    }
  }
  EXPECT_GT(calls, 20000u);
}

}  // namespace
