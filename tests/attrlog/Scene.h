// A tree with one of everything, its copy, and streams written as text for the copy's end or the
// tree's: what the tests of bytes share.
#pragma once

#include <map>
#include <sstream>

#include "tests/attrlog/Mirror.h"

namespace Mox::NboAttrLog::test {

inline constexpr EntityId freshId{0x7777000000000011};

inline std::string number(std::uint64_t value, std::size_t width) {
  std::string bytes(width, '\0');
  putBytes(reinterpret_cast<unsigned char*>(bytes.data()), value, width);
  return bytes;
}

struct Scene {
  explicit Scene(LinkOptions const& options = {})
      : slice(new Inventory::Arad::AradSlice("s")),
        arad(slice->fapIs("f", 4)),
        mirror(Ptr<Entity>(slice), options) {
    arad->serdesIs(3, false, false, 0, 0, 0)
        ->jerichoNifSerdesTuningIs(Hardware::Sand::serdesTuningCopper);
    arad->qsgmiiIs(0)->descriptionIs("before");
    arad->xlgeIs(3);
    arad->cgeIs(3)->serdesAllocatedIs(4, true);
    arad->portIs(16, nullptr)->txConnectionIs(8);
    arad->ddrTuneSettingIs("old", "value");
    mirror.connect();
    mirror.settle();
  }
  static LinkOptions writable() {
    LinkOptions options;
    options.grantsWrite = options.wantsWrite = true;
    return options;
  }

  Ptr<Inventory::Arad::EthPort> port() const { return arad->port(16); }
  Inventory::Arad::AradSlice& copy() {
    return dynamic_cast<Inventory::Arad::AradSlice&>(**mirror.copy());
  }
  Ptr<Entity::MoxNboAttrLogSa> adapter(Ptr<Entity> const& entity) {
    return entity->moxNboAttrLogSa(Ptr<Out const>(mirror.out().out()));
  }
  EntityId id(Ptr<Entity> const& entity) {
    Ptr<Entity::MoxNboAttrLogSa> const found = adapter(entity);
    return found ? found->entityId() : EntityId();
  }
  EntityId id(std::string const& name) {
    if (name == "slice") return id(Ptr<Entity>(slice));
    if (name == "arad") return id(Ptr<Entity>(arad));
    if (name == "lane") return id(Ptr<Entity>(arad->serdes(3)));
    if (name == "qsgmii") return id(Ptr<Entity>(arad->qsgmii(0)));
    if (name == "xlge") return id(Ptr<Entity>(arad->xlge(3)));
    if (name == "cge") return id(Ptr<Entity>(arad->cge(3)));
    if (name == "port") return id(Ptr<Entity>(port()));
    if (name == "roots") return orphanTarget;
    // The others are numbers from `fresh` on.
    if (name.starts_with("fresh")) return EntityId(freshId.value() + 2 * (name.size() - 5));
    return EntityId(std::stoull(name));
  }

  /// The frames of a stream, " ; " between them: `[KIND] ENTITY ATTRIBUTE`, then in any order
  /// `tag`, `flags=N`, `ack=N`, `token=N` (the last), and the payload's parts `uWIDTH=N`, `text=`,
  /// `more=`, `raw=`, `id=ENTITY`, `list=KEYEND:ID:...`, `begin`, `abort`, `end`.
  std::string stream(std::string const& text) {
    std::istringstream words(text);
    std::string bytes;
    while (words) bytes += frame(words);
    return bytes;
  }
  /// To the copy's end, as the exporter.
  void tell(std::string const& text) { give(mirror.toImporter, stream(text)); }
  static void give(std::shared_ptr<MemoryPipe> const& pipe, std::string const& bytes) {
    pipe->bytes.append(bytes.data(), bytes.size());
  }

  Ptr<Inventory::Arad::AradSlice> slice;
  Ptr<Inventory::Arad::Arad> arad;
  Mirror mirror;

 private:
  std::string frame(std::istringstream& words) {
    static std::map<std::string, FrameKind> const kinds{{"marker", FrameKind::marker},
                                                        {"complete", FrameKind::complete},
                                                        {"ack", FrameKind::ack},
                                                        {"repeat", FrameKind::repeat}};
    std::string word;
    words >> word;
    auto const named = kinds.find(word);
    FrameKind const kind = named == kinds.end() ? FrameKind::message : named->second;
    if (named != kinds.end()) words >> word;
    EntityId const entity = id(word);
    AttributeId attribute = 0;
    words >> attribute;
    // Numbers of the scene's types have a fixed length, and so has the mode.
    bool const isFixed = kind == FrameKind::ack ||
                         (kind == FrameKind::message && ((attribute == 258 && word != "arad") ||
                                                         attribute == 135 || attribute == -276));
    unsigned long flags = isFixed ? 0 : 1;
    if (entity == orphanTarget && attribute == orphanAttribute) flags = 5;
    unsigned long ack = 0;
    unsigned long end = 3;
    std::string payload;
    while (words >> word && word != ";") {
      std::size_t const equals = word.find('=');
      std::string const name = word.substr(0, equals);
      std::string const value = equals == word.npos ? "" : word.substr(equals + 1);
      if (name == "tag") flags = entity == orphanTarget ? 5 : 13;
      if (name == "flags") flags = std::stoul(value);
      if (name == "ack") ack = std::stoul(value);
      if (name == "token") end = std::stoul(value);
      payload += part(name, value);
    }
    return number(static_cast<std::uint8_t>(kind), 1) + number(flags, 1) +
           number(payload.size(), 4) + number(entity.value(), 8) +
           number(static_cast<std::uint32_t>(attribute), 4) + number(ack, 4) + number(1, 1) +
           payload + number(end, 1);
  }
  std::string part(std::string const& name, std::string const& value) {
    if (name == "text") return number(value.size(), 4) + value;
    if (name == "more") return number(0x80000000u | value.size(), 4) + value;
    if (name == "raw") return value;
    if (name == "id") return number(id(value).value(), 8);
    if (name == "begin") return number(0, 8);
    if (name == "abort") return number(1, 4) + number(0, 4);
    if (name == "end") return number(2, 4) + number(0, 4);
    if (name == "list") {
      std::istringstream numbers(value);
      std::string ids;
      std::string each;
      std::getline(numbers, each, ':');
      unsigned long const keyEnd = std::stoul(each);
      while (std::getline(numbers, each, ':')) {
        ids += number(static_cast<std::uint32_t>(std::stoi(each)), 4);
      }
      return number(4 + ids.size(), 2) + number(keyEnd, 2) + ids;
    }
    if (name.size() == 2 && name[0] == 'u') {
      return number(std::stoull(value), static_cast<std::size_t>(name[1] - '0'));
    }
    return {};
  }
};

}  // namespace Mox::NboAttrLog::test
