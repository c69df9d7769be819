// The bytes of the attribute log: those of docs/wire-format.md written and read, every prefix and
// every malformed form, hostile peers, mutated recordings.
#include <gtest/gtest.h>

#include <fstream>
#include <functional>
#include <map>
#include <set>

#include "tests/attrlog/Mirror.h"

namespace Mox::NboAttrLog::test {
namespace {

using Hardware::Sand::AradNifSerdesId;
using Inventory::Arad::Arad;
using Inventory::Arad::AradSlice;
using Inventory::Arad::EthPort;
using Token = Connection::Out::TransactToken;

constexpr EntityId documentEntity{0x5ca1ab1e00000101};
constexpr EntityId documentOther{0x5ca1ab1e00000103};

std::string number(std::uint64_t value, std::size_t width) {
  std::string bytes(width, '\0');
  putBytes(reinterpret_cast<unsigned char*>(bytes.data()), value, width);
  return bytes;
}

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

// A tree with one of everything, and its copy.

Ptr<AradSlice> sampleSlice() {
  Ptr<AradSlice> slice(new AradSlice("s"));
  Ptr<Arad> arad = slice->fapIs("f", 4);
  arad->serdesIs(3, false, false, 0, 0, 0);
  arad->qsgmiiIs(0)->descriptionIs("before");
  arad->xlgeIs(3);
  arad->portIs(16, nullptr)->txConnectionIs(8);
  arad->ddrTuneSettingIs("old", "value");
  return slice;
}

struct Scene {
  explicit Scene(LinkOptions const& options = {})
      : slice(sampleSlice()), arad(slice->fap("f")), mirror(Ptr<Entity>(slice), options) {
    mirror.connect();
    mirror.settle();
  }

  Ptr<EthPort> port() const { return arad->port(16); }
  Ptr<Entity::MoxNboAttrLogSa> adapter(Ptr<Entity> const& entity) {
    return entity->moxNboAttrLogSa(Ptr<Out const>(mirror.out().out()));
  }
  EntityId id(Ptr<Entity> const& entity) {
    Ptr<Entity::MoxNboAttrLogSa> const found = adapter(entity);
    return found ? found->entityId() : EntityId();
  }
  /// What stands in the exporter's buffer.
  std::string written() {
    Out& out = **mirror.out().out();
    return {reinterpret_cast<char const*>(out.committed()), out.committedSize()};
  }
  void give(std::shared_ptr<MemoryPipe> const& pipe, std::string const& bytes) {
    pipe->bytes.append(bytes.data(), bytes.size());
  }

