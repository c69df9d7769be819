// Greetings and frames as lines.
#include "attrlog/wire/StreamText.h"

#include "attrlog/wire/ShownText.h"

#include <algorithm>
#include <utility>

namespace Mox::NboAttrLog {
namespace {

std::string stdText(String8 const& text) { return {text.charPtr(), text.length()}; }

std::string hexText(std::uint64_t value) {
  constexpr char digits[] = "0123456789abcdef";
  std::string result;
  do {
    result.insert(result.begin(), digits[value & 15]);
    value >>= 4;
  } while (value != 0);
  return result;
}

/// A cursor over a payload that belongs to no connection.
Ptr<In> payloadOf(Frame const& frame) {
  Ptr<In> in(new In({}));
  in->payloadIs(frame.payload, frame.payloadSize);
  return in;
}

/// Nothing may stand behind what was read.
void payloadEnd(In const& in) {
  if (in.bytesAvailable() != 0) throw StreamException(StreamError::badLength);
}

std::string greetingLine(Greeting const& greeting) {
  std::string line = "greeting '" + shownText(greeting.peerName) + "':";
  constexpr std::pair<Greeting::Bits, char const*> bits[] = {
      {Greeting::exports, " exports,"},
      {Greeting::imports, " imports,"},
      {Greeting::grantsWrite, " grants write,"},
      {Greeting::wantsWrite, " wants to write,"},
  };
  for (auto const& [bit, word] : bits) line += (greeting.bits & bit) != 0 ? word : "";
  return line + " protocol " + std::to_string(Greeting::major) + ", schema " +
         hexText(greeting.schemaHash) + ", payloads to " + std::to_string(greeting.maxPayload);
}

}  // namespace

void StreamText::feed(Direction direction, unsigned char const* bytes, std::size_t size) {
  Side& side = this->side(direction);
  if (side.isBroken) return;
  side.rest.append(reinterpret_cast<char const*>(bytes), size);
  std::size_t at = 0;
  try {
    for (;;) {
      auto const* const from = reinterpret_cast<unsigned char const*>(side.rest.data()) + at;
      std::size_t const taken = next(direction, from, side.rest.size() - at);
      if (taken == 0) break;
      at += taken;
      side.offset += taken;
    }
  } catch (StreamException const& refused) {
    side.isBroken = true;
    write_(direction, std::string("not a stream: ") + refused.what() + " at offset " +
                          std::to_string(side.offset));
    at = side.rest.size();
  }
  side.rest.erase(0, at);
}

std::size_t StreamText::next(Direction direction, unsigned char const* bytes, std::size_t size) {
  Side& side = this->side(direction);
  if (!side.isGreeted) {
    Greeting greeting;
    std::size_t const taken = size == 0 ? 0 : FrameParser::greeting(bytes, size, greeting);
    if (taken != 0) {
      side.isGreeted = true;
      write_(direction, greetingLine(greeting));
    }
    return taken;
  }
  Frame frame;
  std::size_t const taken = FrameParser::frame(bytes, size, frame);
  if (taken != 0) write_(direction, frameLine(direction, frame));
  return taken;
}

void StreamText::end(Direction direction) {
  Side& side = this->side(direction);
  if (side.isBroken || side.rest.empty()) return;
  side.isBroken = true;
  write_(direction, "cut: " + std::to_string(side.rest.size()) + " bytes of an unfinished " +
                        (side.isGreeted ? "frame" : "greeting") + " at offset " +
                        std::to_string(side.offset));
}

std::string StreamText::frameLine(Direction direction, Frame const& frame) {
  Side& side = this->side(direction);
  std::string line;
  try {
    line = content(side, frame);
  } catch (std::exception const& unreadable) {
    // A value that its type refuses, or a payload of another length.
    line = rawMessage(frame) + " (" + shownText(unreadable.what()) + ")";
  }
  if (options_.header) line += header(side, frame);
  side.ack = frame.ack;
  return line;
}

std::string StreamText::content(Side& side, Frame const& frame) {
  switch (frame.kind) {
    case FrameKind::message:
      return message(side, frame);
    case FrameKind::marker:
      return marker(side, frame);
    case FrameKind::ack:
      return "ack";
    case FrameKind::complete:
      return frame.entityId == orphanTarget ? "complete all roots"
                                            : "complete " + nameOf(frame.entityId);
    case FrameKind::repeat:
      return repeat(frame);
    case FrameKind::error: {
      Ptr<In> const in = payloadOf(frame);
      auto const code = static_cast<StreamError>(frame.attributeId);
      return std::string("error ") + streamErrorName(code) + ": " +
             cut(stdText(textOf(in->nextString())));
    }
  }
  return rawMessage(frame);
}

std::string StreamText::message(Side& side, Frame const& frame) {
  if (frame.entityId == orphanTarget) {
    if (frame.attributeId == orphanAttribute) return root(frame);
    if (frame.attributeId == -orphanAttribute) {
      Ptr<In> const in = payloadOf(frame);
      EntityId const id = in->nextEntityId();
      payloadEnd(**in);
      return "root withdrawn " + nameOf(id);
    }
    return rawMessage(frame);
  }
  auto const entity = known_.find(frame.entityId);
  if (entity == known_.end()) return rawMessage(frame);
  if (frame.attributeId == syncAttribute) {
    Ptr<In> const in = payloadOf(frame);
    return "sync " + entity->second.path + ": mode " + std::to_string(in->nextU32());
  }
  AttributeId const id = frame.attributeId < 0 ? -frame.attributeId : frame.attributeId;
  WireType const* const type = entity->second.type;
  WireAttr const* const attr = type ? type->attr(id) : nullptr;
  // A copy: a child that is announced goes into the same table.
  Known const owner = entity->second;
  return attr ? attribute(side, frame, owner, *attr) : rawMessage(frame);
}

std::string StreamText::attribute(Side& side, Frame const& frame, Known const& entity,
                                  WireAttr const& attr) {
  Ptr<In> const held = payloadOf(frame);
  In& in = **held;
  bool const ownsChildren = attr.childType != nullptr;
  std::string place = entity.path + (ownsChildren ? "/" : ".") + attr.row.name;
  unsigned char const* const front = in.position();
  if (attr.key) place += "[" + shownText(stdText(attr.key(in))) + "]";
  if (frame.attributeId < 0) {
    payloadEnd(in);
    return "del " + place;
  }
  if (ownsChildren) {
    in.positionIs(front);
    std::string const args = arguments(attr.args, in);
    EntityId const id = in.nextEntityId();
    payloadEnd(in);
    known_[id] = {place, wireType(attr.childType)};
    return "child " + place + ": " + attr.childType + args +
           (options_.header ? " id " + hexText(id.value()) : "");
  }
  if (attr.row.form == WireForm::pieces || attr.row.form == WireForm::valuesByString) {
    return text(side, frame, place, in);
  }
  std::string const shown = value(attr.value, in);
  payloadEnd(in);
  return "set " + place + " = " + shown;
}

/// A string is whole, or comes in pieces of which all but the last say that more is to come.
std::string StreamText::text(Side& side, Frame const& frame, std::string const& place, In& in) {
  std::uint32_t const word = in.bytesAvailable() == 0 ? 0 : in.nextU32();
  std::size_t const count = word & 0x7fffffffu;
  bool const isMore = (word & 0x80000000u) != 0;
  auto const* const bytes = reinterpret_cast<char const*>(in.take(count));
  payloadEnd(in);
  std::string const shown = cut(stdText(textOf(String8(bytes, count))));
  bool const isOpen = side.openStrings.contains(frame.entityId);
  if (isMore) {
    side.openStrings.insert(frame.entityId);
  } else {
    side.openStrings.erase(frame.entityId);
  }
  if (!isMore && !isOpen) return "set " + place + " = " + shown;
  return (isMore ? "piece " : "last piece ") + place + ": " + std::to_string(count) + " bytes " +
         shown;
}

std::string StreamText::root(Frame const& frame) {
  Ptr<In> const held = payloadOf(frame);
  In& in = **held;
  auto const section = [&in](unsigned char number) {
    if (in.nextU8() != number) throw StreamException(StreamError::badOrphan);
    return in.nextU32();
  };
  std::size_t const typesSize = section(1);
  unsigned char const* const behindTypes = in.position() + typesSize;
  std::string const typeName = stdText(in.nextString());
  in.nextBytes(static_cast<std::size_t>(behindTypes - in.position()));
  std::size_t const argsSize = section(3);
  WireType const* const type = wireType(typeName);
  std::string args = "(" + std::to_string(argsSize) + " bytes)";
  std::string path;
  if (type) {
    unsigned char const* const front = in.position();
    if (type->name) path = shownText(stdText(type->name(in)));
    in.positionIs(front);
    args = arguments(type->args, in);
  } else {
    in.nextBytes(argsSize);
  }
  // Roots without a name are known by what they were made with.
  if (!type || !type->name) path = shownText(typeName) + args;
  section(4);
  EntityId const id = in.nextEntityId();
  payloadEnd(in);
  known_[id] = {path, type};
  return "root " + path + ": " + shownText(typeName) + args +
         (options_.header ? " id " + hexText(id.value()) : "");
}

std::string StreamText::marker(Side& side, Frame const& frame) {
  Ptr<In> const in = payloadOf(frame);
  std::uint32_t const type = in->nextU32();
  in->nextU32();
  payloadEnd(**in);
  constexpr char const* names[] = {"begin ", "abort ", "end "};
  if (type >= std::size(names)) return rawMessage(frame);
  if (type == 1) side.openStrings.erase(frame.entityId);
  auto const entity = known_.find(frame.entityId);
  WireAttr const* const attr = entity != known_.end() && entity->second.type
                                   ? entity->second.type->attr(frame.attributeId)
                                   : nullptr;
  return names[type] + nameOf(frame.entityId) +
         (attr ? (attr->childType ? "/" : ".") + std::string(attr->row.name)
               : " attribute " + std::to_string(frame.attributeId));
}

std::string StreamText::repeat(Frame const& frame) {
  auto const entity = known_.find(frame.entityId);
  WireAttr const* const attr = entity != known_.end() && entity->second.type
                                   ? entity->second.type->attr(frame.attributeId)
                                   : nullptr;
  if (!attr) return rawMessage(frame);
  Ptr<In> const in = payloadOf(frame);
  std::string place = entity->second.path + (attr->childType ? "/" : ".") + attr->row.name;
  if (attr->key) place += "[" + shownText(stdText(attr->key(**in))) + "]";
  payloadEnd(**in);
  return "repeat " + place;
}

std::string StreamText::rawMessage(Frame const& frame) const {
  std::string line = frame.kind == FrameKind::message  ? "message "
                     : frame.kind == FrameKind::marker ? "marker "
                                                       : "frame ";
  line += nameOf(frame.entityId) + " attribute " + std::to_string(frame.attributeId) + ":";
  constexpr char digits[] = "0123456789abcdef";
  std::size_t const most = options_.mostText == 0 ? frame.payloadSize : options_.mostText / 2;
  for (std::size_t i = 0; i < std::min(most, frame.payloadSize); ++i) {
    if (i % 4 == 0) line += ' ';
    line += {digits[frame.payload[i] >> 4], digits[frame.payload[i] & 15]};
  }
  if (frame.payloadSize == 0) line += " nothing";
  if (frame.payloadSize > most) line += "…";
  return line;
}

std::string StreamText::header(Side& side, Frame const& frame) const {
  std::string text = " {entity " + hexText(frame.entityId.value());
  if (frame.attributeId != 0) text += ", attribute " + std::to_string(frame.attributeId);
  if (frame.instantiateTag != 0) text += ", tag " + std::to_string(frame.instantiateTag);
  if (frame.isVariableLength) text += ", variable length";
  if (frame.fullTransferFollows) text += ", full transfer follows";
  if (frame.ack != side.ack) text += ", ack " + std::to_string(frame.ack);
  return text + ", " + std::to_string(frame.size()) + " bytes}";
}

std::string StreamText::arguments(WireArgs const& args, In& in) const {
  std::string result = "(";
  for (WireArg const& arg : args) {
    if (result.size() > 1) result += ", ";
    result += value(arg.next, in);
  }
  return result + ")";
}

std::string StreamText::value(NextText next, In& in) const {
  return next ? cut(stdText(next(in))) : nameOf(in.nextEntityId());
}

/// Cut at a whole character; the text forms leave bytes above 127 as they are.
std::string StreamText::cut(std::string const& text) const {
  std::size_t most = options_.mostText;
  if (most == 0 || text.size() <= most) return shownText(text);
  while (most > 0 && (static_cast<unsigned char>(text[most]) & 0xc0) == 0x80) --most;
  return shownText(text.substr(0, most)) + "…";
}

std::string StreamText::nameOf(EntityId id) const {
  if (!id) return "null";
  auto const known = known_.find(id);
  return known != known_.end() ? known->second.path : "0x" + hexText(id.value());
}

}  // namespace Mox::NboAttrLog
