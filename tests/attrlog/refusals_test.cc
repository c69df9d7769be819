// What a reader does with messages that the writing end never sends: each row of the table is a
// stream, what becomes of it, and the tree behind it.
#include <gtest/gtest.h>

#include "attrlog/adapter/Rows.h"
#include "tests/attrlog/Mirror.h"

namespace Mox::NboAttrLog::test {
namespace {

using Inventory::Arad::Arad;
using Inventory::Arad::AradSlice;
using Type = StreamAdapter::AttrTransactionType;

constexpr EntityId freshId{0x7777000000000011};

std::string number(std::uint64_t value, std::size_t width) {
  std::string bytes(width, '\0');
  putBytes(reinterpret_cast<unsigned char*>(bytes.data()), value, width);
  return bytes;
}
std::string text(std::string const& bytes) { return number(bytes.size(), 4) + bytes; }
std::string more(std::string const& bytes) { return number(0x80000000u | bytes.size(), 4) + bytes; }
std::string newId() { return number(freshId.value(), 8); }

std::string frame(FrameKind kind, EntityId entity, AttributeId attribute,
                  std::string const& payload, std::uint32_t tag, bool isVariable) {
  return number(static_cast<std::uint8_t>(kind), 1) +
         number((isVariable ? 1 : 0) | (tag == creationTag ? 8 : 0), 1) +
         number(payload.size(), 4) + number(entity.value(), 8) +
         number(static_cast<std::uint32_t>(attribute), 4) + number(0, 4) + number(1, 1) + payload +
         number(3, 1);
}
std::string message(EntityId entity, AttributeId attribute, std::string const& payload,
                    std::uint32_t tag = 0) {
  bool const isSync = attribute == syncAttribute;
  return frame(FrameKind::message, entity, attribute, payload, tag, !isSync);
}
std::string marker(EntityId entity, AttributeId attribute, Type type) {
  return frame(FrameKind::marker, entity, attribute,
               number(static_cast<std::uint32_t>(type), 4) + number(0, 4), 0, true);
}
/// A compound message: the list, where the arguments end, and what follows.
std::string compound(EntityId entity, AttributeId sign, std::vector<AttributeId> const& ids,
                     std::size_t keyEnd, std::string const& rest) {
  std::string list = number(4 + 4 * ids.size(), 2) + number(keyEnd, 2);
  for (AttributeId id : ids) list += number(static_cast<std::uint32_t>(id), 4);
  return message(entity, sign, list + rest);
}

/// A tree of which both ends may write, and its copy.
struct Pair {
  explicit Pair(bool writable = true)
      : slice(new AradSlice("s")), mirror(slice, options(writable)) {
    arad = slice->fapIs("f", 4);
    arad->serdesIs(3, false, false, 0, 0, 0)
        ->jerichoNifSerdesTuningIs(Hardware::Sand::serdesTuningCopper);
    arad->qsgmiiIs(0)->descriptionIs("before");
    arad->cgeIs(3)->serdesAllocatedIs(4, true);
    arad->portIs(16, nullptr);
    arad->statsSerdesIs(Hardware::Sand::AradStatsSerdesId(28), false);
    arad->ddrTuneSettingIs("old", "value");
    mirror.connect();
    mirror.settle();
  }
  static LinkOptions options(bool writable) {
    LinkOptions options;
    options.grantsWrite = options.wantsWrite = writable;
    return options;
  }
  AradSlice& copy() { return dynamic_cast<AradSlice&>(**mirror.copy()); }
  Ptr<Arad> copyArad() { return copy().fap("f"); }
  Ptr<Sa> adapter(Ptr<Entity> const& entity) {
    return entity->moxNboAttrLogSa(Ptr<Out const>(mirror.out().out()));
  }
  EntityId id(Ptr<Entity> const& entity) { return adapter(entity)->entityId(); }
  Ptr<Sa> copyAdapter(Ptr<Entity> const& entity) {
    return entity->moxNboAttrLogSa(Ptr<Out const>(mirror.in().out()));
  }
  /// Says it to the copy's end, as the exporter.
  void tell(std::string const& bytes) {
    mirror.toImporter->bytes.append(bytes.data(), bytes.size());
    mirror.turn();
  }
  /// Says it to the exporter, as an importer that has seen `seen` frames.
  void write(std::string bytes, std::uint32_t seen) {
    bytes.replace(18, 4, number(seen, 4));
    mirror.toExporter->bytes.append(bytes.data(), bytes.size());
    mirror.exporterLink->service(1);
  }

