// A connection's bytes as lines of text: for captures, and for traces that tests compare. It makes
// no entity; what it knows of them, it knows from the frames that it has seen.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <string>

#include "attrlog/wire/FrameParser.h"
#include "attrlog/wire/WireSchema.h"

namespace MOX_API Mox {
namespace NboAttrLog {

/// Each line begins with a word for what it is:
///
///     greeting 'inventoryd': exports, protocol 1, schema 67f3eaa9e2b6b4ea, payloads to 16777216
///     root slice: Inventory::Arad::AradSlice('slice')
///     root withdrawn slice
///     set PATH.attribute = VALUE                 a scalar, a reference; [KEY] in a collection
///     piece PATH.attribute: N bytes VALUE        more is to come; `last piece` ends the value
///     child PATH/attribute[KEY]: TYPE(ARGUMENTS)
///     del PATH.attribute[KEY]                    a value; del PATH/attribute[KEY]: a child
///     begin PATH.attribute                       also end, abort
///     repeat PATH.attribute[KEY]                 a request to say it again
///     complete PATH                              also: complete all roots
///     ack
///     error CODE: 'TEXT'
///     sync PATH: mode N
///     message ENTITY attribute N: BYTES          what isn't understood
///
/// Paths and values are as in a dump; an entity that no frame has announced is shown by its id.
/// With `Options::header` a line ends with the frame's header: `{entity ID, attribute N, …}`.
class StreamText {
 public:
  enum class Direction : std::uint8_t { sent, received };
  struct Options {
    bool header = true;
    /// Texts are cut here; 0: nowhere.
    std::size_t mostText = 80;
  };
  using Write = std::function<void(Direction direction, std::string const& line)>;

  explicit StreamText(Write write) : StreamText(std::move(write), Options()) {}
  StreamText(Write write, Options const& options) : write_(std::move(write)), options_(options) {}

  /// Takes the next bytes of one direction; writes a line for each whole greeting and frame. Bytes
  /// that are no stream are told once, and no more of that direction is read.
  void feed(Direction direction, unsigned char const* bytes, std::size_t size);
  /// No more bytes will come: tells what is left of an unfinished frame.
  void end(Direction direction);

  /// The line of one frame, for observers that have it already.
  std::string frameLine(Direction direction, Frame const& frame);

 private:
  struct Known {
    std::string path;
    WireType const* type;
  };
  struct Side {
    std::string rest;
    std::uint64_t offset = 0;
    bool isGreeted = false;
    bool isBroken = false;
    std::uint32_t ack = 0;
    std::set<EntityId> openStrings;
  };

  Side& side(Direction direction) { return sides_[static_cast<std::size_t>(direction)]; }
  std::size_t next(Direction direction, unsigned char const* bytes, std::size_t size);
  std::string content(Side& side, Frame const& frame);
  std::string message(Side& side, Frame const& frame);
  std::string attribute(Side& side, Frame const& frame, Known const& entity, WireAttr const& attr);
  std::string text(Side& side, Frame const& frame, std::string const& place, In& in);
  std::string root(Frame const& frame);
  std::string marker(Side& side, Frame const& frame);
  std::string repeat(Frame const& frame);
  std::string rawMessage(Frame const& frame) const;
  std::string header(Side& side, Frame const& frame) const;
  std::string arguments(WireArgs const& args, In& in) const;
  std::string value(NextText next, In& in) const;
  std::string cut(std::string const& text) const;
  std::string nameOf(EntityId id) const;

  Write write_;
  Options options_;
  Side sides_[2];
  std::map<EntityId, Known> known_;
};

}  // namespace NboAttrLog
}  // namespace Mox
