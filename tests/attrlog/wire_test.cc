// The bytes of docs/wire-format.md, written and read, their prefixes and malformed forms. Faults
// here change a byte on the wire, or accept or refuse a header at another place than the page has
// it.
#include <gtest/gtest.h>

#include <fstream>
#include <functional>
#include <map>
#include <set>

#include "tests/attrlog/Scene.h"

namespace Mox::NboAttrLog::test {
namespace {

using Hardware::Sand::AradNifSerdesId;
using Inventory::Arad::Arad;
using Inventory::Arad::AradSlice;
using Inventory::Arad::EthPort;
using Token = Connection::Out::TransactToken;

constexpr EntityId documentEntity{0x5ca1ab1e00000101};
constexpr EntityId documentOther{0x5ca1ab1e00000103};

std::string hex(std::string const& bytes) {
  std::string text;
  for (unsigned char byte : bytes) {
    char digits[4];
    std::snprintf(digits, sizeof digits, "%02x", byte);
    text += digits;
  }
  return text;
}

unsigned char const* data(std::string const& bytes) {
  return reinterpret_cast<unsigned char const*>(bytes.data());
}

// The document.

std::vector<std::string> documentLines() {
  std::ifstream file(SOURCE_DIR "/docs/wire-format.md");
  std::vector<std::string> lines;
  for (std::string line; std::getline(file, line);) lines.push_back(line);
  return lines;
}

/// One line of a block: digits, quoted text, a remark.
std::string lineBytes(std::string const& line) {
  std::string bytes;
  std::string digits;
  bool quoted = false;
  for (char c : line) {
    if (c == '"') {
      quoted = !quoted;
    } else if (quoted) {
      bytes += c;
    } else if (c == '#') {
      break;
    } else if (c != ' ') {
      digits += c;
      if (digits.size() < 2) continue;
      bytes += static_cast<char>(std::stoi(digits, nullptr, 16));
      digits.clear();
    }
  }
  EXPECT_TRUE(digits.empty() && !quoted) << line;
  return bytes;
}

/// The blocks of the document by name.
std::map<std::string, std::string> const& document() {
  static std::map<std::string, std::string> const blocks = [] {
    std::map<std::string, std::string> result;
    std::string* block = nullptr;
    for (std::string const& line : documentLines()) {
      if (line.starts_with("```bytes ")) {
        auto const [at, isNew] = result.emplace(line.substr(9), "");
        EXPECT_TRUE(isNew) << line;
        block = &at->second;
      } else if (line.starts_with("```")) {
        block = nullptr;
      } else if (block != nullptr) {
        *block += lineBytes(line);
      }
    }
    return result;
  }();
  return blocks;
}

std::string replaced(std::string bytes, EntityId from, EntityId to) {
  std::string const before = number(from.value(), 8);
  for (std::size_t at = 0; (at = bytes.find(before, at)) != std::string::npos; at += 8) {
    bytes.replace(at, 8, number(to.value(), 8));
  }
  return bytes;
}

/// A block with the ids of living entities.
std::string documented(std::string const& name, EntityId entity = documentEntity,
                       EntityId other = documentOther) {
  auto const block = document().find(name);
  if (block == document().end()) {
    ADD_FAILURE() << "no block " << name;
    return {};
  }
  return replaced(replaced(block->second, documentEntity, entity), documentOther, other);
}

/// What is in the exporter's buffer.
std::string written(Scene& scene) {
  Out& out = **scene.mirror.out().out();
  return {reinterpret_cast<char const*>(out.committed()), out.committedSize()};
}

/// One change of the sample and the block that it writes.
struct Golden {
  char const* block;
  /// Makes the change; gives what the message is about.
  Ptr<Entity> (*change)(Scene& scene);
  /// What else the message names; null for nothing.
  Ptr<Entity> (*other)(Scene& scene);
};

Ptr<Entity> none(Scene&) { return {}; }

constexpr Golden goldens[] = {
    {"u32", [](Scene& s) { return s.slice->numPortsIs(3), Ptr<Entity>(s.slice); }, none},
    {"bool", [](Scene& s) { return s.slice->useMdioIs(true), Ptr<Entity>(s.slice); }, none},
    {"u8", [](Scene& s) { return s.port()->laneIs(7), Ptr<Entity>(s.port()); }, none},
    {"u16", [](Scene& s) { return s.port()->numQPairsIs(258), Ptr<Entity>(s.port()); }, none},
    {"enumeration",
     [](Scene& s) {
       return s.port()->managedPhyIs(Inventory::Arad::bcm84848), Ptr<Entity>(s.port());
     },
     none},
    {"identifier",
     [](Scene& s) {
       return s.arad->serdes(3)->txSerdesIdIs(AradNifSerdesId(9)), Ptr<Entity>(s.arad->serdes(3));
     },
     none},
    {"slot", [](Scene& s) { return s.arad->slotIdIs(Fru::SlotId(4)), Ptr<Entity>(s.arad); }, none},
    {"name", [](Scene& s) { return s.arad->lunetPeerNameIs("peer 2"), Ptr<Entity>(s.arad); }, none},
    {"piece",
     [](Scene& s) {
       return s.arad->qsgmii(0)->descriptionIs("uplink"), Ptr<Entity>(s.arad->qsgmii(0));
     },
     none},
    {"empty-piece",
     [](Scene& s) { return s.arad->qsgmii(0)->descriptionIs(""), Ptr<Entity>(s.arad->qsgmii(0)); },
     none},
    {"serdes",
     [](Scene& s) { return s.arad->serdesIs(5, true, false, 7, 3, 9), Ptr<Entity>(s.arad); },
     [](Scene& s) { return Ptr<Entity>(s.arad->serdes(5)); }},
    {"port", [](Scene& s) { return s.arad->portIs(17, nullptr), Ptr<Entity>(s.arad); },
     [](Scene& s) { return Ptr<Entity>(s.arad->port(17)); }},
    {"accelerator",
     [](Scene& s) {
       s.arad->mdioAccelBlockIs(Hardware::VesperAccelId(2), 77, Units::Megahertz(2.5));
       return Ptr<Entity>(s.arad);
     },
     [](Scene& s) { return Ptr<Entity>(s.arad->mdioAccelBlock(Hardware::VesperAccelId(2))); }},
    {"unit-bag",
     [](Scene& s) { return s.arad->elkPerUnitsSocPropertiesIs(5), Ptr<Entity>(s.arad); },
     [](Scene& s) { return Ptr<Entity>(s.arad->elkPerUnitsSocProperties(5)); }},
    {"singleton",
     [](Scene& s) { return s.arad->elkGlobalSocPropertiesIs("g", 4), Ptr<Entity>(s.arad); },
     [](Scene& s) { return Ptr<Entity>(s.arad->elkGlobalSocProperties()); }},
    {"connection", [](Scene& s) { return s.port()->txConnectionIs(9), Ptr<Entity>(s.port()); },
     [](Scene& s) { return Ptr<Entity>(s.port()->txConnection()); }},
    {"connection-removed",
     [](Scene& s) { return s.port()->txConnectionDel(), Ptr<Entity>(s.port()); }, none},
    {"value",
     [](Scene& s) { return s.arad->xlge(3)->serdesIs(4, true), Ptr<Entity>(s.arad->xlge(3)); },
     none},
    {"string-value",
     [](Scene& s) { return s.arad->ddrTuneSettingIs("k", "value"), Ptr<Entity>(s.arad); }, none},
};

std::set<std::string>& comparedBlocks() {
  static std::set<std::string> names;
  return names;
}

void expectBlock(std::string const& name, std::string const& bytes, EntityId entity,
                 EntityId other = documentOther) {
  comparedBlocks().insert(name);
  EXPECT_EQ(hex(bytes), hex(documented(name, entity, other))) << name;
}

TEST(WireDocument, EveryChangeWritesItsBlockAndThePeerReadsIt) {
  for (Golden const& golden : goldens) {
    SCOPED_TRACE(golden.block);
    Scene scene;
    scene.mirror.toImporter->capacity = 0;
    Ptr<Entity> const subject = golden.change(scene);
    Ptr<Entity> const other = golden.other(scene);
    expectBlock(golden.block, written(scene), scene.id(subject),
                other ? scene.id(other) : documentOther);
    scene.mirror.toImporter->capacity = 65536;
    scene.mirror.settle();
    EXPECT_EQ(scene.mirror.importerClosed, "");
    EXPECT_EQ(treeText(scene.mirror.copy()), treeText(scene.mirror.root()));
    EXPECT_EQ(scene.mirror.in().stats().strays, 0u);
  }
}

TEST(WireDocument, RemovalsWriteTheirBlocksAndThePeerReadsThem) {
  Scene scene;
  scene.arad->portIs(17, nullptr);
  scene.arad->xlge(3)->serdesIs(4, true);
  scene.arad->ddrTuneSettingIs("k", "value");
  struct Removal {
    char const* block;
    Ptr<Entity> subject;
    std::function<void()> change;
  } const removals[] = {
      {"port-removed", scene.arad, [&] { scene.arad->portDel(17); }},
      {"value-removed", scene.arad->xlge(3), [&] { scene.arad->xlge(3)->serdesDel(4); }},
      {"string-value-removed", scene.arad, [&] { scene.arad->ddrTuneSettingDel("k"); }},
  };
  for (Removal const& removal : removals) {
    scene.mirror.settle();
    removal.change();
    expectBlock(removal.block, written(scene), scene.id(removal.subject));
    scene.mirror.settle();
    EXPECT_EQ(treeText(scene.mirror.copy()), treeText(scene.mirror.root()));
  }
}

TEST(WireDocument, AReferenceIsTheIdOfAnAnnouncedEntity) {
  Scene scene;
  Ptr<Inventory::Xcvr::Slot> const slot(new Inventory::Xcvr::Slot("slot"));
  scene.mirror.toImporter->capacity = 0;
  scene.mirror.out().exportIs(Ptr<Entity>(slot));
  std::size_t const announced = written(scene).size();
  scene.port()->xcvrSlotIs(slot);
  std::string const set = written(scene).substr(announced);
  expectBlock("reference", set, scene.id(scene.port()), scene.id(slot));
  scene.port()->xcvrSlotIs(nullptr);
  expectBlock("null-reference", written(scene).substr(announced + set.size()),
              scene.id(scene.port()));
  scene.give(scene.mirror.toImporter, documented("null-reference", scene.id(scene.port())));
  scene.mirror.turn();
  EXPECT_EQ(scene.mirror.importerClosed, "");
}

TEST(WireDocument, AStringIsCutAtTheSizeLimit) {
  Ptr<Out> const out(new Out({}, nullptr, nullptr, 0));
  Ptr<Connection::Out> const base(out);
  String8 const text("uplink");
  String8::IteratorConst position(text);
  ConnectionOutSizeAnchor const anchor(base);
  out->sizeLimitIs(8);
  MsgHeader header;
  header.entityId = documentEntity;
  header.attributeId = 259;
  while (!position.eot()) {
    out->nextHeaderIs(header);
    out << Token::tokenBegin;
    out << position;
    out << Token::tokenEnd;
  }
  expectBlock("two-pieces", {reinterpret_cast<char const*>(out->committed()), out->committedSize()},
              documentEntity);
}

TEST(WireDocument, MarkersAreWrittenByTheirAdapter) {
  using Type = StreamAdapter::AttrTransactionType;
  std::pair<char const*, Type> const markers[] = {
      {"begin", Type::begin}, {"end", Type::end}, {"abort", Type::abort}};
  for (auto const& [block, type] : markers) {
    Scene scene;
    scene.mirror.toImporter->capacity = 0;
    scene.adapter(scene.slice)->sendTransactionMarker(259, type, 0);
    expectBlock(block, written(scene), scene.id(scene.slice));
  }
}

/// The frames of a stream behind its greeting.
std::vector<std::string> framesOf(std::string const& stream) {
  std::vector<std::string> frames;
  Greeting greeting;
  std::size_t at = FrameParser::greeting(data(stream), stream.size(), greeting);
  while (at != 0 && at < stream.size()) {
    Frame frame;
    std::size_t const size = FrameParser::frame(data(stream) + at, stream.size() - at, frame);
    if (size == 0) break;
    frames.push_back(stream.substr(at, size));
    at += size;
  }
  return frames;
}

TEST(WireDocument, GreetingRootAndTheEndOfATransfer) {
  LinkOptions options;
  options.schemaHash = 0x1122334455667788;
  Ptr<AradSlice> const slice(new AradSlice("s"));
  Mirror mirror(Ptr<Entity>(slice), options);
  mirror.connect();
  mirror.toImporter->capacity = 1 << 20;
  mirror.turn();
  mirror.exporterLink->service(1);
  // Both greetings have crossed: the exporter's stream up to here is in its pipe.
  std::string stream;
  {
    Mirror second(Ptr<Entity>(slice), options);
    second.connect();
    Out& out = **second.out().out();
    stream.assign(reinterpret_cast<char const*>(out.committed()), out.committedSize());
    stream.replace(24, 8, documented("greeting").substr(24, 8));
    expectBlock("greeting", stream, documentEntity);
  }
  stream += std::string(reinterpret_cast<char const*>(mirror.toImporter->bytes.data()),
                        mirror.toImporter->bytes.size());
  std::vector<std::string> const frames = framesOf(stream);
  ASSERT_GT(frames.size(), 4u);
  EntityId const id = slice->moxNboAttrLogSa(Ptr<Out const>(mirror.out().out()))->entityId();
  expectBlock("orphan", frames.front(), id);
  expectBlock("complete", frames.back(), id);
  expectBlock("exports-done", frames[1], id);
  mirror.settle();
  EXPECT_TRUE(mirror.in().inStep());
  EXPECT_EQ(treeText(mirror.copy()), treeText(mirror.root()));

  mirror.toImporter->capacity = 0;
  mirror.out().exportDel(Ptr<Entity>(slice));
  Out& out = **mirror.out().out();
  expectBlock("orphan-withdrawn",
              {reinterpret_cast<char const*>(out.committed()), out.committedSize()}, id);
  EXPECT_EQ(mirror.out().reactorCount(), 0u);
  mirror.toImporter->capacity = 65536;
  mirror.settle();
  EXPECT_EQ(mirror.in().reactorCount(), 0u);
  EXPECT_EQ(mirror.importerClosed, "");
}

TEST(WireDocument, AnAckAndACompoundMessageAreRead) {
  Scene scene;
  comparedBlocks().insert({"ack", "compound", "sync"});
  scene.give(scene.mirror.toExporter, documented("ack"));
  EntityId const newId(0x7777000000000001);
  scene.give(scene.mirror.toImporter, documented("compound", scene.id(scene.arad), newId));
  scene.mirror.turn();
  EXPECT_EQ(scene.mirror.exporterClosed, "");
  EXPECT_EQ(scene.mirror.importerClosed, "");
  auto* const copy = dynamic_cast<AradSlice*>(scene.mirror.copy().get());
  ASSERT_TRUE(copy->fap("f")->port(17));
  EXPECT_NE(scene.mirror.in().reactor(newId), nullptr);
  EXPECT_EQ(scene.mirror.in().stats().unknownAttrs, 0u);

  scene.give(scene.mirror.toImporter, documented("sync", scene.id(scene.slice)));
  Ptr<Entity> const held(copy);
  scene.mirror.turn();
  EXPECT_EQ(scene.mirror.importerClosed, "");
  EXPECT_FALSE(scene.mirror.copy()) << "the mount has ended";
  EXPECT_FALSE(held->parent());
}

/// A demuxer by itself, fed by hand.
struct Hand {
  explicit Hand(LinkOptions const& options = {})
      : demuxer(new Demuxer(prompt(options))), dir(new Dir) {
    demuxer->importDirIs(dir);
    demuxer->begin();
    Out& out = **demuxer->out();
    out.sent(out.committedSize());
  }
  ~Hand() {
    demuxer->close();
    demuxer->emptyGraveyard();
  }
  void feed(std::string const& bytes) {
    demuxer->in()->received().append(bytes.data(), bytes.size());
    demuxer->dispatchReceived();
    demuxer->emptyGraveyard();
  }
  std::string written() const {
    Out& out = **demuxer->out();
    return {reinterpret_cast<char const*>(out.committed()), out.committedSize()};
  }