  Ptr<AradSlice> slice;
  Ptr<Arad> arad;
  Mirror mirror;
};

EntityId arad(Pair& pair) { return pair.id(pair.arad); }
EntityId lane(Pair& pair) { return pair.id(pair.arad->serdes(3)); }
EntityId qsgmii(Pair& pair) { return pair.id(pair.arad->qsgmii(0)); }
EntityId cge(Pair& pair) { return pair.id(pair.arad->cge(3)); }

/// A stream that the copy's end takes, or refuses with a code.
struct Row {
  char const* what;
  std::string (*bytes)(Pair& pair);
  StreamError code;
  bool changes;  ///< the tree
  std::uint64_t unknownAttrs;
  std::uint64_t unknownEnums;
  bool (*holds)(Pair& pair);
};

bool anything(Pair&) { return true; }
/// The arguments of Arad::port 17.
std::string port17() { return number(17, 2) + number(0, 8); }
/// List of one id, and the number behind it.
constexpr std::size_t oneId = 4 + 4 + 4;

Row const rows[] = {
    // Compound messages.
    {"a gap in front of the id is passed over",
     [](Pair& p) {
       return compound(arad(p), 144, {522}, oneId + 10 + 3,
                       number(0, 4) + port17() + "gap" + newId());
     },
     StreamError::none, true, 0, 0, [](Pair& p) { return bool(p.copyArad()->port(17)); }},
    {"arguments that reach into the id",
     [](Pair& p) { return compound(arad(p), 144, {525}, oneId, number(0, 4) + newId()); },
     StreamError::badLength, false, 0, 0, anything},
    {"a gap that leaves no id",
     [](Pair& p) {
       return compound(arad(p), 144, {522}, oneId + 10 + 1, number(0, 4) + port17() + newId());
     },
     StreamError::badLength, false, 0, 0, anything},
    {"a positive id without the number behind the list",
     [](Pair& p) { return compound(arad(p), 144, {518}, 0, number(1, 2) + newId()); },
     StreamError::badLength, false, 0, 0, anything},
    {"a negative id has no number behind the list",
     [](Pair& p) {
       return compound(arad(p), -144, {7, -522}, 0, number(16, 2));
     },
     StreamError::none, true, 0, 0, [](Pair& p) { return !p.copyArad()->port(16); }},
    {"the sign of the list counts",
     [](Pair& p) {
       return compound(arad(p), 144, {7, -522, 516}, 0, number(16, 2));
     },
     StreamError::none, true, 0, 0, [](Pair& p) { return !p.copyArad()->port(16); }},
    {"an attribute of the base type",
     [](Pair& p) { return compound(arad(p), -144, {-394}, 0, number(9, 4)); }, StreamError::none,
     false, 0, 0, anything},
    {"a value's attribute is passed over",
     [](Pair& p) {
       return compound(arad(p), -144, {523, -523}, 0, text("old"));
     },
     StreamError::none, false, 1, 0, anything},
    {"no known id",
     [](Pair& p) {
       return compound(arad(p), 144, {7, 8}, 0, number(0, 4) + "x");
     },
     StreamError::none, false, 1, 0, anything},
    {"a type without children", [](Pair& p) { return message(qsgmii(p), 144, "x"); },
     StreamError::none, false, 1, 0, anything},
    {"a child under an id that is in use",
     [](Pair& p) {
       return compound(arad(p), 144, {522}, 0,
                       number(0, 4) + port17() + number(p.id(p.slice).value(), 8));
     },
     StreamError::badId, false, 0, 0, anything},
    {"a child that refers to nothing known",
     [](Pair& p) {
       return compound(arad(p), 144, {522}, 0,
                       number(0, 4) + number(17, 2) + number(freshId.value() + 2, 8) + newId());
     },
     StreamError::badId, false, 0, 0, anything},

    // Ids and values.
    {"removal of what has no removal", [](Pair& p) { return message(qsgmii(p), -259, "x"); },
     StreamError::none, false, 1, 0, anything},
    {"removal of the mode", [](Pair& p) { return message(arad(p), -135, number(1, 4)); },
     StreamError::none, false, 1, 0, anything},
    {"an enumerator of a later schema",
     [](Pair& p) { return message(p.id(p.arad->port(16)), 267, number(77, 4)); }, StreamError::none,
     true, 0, 1,
     [](Pair& p) { return static_cast<int>(p.copyArad()->port(16)->managedPhy()) == 77; }},
    {"a child under an enumerator of a later schema",
     [](Pair& p) { return message(lane(p), 266, number(77, 4) + newId(), creationTag); },
     StreamError::none, true, 0, 1,
     [](Pair& p) { return p.copyArad()->serdes(3)->jerichoNifSerdesTuningCount() == 2; }},

    // Pieces and markers.
    {"an empty string leaves nothing open", [](Pair& p) { return message(qsgmii(p), 259, ""); },
     StreamError::none, true, 0, 0,
     [](Pair& p) {
       return p.copyArad()->qsgmii(0)->description() == "" && p.mirror.in().flowInCount() == 0;
     }},
    {"a whole value beside an open one",
     [](Pair& p) {
       return message(arad(p), 523, text("a") + more("x")) +
              message(arad(p), 523, text("b") + text("y")) +
              message(arad(p), 523, text("a") + text("z"));
     },
     StreamError::none, true, 0, 0,
     [](Pair& p) {
       return p.copyArad()->ddrTuneSetting("a") == "xz" &&
              p.copyArad()->ddrTuneSetting("b") == "y" && p.mirror.in().flowInCount() == 0;
     }},
    {"an abort drops what has come of a string",
     [](Pair& p) {
       return message(qsgmii(p), 259, more("half")) + marker(qsgmii(p), 259, Type::abort) +
              message(qsgmii(p), 259, text("whole"));
     },
     StreamError::none, true, 0, 0,
     [](Pair& p) {
       return p.copyArad()->qsgmii(0)->description() == "whole" && p.mirror.in().flowInCount() == 0;
     }},
    {"an abort leaves an open transaction",
     [](Pair& p) {
       return marker(cge(p), 260, Type::begin) + message(cge(p), 259, more("half")) +
              marker(cge(p), 259, Type::abort) + marker(cge(p), 260, Type::end);
     },
     StreamError::none, true, 0, 0,
     [](Pair& p) {
       return p.copyArad()->cge(3)->serdesAllocatedCount() == 0 &&
              p.mirror.in().flowInCount() == 0 && Marks::openCount() == 0;
     }},
    {"an abort leaves marks and members",
     [](Pair& p) { return marker(arad(p), 523, Type::begin) + marker(arad(p), 523, Type::abort); },
     StreamError::none, false, 0, 0,
     [](Pair& p) { return p.mirror.in().flowInCount() == 1 && Marks::openCount() == 1; }},
};

TEST(Refusals, EachMessageIsTakenOrRefusedAndNothingBetween) {
  for (Row const& row : rows) {
    SCOPED_TRACE(row.what);
    Pair pair(false);
    std::string const before = treeText(pair.mirror.copy());
    pair.tell(row.bytes(pair));
    Demuxer const& demuxer = pair.mirror.in();
    EXPECT_EQ(demuxer.errorCode(), row.code) << pair.mirror.importerClosed;
    EXPECT_EQ(treeText(pair.mirror.copy()) != before, row.changes);
    EXPECT_EQ(demuxer.stats().unknownAttrs, row.unknownAttrs);
    EXPECT_EQ(demuxer.stats().unknownEnums, row.unknownEnums);
    EXPECT_EQ(demuxer.stats().handlerExceptions, 0u);
    EXPECT_TRUE(row.holds(pair));
    pair.mirror.cut();
    EXPECT_EQ(Marks::openCount(), 0u);
  }
}

TEST(Refusals, ACompoundMessageLosesAConflictAsThePlainOneDoes) {
  for (bool const isCompound : {false, true}) {
    for (bool const creates : {false, true}) {
      SCOPED_TRACE(testing::Message() << isCompound << creates);
      Pair pair;
      EntityId const id = arad(pair);
      std::uint32_t const seen = pair.mirror.in().host().exchange.framesBegun();
      // This end has said something else of the slot, which the writer had not seen.
      if (creates) {
        pair.arad->portIs(17, nullptr)->laneIs(5);
        pair.arad->portDel(17);
      } else {
        pair.arad->portDel(16);
        pair.arad->portIs(16, nullptr)->laneIs(5);
      }
      pair.mirror.exporterLink->service(1);
      std::string const before = treeText(pair.mirror.root());
      std::string const rest = creates ? port17() + newId() : number(16, 2);
      AttributeId const attribute = creates ? 522 : -522;
      pair.write(isCompound ? compound(id, creates ? 144 : -144, {attribute}, 0,
                                       (creates ? number(0, 4) : "") + rest)
                            : message(id, attribute, rest, creates ? creationTag : 0),
                 seen);
      EXPECT_EQ(pair.mirror.out().errorCode(), StreamError::none) << pair.mirror.exporterClosed;
      EXPECT_EQ(pair.mirror.out().stats().conflicts, 1u);
      EXPECT_EQ(treeText(pair.mirror.root()), before);
    }
  }
}

std::string internalText(std::function<void()> const& call) {
  try {
    call();
  } catch (InternalException const& failure) {
    return failure.what();
  }
  return "nothing thrown";
}

TEST(Refusals, TheFrameOfAMessageRefusesAndCleansUp) {
  Pair pair(false);
  StreamAdapter::DeserializationOptions const options;
  // The exporting end's adapters are proxies that the peer may not write.
  Ptr<Sa> const adapter = pair.adapter(pair.arad);
  auto const apply = [&] { adapter->handleAttrDeserialization(523, options, 0, Ptr<In>()); };
  std::string const before = treeText(pair.mirror.root());
  EXPECT_EQ(internalText(apply),
            "write-update from readonly proxy: " + std::string(pair.arad->fullName().view()) +
                " peerName: importer");
  EXPECT_FALSE(adapter->hasFlag(changeFromLog));
  adapter->flagsIs(changeFromLog, true);
  EXPECT_EQ(internalText(apply), "entity reactor is already active");
  EXPECT_TRUE(adapter->hasFlag(changeFromLog)) << "it is not this call's";
  adapter->flagsIs(changeFromLog, false);
  EXPECT_EQ(treeText(pair.mirror.root()), before);
}

TEST(Refusals, ATextInPiecesEndsItsRecordBehindTheSetterWhateverASubscriberDoes) {
  struct Watch : Arad::NotifieeConst {
    void onDescription() override { hear(); }
    void onDdrTuneSetting(String8) override { hear(); }
    void onNotificationException(AttributeId) override { throw; }
    void hear() {
      open.push_back(demuxer->flowInCount());
      if (removes) (*slice)->fapDel("f");
      if (throws) throwInternalException("unheard");
    }
    Demuxer* demuxer = nullptr;
    Ptr<AradSlice>* slice = nullptr;
    bool throws = false;
    bool removes = false;
    std::vector<std::size_t> open;
  };
  for (AttributeId const attribute : {258, 523}) {
    for (bool const throws : {false, true}) {
      for (bool const removes : {false, true}) {
        SCOPED_TRACE(testing::Message() << attribute << throws << removes);
        Pair pair;
        std::string const key = attribute == 523 ? text("k") : "";
        EntityId const id = arad(pair);
        Ptr<Arad> const chip = pair.copyArad();
        Ptr<AradSlice> copy(static_cast<AradSlice*>(pair.mirror.copy().get()));
        Ptr<Watch> const watch(new Watch);
        watch->demuxer = &pair.mirror.in();
        watch->slice = &copy;
        watch->throws = throws;
        watch->removes = removes;
        watch->isRegisteredNotifieeIs(true);
        watch->notifierIs(Ptr<PtrInterface const>(chip));
        pair.tell(message(id, attribute, key + more("two ")) +
                  message(id, attribute, key + text("pieces")) +
                  message(id, attribute, key + text("one")));
        using Counts = std::vector<std::size_t>;
        EXPECT_EQ(watch->open, removes ? Counts{1} : (Counts{1, 0}));
        EXPECT_EQ(pair.mirror.in().error(), "");
        EXPECT_EQ(pair.mirror.in().flowInCount(), 0u);
        EXPECT_EQ(pair.mirror.in().stats().handlerExceptions, throws ? watch->open.size() : 0u);
        EXPECT_EQ(attribute == 523 ? chip->ddrTuneSetting("k") : chip->description(),
                  removes ? "two pieces" : "one");
        watch->notifierIs(nullptr);
      }
    }
  }
}

}  // namespace
}  // namespace Mox::NboAttrLog::test