  Ptr<AradSlice> slice;
  Ptr<Arad> arad;
  Mirror mirror;
};

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
    expectBlock(golden.block, scene.written(), scene.id(subject),
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
    expectBlock(removal.block, scene.written(), scene.id(removal.subject));
    scene.mirror.settle();
    EXPECT_EQ(treeText(scene.mirror.copy()), treeText(scene.mirror.root()));
  }
}

TEST(WireDocument, AReferenceIsTheIdOfAnAnnouncedEntity) {
  Scene scene;
  Ptr<Inventory::Xcvr::Slot> const slot(new Inventory::Xcvr::Slot("slot"));
  scene.mirror.toImporter->capacity = 0;
  scene.mirror.out().exportIs(Ptr<Entity>(slot));
  std::size_t const announced = scene.written().size();
  scene.port()->xcvrSlotIs(slot);
  std::string const set = scene.written().substr(announced);
  expectBlock("reference", set, scene.id(scene.port()), scene.id(slot));
  scene.port()->xcvrSlotIs(nullptr);
  expectBlock("null-reference", scene.written().substr(announced + set.size()),
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
    expectBlock(block, scene.written(), scene.id(scene.slice));
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

/// Attributes of the sample whose messages have a fixed length.
bool isFixed(FrameKind kind, AttributeId attribute) {
  static std::set<AttributeId> const fixed{258, 135, -276};
  return kind == FrameKind::ack || (kind == FrameKind::message && fixed.contains(attribute));
}

/// A frame, right in all that isn't said.
std::string frameOf(FrameKind kind, EntityId entity, AttributeId attribute,
                    std::string const& payload, std::uint32_t tag = 0, std::uint32_t ack = 0) {
  int flags = isFixed(kind, attribute) ? 0 : 1;
  if (entity == orphanTarget && attribute == orphanAttribute) flags = 0x5;
  if (tag == creationTag) flags = 0xd;
  return number(static_cast<std::uint8_t>(kind), 1) + number(static_cast<unsigned int>(flags), 1) +
         number(payload.size(), 4) + number(entity.value(), 8) +
         number(static_cast<std::uint32_t>(attribute), 4) + number(ack, 4) + number(1, 1) +
         payload + number(3, 1);
}
std::string message(EntityId entity, AttributeId attribute, std::string const& payload,
                    std::uint32_t tag = 0) {
  return frameOf(FrameKind::message, entity, attribute, payload, tag);
}
std::string marker(EntityId entity, AttributeId attribute, std::uint32_t type) {
  return frameOf(FrameKind::marker, entity, attribute, number(type, 4) + number(0, 4));
}
std::string text(std::string const& bytes) { return number(bytes.size(), 4) + bytes; }
std::string more(std::string const& bytes) { return number(0x80000000u | bytes.size(), 4) + bytes; }
std::string with(std::string frame, std::size_t offset, std::uint64_t value, std::size_t width) {
  return frame.replace(offset, width, number(value, width));
}

std::string orphanOf(EntityId id, std::string const& name, std::string const& type) {
  std::string const typeText = text(type);
  std::string const args = text(name);
  return number(1, 1) + number(typeText.size(), 4) + typeText + number(3, 1) +
         number(args.size(), 4) + args + number(4, 1) + number(8, 4) + number(id.value(), 8);
}

constexpr char sliceType[] = "Inventory::Arad::AradSlice";
constexpr EntityId freshId{0x7777000000000011};

/// What a hostile peer says to an importer whose tree is in step.
struct Hostile {
  char const* what;
  StreamError code;
  std::string (*bytes)(Scene& scene);
};

EntityId slice(Scene& s) { return s.id(s.slice); }
EntityId arad(Scene& s) { return s.id(s.arad); }
EntityId qsgmii(Scene& s) { return s.id(s.arad->qsgmii(0)); }
EntityId xlge(Scene& s) { return s.id(s.arad->xlge(3)); }
EntityId port(Scene& s) { return s.id(s.port()); }
std::string id(EntityId value) { return number(value.value(), 8); }

Hostile const hostiles[] = {
    // Headers.
    {"end token", StreamError::badToken,
     [](Scene& s) {
       std::string bytes = message(slice(s), 258, number(1, 4));
       bytes.back() = 1;
       return bytes;
     }},
    {"even id", StreamError::badId,
     [](Scene& s) { return message(EntityId(slice(s).value() + 1), 258, number(1, 4)); }},
    {"id 0", StreamError::badId, [](Scene&) { return message(EntityId(), 258, number(1, 4)); }},
    {"tag on a number", StreamError::badHeader,
     [](Scene& s) { return message(slice(s), 258, number(1, 4), creationTag); }},
    {"tag on a removal", StreamError::badHeader,
     [](Scene& s) { return message(arad(s), -522, number(16, 2), creationTag); }},
    {"child without a tag", StreamError::badHeader,
     [](Scene& s) { return message(arad(s), 522, number(17, 2) + number(0, 8) + id(freshId)); }},
    {"full transfer of nothing", StreamError::badHeader,
     [](Scene& s) { return with(message(slice(s), 258, number(1, 4)), 1, 5, 1); }},
    {"tag on a marker", StreamError::badHeader,
     [](Scene& s) { return with(marker(arad(s), 522, 0), 1, 0x9, 1); }},
    {"ack about an entity", StreamError::badHeader,
     [](Scene& s) { return frameOf(FrameKind::ack, slice(s), 0, ""); }},
    {"ack with a payload", StreamError::badLength,
     [](Scene&) { return frameOf(FrameKind::ack, EntityId(), 0, "x"); }},
    {"ack of what wasn't sent", StreamError::badAck,
     [](Scene&) { return frameOf(FrameKind::ack, EntityId(), 0, "", 0, 1); }},
    {"ack of minus one", StreamError::badAck,
     [](Scene& s) { return with(message(slice(s), 258, number(1, 4)), 18, 0xffffffff, 4); }},
    {"complete with a payload", StreamError::badLength,
     [](Scene& s) { return frameOf(FrameKind::complete, slice(s), 0, "x"); }},
    {"complete of an even id", StreamError::badId,
     [](Scene&) { return frameOf(FrameKind::complete, EntityId(8), 0, ""); }},

    // Lengths.
    {"short number", StreamError::badLength,
     [](Scene& s) { return message(slice(s), 258, number(1, 3)); }},
    {"long number", StreamError::badLength,
     [](Scene& s) { return message(slice(s), 258, number(1, 5)); }},
    {"empty number", StreamError::badLength, [](Scene& s) { return message(slice(s), 258, ""); }},
    {"short text", StreamError::badLength,
     [](Scene& s) { return message(arad(s), 540, number(9, 4) + "12345678"); }},
    {"text of 4 GiB", StreamError::badLength,
     [](Scene& s) { return message(arad(s), 540, number(0xffffffff, 4) + "x"); }},
    {"bytes behind a text", StreamError::badLength,
     [](Scene& s) { return message(arad(s), 540, text("peer") + "x"); }},
    {"short piece", StreamError::badLength,
     [](Scene& s) { return message(qsgmii(s), 259, number(9, 4) + "12345678"); }},
    {"bytes behind a piece", StreamError::badLength,
     [](Scene& s) { return message(qsgmii(s), 259, text("up") + "x"); }},
    {"piece without its word", StreamError::badLength,
     [](Scene& s) { return message(qsgmii(s), 259, number(0, 3)); }},
    {"key without its value", StreamError::badLength,
     [](Scene& s) { return message(xlge(s), 260, number(4, 2)); }},
    {"bytes behind a value", StreamError::badLength,
     [](Scene& s) { return message(xlge(s), 260, number(4, 2) + number(1, 2)); }},
    {"bytes behind a removed key", StreamError::badLength,
     [](Scene& s) { return message(arad(s), -522, number(16, 3)); }},
    {"bytes behind a removed child", StreamError::badLength,
     [](Scene& s) { return message(port(s), -276, "x"); }},
    {"key behind the end", StreamError::badLength,
     [](Scene& s) { return message(arad(s), 523, number(99, 4) + "key"); }},
    {"child without its id", StreamError::badLength,
     [](Scene& s) { return message(arad(s), 522, number(17, 2) + number(0, 8), creationTag); }},
    {"bytes behind a child's id", StreamError::badLength,
     [](Scene& s) {
       return message(arad(s), 522, number(17, 2) + number(0, 8) + id(freshId) + "x", creationTag);
     }},
    {"short marker", StreamError::badLength,
     [](Scene& s) { return frameOf(FrameKind::marker, arad(s), 522, number(0, 7)); }},
    {"long marker", StreamError::badLength,
     [](Scene& s) {
       return frameOf(FrameKind::marker, arad(s), 522, number(0, 8) + number(0, 1));
     }},
    {"compound behind the end", StreamError::badLength,
     [](Scene& s) { return message(arad(s), 144, number(400, 2) + number(0, 2) + number(7, 4)); }},
    {"key end behind the end", StreamError::badLength,
     [](Scene& s) {
       return message(arad(s), 144,
                      number(8, 2) + number(60000, 2) + number(522, 4) + number(0, 4) +
                          number(17, 2) + number(0, 8) + id(freshId));
     }},

    {"number of unknown length", StreamError::badHeader,
     [](Scene& s) { return with(message(slice(s), 258, number(1, 4)), 1, 1, 1); }},
    {"string of known length", StreamError::badHeader,
     [](Scene& s) { return with(message(qsgmii(s), 259, text("x")), 1, 0, 1); }},
    {"removed child of known length", StreamError::badHeader,
     [](Scene& s) { return with(message(arad(s), -522, number(16, 2)), 1, 0, 1); }},
    {"least of all attributes", StreamError::badHeader,
     [](Scene& s) { return message(slice(s), static_cast<AttributeId>(0x80000000), ""); }},
    {"request by the end that owns the tree", StreamError::notPermitted,
     [](Scene& s) { return frameOf(FrameKind::repeat, slice(s), 258, ""); }},

    // Ids and references.
    {"child of an even id", StreamError::badId,
     [](Scene& s) {
       return message(arad(s), 522, number(17, 2) + number(0, 8) + number(8, 8), creationTag);
     }},
    {"child of id 1", StreamError::badId,
     [](Scene& s) {
       return message(arad(s), 522, number(17, 2) + number(0, 8) + number(1, 8), creationTag);
     }},
    {"child with its parent's id", StreamError::badId,
     [](Scene& s) {
       return message(arad(s), 522, number(17, 2) + number(0, 8) + id(arad(s)), creationTag);
     }},
    {"child with its sibling's id", StreamError::badId,
     [](Scene& s) {
       return message(arad(s), 522, number(17, 2) + number(0, 8) + id(port(s)), creationTag);
     }},
    {"singleton with the root's id", StreamError::badId,
     [](Scene& s) { return message(port(s), 276, number(9, 4) + id(slice(s)), creationTag); }},
    {"reference to nothing known", StreamError::badId,
     [](Scene& s) { return message(port(s), 260, id(freshId)); }},
    {"reference to another type", StreamError::badValue,
     [](Scene& s) { return message(port(s), 260, id(qsgmii(s))); }},

    // Roots.
    {"unknown message for the target of roots", StreamError::badOrphan,
     [](Scene&) { return message(orphanTarget, 137, ""); }},
    {"sections in another order", StreamError::badOrphan,
     [](Scene&) {
       return message(orphanTarget, 136, with(orphanOf(freshId, "n", sliceType), 0, 3, 1));
     }},
    {"section behind the end", StreamError::badOrphan,
     [](Scene&) {
       return message(orphanTarget, 136, with(orphanOf(freshId, "n", sliceType), 1, 999, 4));
     }},
    {"section with a rest", StreamError::badOrphan,
     [](Scene&) {
       std::string payload = orphanOf(freshId, "n", sliceType);
       std::size_t const args = 5 + text(sliceType).size();
       return message(orphanTarget, 136, with(payload, args + 1, 6, 4).insert(args + 5 + 5, "x"));
     }},
    {"bytes behind the sections", StreamError::badOrphan,
     [](Scene&) { return message(orphanTarget, 136, orphanOf(freshId, "n", sliceType) + "x"); }},
    {"root of an even id", StreamError::badId,
     [](Scene&) { return message(orphanTarget, 136, orphanOf(EntityId(8), "n", sliceType)); }},
    {"root of id 1", StreamError::badId,
     [](Scene&) { return message(orphanTarget, 136, orphanOf(orphanTarget, "n", sliceType)); }},
    {"root with an id in use", StreamError::badId,
     [](Scene& s) { return message(orphanTarget, 136, orphanOf(port(s), "n", sliceType)); }},
    {"withdrawal of no root", StreamError::badOrphan,
     [](Scene& s) { return message(orphanTarget, -136, id(port(s))); }},
    {"short withdrawal", StreamError::badLength,
     [](Scene&) { return message(orphanTarget, -136, number(9, 7)); }},

    // Pieces.
    {"empty piece with more to come", StreamError::badPiece,
     [](Scene& s) { return message(qsgmii(s), 259, more("")); }},
    {"two open values under two keys", StreamError::badPiece,
     [](Scene& s) {
       return message(arad(s), 523, text("a") + more("x")) +
              message(arad(s), 523, text("b") + more("x"));
     }},
    {"two open values of two attributes", StreamError::badPiece,
     [](Scene& s) {
       return message(arad(s), 523, text("a") + more("x")) +
              message(arad(s), 527, text("a") + more("x"));
     }},
    {"whole value while another attribute's is open", StreamError::badPiece,
     [](Scene& s) {
       return message(arad(s), 523, text("a") + more("x")) +
              message(arad(s), 527, text("b") + text("x"));
     }},
    {"abort of another attribute", StreamError::badPiece,
     [](Scene& s) {
       return message(arad(s), 523, text("a") + more("x")) + marker(arad(s), 527, 1);
     }},

    // Markers.
    {"marker 3", StreamError::badMarker, [](Scene& s) { return marker(arad(s), 522, 3); }},
    {"begin of a number", StreamError::badMarker,
     [](Scene& s) { return marker(slice(s), 258, 0); }},
    {"begin of nothing", StreamError::badMarker,
     [](Scene& s) { return marker(slice(s), 9999, 0); }},
    {"begin twice", StreamError::badMarker,
     [](Scene& s) { return marker(arad(s), 522, 0) + marker(arad(s), 522, 0); }},
    {"end without begin", StreamError::badMarker, [](Scene& s) { return marker(arad(s), 522, 2); }},
    {"end of another collection", StreamError::badMarker,
     [](Scene& s) { return marker(arad(s), 522, 0) + marker(arad(s), 516, 2); }},
    {"end with an open value", StreamError::badMarker,
     [](Scene& s) {
       return marker(arad(s), 523, 0) + message(arad(s), 523, text("a") + more("x")) +
              marker(arad(s), 523, 2);
     }},
    {"abort of a number", StreamError::badMarker,
     [](Scene& s) { return marker(slice(s), 258, 1); }},
    {"abort of children", StreamError::badMarker, [](Scene& s) { return marker(arad(s), 522, 1); }},

    // Values.
    {"key out of range", StreamError::badValue,
     [](Scene& s) { return message(arad(s), 518, number(0x7fff, 2) + id(freshId), creationTag); }},
    {"removed key out of range", StreamError::badValue,
     [](Scene& s) { return message(arad(s), -518, number(0x7fff, 2)); }},
    {"clock of another role", StreamError::badValue,
     [](Scene& s) {
       std::string const type = text("Inventory::Si5327");
       std::string const args = text("clock") + number(7, 4);
       return message(orphanTarget, 136,
                      number(1, 1) + number(type.size(), 4) + type + number(3, 1) +
                          number(args.size(), 4) + args + number(4, 1) + number(8, 4) +
                          id(freshId)) +
              message(arad(s), 536, id(freshId));
     }},
    {"unknown mode", StreamError::badValue,
     [](Scene& s) { return message(slice(s), 135, number(4, 4)); }},
};

TEST(WireHostile, AnImporterRefusesWithItsTreeUntouchedAndTheOtherEndLives) {
  for (Hostile const& hostile : hostiles) {
    SCOPED_TRACE(hostile.what);
    Scene scene;
    Mirror& mirror = scene.mirror;
    std::string const before = treeText(mirror.copy());
    std::string const bytes = hostile.bytes(scene);
    scene.give(mirror.toImporter, bytes);
    mirror.turn();
    std::string const expected =
        std::string("log: ") + streamErrorName(hostile.code) + " at stream offset ";
    EXPECT_TRUE(mirror.importerClosed.starts_with(expected)) << mirror.importerClosed;
    EXPECT_EQ(mirror.importerLink->end(), Link::End::refused);
    EXPECT_EQ(mirror.importerLink->error(), mirror.importerClosed);
    EXPECT_EQ(treeText(mirror.copy()), before);
    // The exporter hears why, and serves the next connection.
    mirror.settle();
    EXPECT_EQ(mirror.exporterClosed, "log: refused by the peer: " + mirror.importerClosed);
    EXPECT_EQ(treeText(mirror.root()), before);
    mirror.connect();
    mirror.settle();
    EXPECT_TRUE(mirror.in().inStep());
    EXPECT_EQ(treeText(mirror.copy()), before);
  }
}

TEST(WireHostile, AnExporterThatGrantsNothingRefusesEveryChange) {
  Hostile const writes[] = {
      {"number", StreamError::notPermitted,
       [](Scene& s) { return message(slice(s), 258, number(9, 4)); }},
      {"removal", StreamError::notPermitted,
       [](Scene& s) { return message(arad(s), -522, number(16, 2)); }},
      {"begin", StreamError::notPermitted, [](Scene& s) { return marker(arad(s), 522, 0); }},
      {"unknown attribute", StreamError::notPermitted,
       [](Scene& s) { return message(arad(s), 9999, ""); }},
      {"mode", StreamError::notPermitted,
       [](Scene& s) { return message(slice(s), 135, number(1, 4)); }},
      {"ack going back", StreamError::badAck,
       [](Scene&) {
         return frameOf(FrameKind::ack, EntityId(), 0, "", 0, 5) +
                frameOf(FrameKind::ack, EntityId(), 0, "", 0, 4);
       }},
      {"ack of what wasn't sent", StreamError::badAck,
       [](Scene&) { return frameOf(FrameKind::ack, EntityId(), 0, "", 0, 1000000); }},
  };
  for (Hostile const& hostile : writes) {
    SCOPED_TRACE(hostile.what);
    Scene scene;
    Mirror& mirror = scene.mirror;
    std::string const before = treeText(mirror.root());
    scene.give(mirror.toExporter, hostile.bytes(scene));
    mirror.turn();
    EXPECT_EQ(mirror.exporterLink->demuxer().errorCode(), hostile.code) << mirror.exporterClosed;
    EXPECT_EQ(treeText(mirror.root()), before);
  }
}

TEST(WireHostile, AnExporterThatGrantsWritesStillOwnsTheMode) {
  LinkOptions options;
  options.grantsWrite = options.wantsWrite = true;
  Scene scene(options);
  auto const write = [&](AttributeId attribute, unsigned int value) {
    std::string const frame = message(slice(scene), attribute, number(value, 4));
    scene.give(scene.mirror.toExporter, with(frame, 18, scene.mirror.in().host().exchange.framesBegun(), 4));
  };
  write(258, 9);
  write(135, 1);
  scene.mirror.turn();
  EXPECT_EQ(scene.slice->numPorts(), 9u);
  EXPECT_EQ(scene.mirror.exporterLink->demuxer().errorCode(), StreamError::notPermitted);
}

TEST(WireHostile, WhatIsUnknownIsCountedAndPassedOver) {
  Scene scene;
  Mirror& mirror = scene.mirror;
  std::string const before = treeText(mirror.copy());
  EntityId const lane = scene.id(scene.arad->serdes(3));
  std::string bytes =
      message(freshId, 258, number(1, 4)) + marker(freshId, 522, 0) +
      frameOf(FrameKind::complete, freshId, 0, "") + message(orphanTarget, -136, id(freshId)) +
      message(slice(scene), 9999, "xyz") + message(slice(scene), -9999, "") +
      message(arad(scene), 257, number(1, 4)) + message(arad(scene), -522, number(99, 2)) +
      message(lane, -266, number(77, 4)) + marker(qsgmii(scene), 259, 1);
  scene.give(mirror.toImporter, bytes);
  mirror.turn();
  EXPECT_EQ(mirror.importerClosed, "");
  EXPECT_EQ(treeText(mirror.copy()), before);
  EXPECT_EQ(mirror.in().stats().strays, 4u);
  EXPECT_EQ(mirror.in().stats().unknownAttrs, 3u);
  EXPECT_EQ(mirror.in().stats().handlerExceptions, 1u) << "the removal of an unknown mode";
  EXPECT_EQ(mirror.in().stats().unknownEnums, 0u);
}

TEST(WireHostile, WhatIsNotTakenIsReadAsNullAndReportedOnce) {
  Scene scene;
  Mirror& mirror = scene.mirror;
  EntityId const root{0x7777000000000021};
  EntityId const child{0x7777000000000023};
  EntityId const grandchild{0x7777000000000025};
  std::string bytes = message(orphanTarget, 136, orphanOf(root, "n", "No::Such"));
  // A child of an attribute that this end doesn't have, and a child of that.
  bytes += message(arad(scene), 9998, number(1, 4) + id(child), creationTag);
  bytes += message(child, 9997, number(1, 4) + id(grandchild), creationTag);
  bytes += message(arad(scene), 9998, number(2, 4) + id(child), creationTag);
  bytes += message(arad(scene), 257, number(1, 4));
  for (EntityId const target : {root, child, grandchild}) {
    bytes += message(port(scene), 260, id(target));
  }
  scene.give(mirror.toImporter, bytes);
  mirror.turn();
  EXPECT_EQ(mirror.importerClosed, "");
  EXPECT_FALSE(dynamic_cast<AradSlice&>(**mirror.copy()).fap("f")->port(16)->xcvrSlot());
  EXPECT_EQ(mirror.in().stats().refusedOrphans, 1u);
  EXPECT_EQ(mirror.in().stats().strays, 1u);
  EXPECT_EQ(mirror.in().stats().unknownAttrs, 3u);
  EXPECT_EQ(mirror.importerReports,
            (std::vector<std::string>{
                "exporter: connected",
                "exporter: passes over attribute 9998 of Inventory::Arad::Arad",
                "exporter: passes over attribute 257 of Inventory::Arad::Arad",
            }));
}

TEST(WireDocument, ARefusedChangeIsFollowedByARequest) {
  Scene scene;
  scene.mirror.toExporter->capacity = 0;
  dynamic_cast<AradSlice&>(**scene.mirror.copy()).fap("f")->portDel(16);
  Out& out = **scene.mirror.in().out();
  std::string const bytes(reinterpret_cast<char const*>(out.committed()), out.committedSize());
  // Its ack is of no interest here.
  expectBlock("repeat", with(bytes, 18, 0, 4), scene.id(scene.arad));
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
