// Every attribute of every type through the generic interface. For rows that read or set another
// attribute than theirs, for effects (values, versions, notifications, counts) other than a plain
// model's, and for failures that come in the wrong order, with a wrong name, or change something.
#include <gtest/gtest.h>

#include <map>
#include <optional>
#include <random>

#include "generic/Text.h"
#include "tests/generic/Schema.h"

namespace {

using Mox::AttributeForm;
using Mox::AttributeId;
using Mox::Entity;
using Mox::GenericIf;
using Mox::Ptr;
using Mox::String8;
using Op = GenericIf::AttributeOp;
using schema::arguments;
using schema::Attribute;
using schema::isMaking;
using schema::ofText;
using schema::samples;
using schema::text;

/// One attribute of one entity beside a plain model of it, driven by random operations.
class Beside {
 public:
  Beside(Ptr<Entity> const& entity, Attribute const& attribute, unsigned int seed)
      : attribute_(attribute),
        random_(seed),
        entity_(entity),
        object_(Mox::genericOf(entity_)),
        watch_(object_, [this](GenericIf&, AttributeId id, Ptr<GenericIf const> const& key) {
          seen_ += " " + std::to_string(id) + (key ? "[" + text(key->strRep()) + "]" : "");
        }) {
    EXPECT_EQ(object_->attributeId(attribute.name.c_str()), attribute.id);
    EXPECT_EQ(object_->attributeString(attribute.id), attribute.name.c_str());
    if (!attribute.isScalar()) return;
    model_[""] = text(op(Op::attrGet, nullptr, nullptr)->strRep());
  }

  void step() {
    bool const isSingle = !attribute_.isCollection();
    auto const& keys = isSingle ? none_ : samples(attribute_.keyType);
    std::string const key = keys[below(keys.size())];
    Ptr<GenericIf const> const index = isSingle ? nullptr : ofText(attribute_.row->keyType(), key);
    auto const at = model_.find(key);
    bool const isThere = at != model_.end();
    bool const makes = isMaking(attribute_),
               isConstant = attribute_.form == AttributeForm::constant;
    std::string const before = isThere ? at->second : "";
    auto const version = entity_->version(), reads = entity_->readCount();
    std::string const notified =
        " " + std::to_string(attribute_.id) + (isSingle ? "" : "[" + key + "]");
    seen_.clear();
    switch (below(isConstant ? 1 : isSingle && !makes ? 2 : isSingle ? 3 : 5)) {
      case 0: {
        Ptr<GenericIf> const got = op(Op::attrGet, index, nullptr);
        if (makes) {
          EXPECT_EQ(entityOf(got) != nullptr, isThere);
        } else if (!isConstant) {
          EXPECT_EQ(text(got->strRep()), isThere ? before : samples(attribute_.type)[0]);
        }
        EXPECT_EQ(entity_->readCount(), reads + 1);
        return same(version, "");
      }
      case 1: {
        if (makes) {
          std::size_t const sample = 1 + below(2);
          Ptr<GenericIf> const list = arguments(attribute_, sample, key);
          // Equal arguments find the child; others replace a singleton, a member refuses them.
          std::string const now = text(list->strRep());
          try {
            EXPECT_TRUE(entityOf(op(Op::attrSet, nullptr, list)));
            EXPECT_TRUE(!isThere || isSingle || now == before) << now << " " << before;
            model_[key] = now;
          } catch (Mox::Exception const&) {
            EXPECT_TRUE(isThere && !isSingle && now != before) << now << " " << before;
          }
          EXPECT_EQ(seen_, isThere && (!isSingle || now == before) ? "" : notified);
          return;
        }
        auto const& values = samples(attribute_.type);
        std::string const now = values[below(values.size())];
        EXPECT_FALSE(op(Op::attrSet, index, ofText(attribute_.row->type(), now)));
        model_[key] = now;
        bool const isNew = !isThere || now != before;
        return same(version + isNew, isNew ? notified : "");
      }
      case 2: {
        Ptr<GenericIf> const gone = op(Op::attrDel, index, nullptr);
        if (makes) {
          EXPECT_EQ(entityOf(gone) != nullptr, isThere);
        } else {
          EXPECT_EQ(text(gone->strRep()), isThere ? before : samples(attribute_.type)[0]);
        }
        model_.erase(key);
        return same(version + isThere, isThere ? notified : "");
      }
      case 3:
        EXPECT_EQ(op(Op::attrExists, index, nullptr)->strRep(), isThere ? "true" : "false");
        return same(version, "");
      default:
        EXPECT_EQ(text(op(Op::attrCount, index, nullptr)->strRep()), std::to_string(model_.size()));
        std::size_t walked = 0;
        for (Mox::AttributeWalk walk(object_, attribute_.id); walk; ++walk, ++walked) {
          EXPECT_TRUE(model_.contains(text(walk.key()->strRep())));
        }
        EXPECT_EQ(walked, model_.size());
        return same(version, "");
    }
  }