  Ptr<Demuxer> demuxer;
  Ptr<Dir> dir;
};

TEST(WireDocument, ARefusalIsToldToThePeer) {
  LinkOptions options;
  options.schemaHash = 0x1122334455667788;
  Hand hand(options);
  hand.feed(documented("greeting"));
  ASSERT_TRUE(hand.demuxer->greeted());
  EXPECT_EQ(hand.demuxer->peerName(), "exporter");
  std::string bad = documented("u32");
  bad.back() = 9;
  hand.feed(bad);
  EXPECT_EQ(hand.demuxer->errorCode(), StreamError::badToken);
  expectBlock("error", hand.written(), documentEntity);

  Hand peer(options);
  peer.feed(documented("greeting") + documented("error"));
  EXPECT_EQ(peer.demuxer->errorCode(), StreamError::badToken);
  EXPECT_EQ(peer.demuxer->error(), "log: refused by the peer: " + hand.demuxer->error());
}

TEST(WireDocument, CodesAreNumberedAsTheTableSays) {
  std::map<int, std::string> rows;
  for (std::string const& line : documentLines()) {
    int code = 0;
    char name[32] = "";
    if (std::sscanf(line.c_str(), "| %d | %31[A-Za-z] |", &code, name) == 2 &&
        std::string(name).size() > 1) {
      rows[code] = name;
    }
  }
  EXPECT_EQ(rows.size(), static_cast<std::size_t>(StreamError::badValue));
  for (auto const& [code, name] : rows) {
    EXPECT_EQ(name, streamErrorName(static_cast<StreamError>(code)));
  }
}

// Prefixes and malformed forms.

TEST(WireParser, EveryProperPrefixOfEveryBlockAsksForMore) {
  for (auto const& [name, bytes] : document()) {
    SCOPED_TRACE(name);
    if (name == "greeting") {
      Greeting greeting;
      for (std::size_t size = 0; size < bytes.size(); ++size) {
        ASSERT_EQ(FrameParser::greeting(data(bytes), size, greeting), 0u) << size;
      }
      EXPECT_EQ(FrameParser::greeting(data(bytes), bytes.size(), greeting), bytes.size());
      EXPECT_EQ(hex(greeting.bytes()), hex(bytes));
      continue;
    }
    for (std::size_t begin = 0; begin < bytes.size();) {
      Frame frame;
      std::size_t whole = 0;
      std::size_t size = 0;
      // An exact copy, so that a read behind the end is found by the sanitizer.
      for (; size <= bytes.size() - begin && whole == 0; ++size) {
        std::vector<unsigned char> const part(data(bytes) + begin, data(bytes) + begin + size);
        whole = FrameParser::frame(part.data(), part.size(), frame);
      }
      ASSERT_EQ(whole, size - 1);
      ASSERT_EQ(whole, frame.size());
      begin += whole;
    }
  }
}

struct Malformed {
  char const* what;
  std::size_t offset;
  std::uint64_t value;
  std::size_t width;
  StreamError code;
};

TEST(WireParser, MalformedGreetingsAreRefused) {
  constexpr Malformed cases[] = {
      {"magic's first byte", 0, 'm', 1, StreamError::badGreeting},
      {"magic's line feed", 7, '\r', 1, StreamError::badGreeting},
      {"too short", 8, 41, 2, StreamError::badGreeting},
      {"too long", 8, 1025, 2, StreamError::badGreeting},
      {"major 0", 10, 0, 2, StreamError::badVersion},
      {"major 2", 10, 2, 2, StreamError::badVersion},
      {"minor 7", 12, 7, 2, StreamError::none},
      {"no unified ids", 14, 0x3, 2, StreamError::badGreeting},
      {"small payloads", 32, 65535, 4, StreamError::badGreeting},
      {"least payloads", 32, 65536, 4, StreamError::none},
      {"name behind the end", 40, 9, 2, StreamError::badGreeting},
      {"name of 256", 40, 256, 2, StreamError::badGreeting},
      {"shorter name", 40, 3, 2, StreamError::none},
      {"another schema", 16, 1, 8, StreamError::badSchema},
  };
  LinkOptions options;
  options.schemaHash = 0x1122334455667788;
  for (Malformed const& malformed : cases) {
    std::string bytes = documented("greeting");
    bytes.replace(malformed.offset, malformed.width, number(malformed.value, malformed.width));
    Hand hand(options);
    hand.feed(bytes);
    EXPECT_EQ(hand.demuxer->errorCode(), malformed.code) << malformed.what;
    EXPECT_EQ(hand.demuxer->greeted(), malformed.code == StreamError::none) << malformed.what;
  }
  options.schemaStrict = false;
  std::string bytes = documented("greeting");
  bytes[16] = 0;
  Hand lenient(options);
  lenient.feed(bytes);
  EXPECT_TRUE(lenient.demuxer->greeted());
}

StreamError refusal(std::string const& bytes) {
  Frame frame;
  try {
    FrameParser::frame(data(bytes), bytes.size(), frame);
  } catch (StreamException const& refused) {
    return refused.code();
  }
  return StreamError::none;
}

TEST(WireParser, MalformedFramesAreRefusedAsSoonAsTheirHeaderIsThere) {
  constexpr Malformed cases[] = {
      {"kind 0", 0, 0, 1, StreamError::badHeader},
      {"kind 7", 0, 7, 1, StreamError::badHeader},
      {"trailing flag", 1, 0x2, 1, StreamError::badHeader},
      {"unknown flag", 1, 0x80, 1, StreamError::badHeader},
      {"long payload", 2, maxPayload + 1, 4, StreamError::tooLong},
      {"longest payload", 2, maxPayload, 4, StreamError::none},
      {"negative payload", 2, 0xffffffff, 4, StreamError::tooLong},
      {"token 0", 22, 0, 1, StreamError::badToken},
      {"token 3 for 1", 22, 3, 1, StreamError::badToken},
  };
  for (Malformed const& malformed : cases) {
    std::string bytes = documented("u32").substr(0, headerSize + 1);
    bytes.replace(malformed.offset, malformed.width, number(malformed.value, malformed.width));
    EXPECT_EQ(refusal(bytes), malformed.code) << malformed.what;
  }
}

TEST(WireDocument, ARefusedChangeIsFollowedByARequest) {
  Scene scene;
  scene.mirror.toExporter->capacity = 0;
  dynamic_cast<AradSlice&>(**scene.mirror.copy()).fap("f")->portDel(16);
  Out& out = **scene.mirror.in().out();
  std::string const bytes(reinterpret_cast<char const*>(out.committed()), out.committedSize());
  // Its ack is of no interest here.
  expectBlock("repeat", std::string(bytes).replace(18, 4, number(0, 4)), scene.id(scene.arad));
  scene.mirror.toExporter->capacity = 65536;
  scene.mirror.settle();
  EXPECT_EQ(treeText(scene.mirror.copy()), treeText(scene.mirror.root()));
}

TEST(WireDocument, EveryBlockIsCompared) {
  if (testing::UnitTest::GetInstance()->test_to_run_count() !=
      testing::UnitTest::GetInstance()->total_test_count()) {
    GTEST_SKIP() << "only some tests run";
  }
  for (auto const& [name, bytes] : document()) {
    EXPECT_TRUE(comparedBlocks().contains(name)) << name;
  }
}

}  // namespace
}  // namespace Mox::NboAttrLog::test