 private:
  std::size_t below(std::size_t bound) { return random_() % bound; }
  Ptr<GenericIf> op(Op::OpId op, Ptr<GenericIf const> const& index, Ptr<GenericIf> const& value) {
    return object_->attributeOp({attribute_.id, op}, index, value);
  }
  void same(std::uint32_t version, std::string const& notified) {
    EXPECT_EQ(entity_->version(), version);
    EXPECT_EQ(seen_, notified);
  }

  std::vector<std::string> const none_{""};
  Attribute const& attribute_;
  std::mt19937 random_;
  Ptr<Entity> entity_;
  Ptr<GenericIf> object_;
  std::map<std::string, std::string> model_;
  std::string seen_;
  Mox::AttributeWatch watch_;
};

TEST(Access, EveryAttributeActsLikeAPlainModelOfIt) {
  schema::Board const board;
  char const* const chosen = std::getenv("ACCESS_SEED");
  unsigned int const seed = chosen ? std::atoi(chosen) : std::random_device()();
  for (auto const& make : schema::makers()) {
    for (Attribute const& attribute : schema::attributes(*make()->fwkType())) {
      SCOPED_TRACE(attribute.name + " ACCESS_SEED=" + std::to_string(seed));
      Beside beside(make(), attribute, seed);
      for (int i = 0; i < 60 && !testing::Test::HasFailure(); ++i) beside.step();
    }
  }
}

enum class Index { none, key, wrong, emptyList };
enum class Value { none, right, wrong, list, shortList, longList };

/// What a call of one attribute is to end with: "" or the failure's kind and the name it tells.
std::string expected(Attribute const& attribute, std::string const& keyName, bool isConst,
                     Index index, int op, Value value) {
  std::string const& name = attribute.name;
  bool const isList = value == Value::list || value == Value::shortList || value == Value::longList;
  auto const notSupported = "op " + name;
  if (isConst && op >= Op::attrSet) return "const attempting to modify a const instance";
  auto const make = [&]() -> std::string {
    if (!isList) return "type Mox::GenericIf::List_";
    auto const& last = attribute.arguments.back().first;
    if (value == Value::shortList) return "type " + last;
    return value == Value::longList ? "arg " + name : "";
  };
  auto const wrongValue = [&](std::string const& what) { return "type " + what; };
  if (!attribute.isCollection()) {
    if (index != Index::none) return "index " + name;
    if (op == Op::attrGet) return "";
    if (attribute.form == AttributeForm::child) {
      if (op == Op::attrDel) return "";
      return op == Op::attrSet ? make() : notSupported;
    }
    if (op != Op::attrSet || attribute.form == AttributeForm::constant) return notSupported;
    if (value == Value::none)
      return attribute.form == AttributeForm::reference ? "" : wrongValue(name);
    if (value == Value::right) return "";
    return isList ? "type List" : "type SerdesCoreType";
  }
  if (op == Op::attrCount || op == Op::attrVersion) return "";
  if (op != Op::attrGet && op != Op::attrExists && op != Op::attrSet && op != Op::attrDel) {
    return notSupported;
  }
  if (op == Op::attrSet && attribute.form == AttributeForm::children) {
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

template <class E>
char const* kindOf(Mox::Exception const& failure, char const* kind) {
  return dynamic_cast<E const*>(&failure) ? kind : "";
}
std::string outcome(std::function<void()> const& action) {
  try {
    action();
    return "";
  } catch (Mox::Exception const& failure) {
    std::string const message = text(failure.message());
    auto const colon = message.find(": ");
    return std::string(kindOf<Mox::ConstException>(failure, "const")) +
           kindOf<Mox::BadIndexAttrException>(failure, "index") +
           kindOf<Mox::OpNotSupportedException>(failure, "op") +
           kindOf<Mox::UnknownArgException>(failure, "arg") +
           kindOf<Mox::TypeException>(failure, "type") + " " +
           (colon == message.npos ? message : message.substr(colon + 2));
  }
}

Ptr<GenericIf> valueFor(Attribute const& attribute, Value value) {
  if (value == Value::none) return {};
  if (value == Value::wrong) return Mox::carrier(Inventory::Arad::falconCore);
  if (value == Value::right) return ofText(attribute.row->type(), samples(attribute.type)[1]);
  Ptr<GenericIf::List_> const list(new GenericIf::List_);
  if (!isMaking(attribute)) return list;
  Ptr<GenericIf> const carrying = arguments(attribute, 1)->clone();
  auto& queue = static_cast<GenericIf::List_&>(**carrying).list();
  for (std::size_t left = queue.size(); left > (value == Value::shortList ? 1u : 0u); --left) {
    list->enq(queue.deq());
  }
  if (value == Value::longList) list->enq(Ptr<GenericIf>());
  return list;
}

void tryAll(std::function<Ptr<Entity>()> const& make, Attribute const& attribute, bool isConst) {
  Ptr<Entity> entity = make();
  std::string keyName = "mox_index";
  if (isMaking(attribute)) keyName = attribute.arguments.front().first;
  if (keyName == "tuningMode") keyName = "jerichoNifSerdesTuning_TuningMode";
  for (Index const index : {Index::none, Index::key, Index::wrong, Index::emptyList})
    for (int const op : {0, 1, 2, 3, 77, 128, 129, 200})
      for (Value const value : {Value::none, Value::right, Value::wrong, Value::list,
                                Value::shortList, Value::longList}) {
        bool const isForMaking = value == Value::shortList || value == Value::longList;
        if (isMaking(attribute) ? value == Value::right : isForMaking) continue;
        std::string const wanted = expected(attribute, keyName, isConst, index, op, value);
        // A carrier of that enumeration is right where it is the type.
        if (wanted == "type SerdesCoreType" && attribute.type == "SerdesCoreType") continue;
        Ptr<GenericIf const> key;
        if (index == Index::wrong) key = Mox::carrier(Inventory::Arad::falconCore);
        if (index == Index::emptyList) key = new GenericIf::List_;
        if (index == Index::key) {
          key = attribute.isCollection()
                    ? ofText(attribute.row->keyType(), samples(attribute.keyType)[1])
                    : Mox::carrier(7u);
        }
        Ptr<GenericIf> const object = Mox::genericOf(entity, isConst);
        auto const version = entity->version(), reads = entity->readCount();
        std::string const seen = outcome([&] {
          Ptr<GenericIf> const result = object->attributeOp(
              {attribute.id, static_cast<Op::OpId>(op)}, key, valueFor(attribute, value));
          // The one reference to a const target gives read-only objects alone.
          EXPECT_TRUE(!result || attribute.name == "pllClock" || result->isConst() == isConst);
        });
        EXPECT_EQ(seen, wanted) << "const " << isConst << " index " << int(index) << " op " << op
                                << " value " << int(value);
        if (!seen.empty()) {
          EXPECT_TRUE(entity->version() == version && entity->readCount() == reads);
        } else if (op >= Op::attrSet) {
          entity = make();
        }
      }
}

TEST(Access, FailuresComeInTheirOrderAndTouchNothing) {
  schema::Board const board;
  for (auto const& make : schema::makers()) {
    for (Attribute const& attribute : schema::attributes(*make()->fwkType())) {
      SCOPED_TRACE(attribute.name);
      for (bool const isConst : {false, true}) tryAll(make, attribute, isConst);
    }
  }
  // The one attribute that is a reaction: its index is a list of arguments.
  Ptr<GenericIf> const chip = Mox::genericOf(schema::makers()[8]());
  auto const call = [&](Op::OpId op, Ptr<GenericIf> const& index) {
    return outcome([&] { chip->attributeOp({537, op}, index, nullptr); });
  };
  EXPECT_EQ(call(Op::attrGet, new GenericIf::List_), "");
  EXPECT_EQ(call(Op::attrGet, nullptr), "type Mox::GenericIf::List_");
  EXPECT_EQ(call(Op::attrGet, new GenericIf::List_({Mox::carrier(1u)})), "arg handlePllClock");
  EXPECT_EQ(call(Op::attrSet, new GenericIf::List_), "op handlePllClock");
}

}  // namespace
