// What the attribute log knows of an entity type: a row of small functions for each attribute that
// can change, joined to the row of what the schema declares. Generated code makes the tables; the
// algorithms of Serialize, Deserialize, Transaction and FlowOutWalk run over them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "Mox/AttributeId.h"
#include "Mox/AttributeRow.h"
#include "Mox/Entity.h"
#include "Mox/Ptr.h"
#include "Mox/String8.h"
#include "attrlog/adapter/FlowIn.h"
#include "attrlog/adapter/FlowOut.h"
#include "attrlog/adapter/Marks.h"
#include "attrlog/adapter/Reactors.h"
#include "attrlog/adapter/StreamAdapter.h"
#include "attrlog/wire/In.h"
#include "attrlog/wire/Out.h"
#include "registry/MoxAttr.h"

namespace MOX_API Mox {
namespace NboAttrLog {

using Sa = Entity::MoxNboAttrLogSa;

/// What the list of alternatives at the front of a compound message leads to.
struct Compound {
  AttributeId attribute;
  unsigned char const* start = nullptr;  ///< of the list
  std::size_t keyEnd = 0;  ///< bytes from `start` to the end of the arguments; 0: not told

  /// Passes over what stands behind the key and the constructor arguments. Throws BadLength when
  /// they end elsewhere.
  void argsEnd(In& in) const;
};

/// A message that is being read.
struct MessageIn {
  Sa& adapter;
  AdapterHost& host;
  Ptr<In> const& in;
  AttributeId attribute;
  unsigned int length;
  bool reflect;
  FlowIn* flowIn = nullptr;  ///< for a string that may come in pieces
  Compound compound = {};
};

/// What can be said of a message before it is applied.
struct MessageScan {
  In& in;
  Reactors const& reactors;
  std::string_view key = {};  ///< the key's bytes
  Compound compound = {};
  bool namesGone = false;  ///< it refers to an entity that this end has parted with
  bool isOpen = false;     ///< a piece with more to come
};

struct AttrRow {
  // From the attribute's `AttributeRow`: what hot paths read lies beside the functions.

  AttributeId id;
  WireForm form;
  std::uint32_t dirtyMask;
  std::uint32_t fixedLength;
  std::uint8_t keyLength;

  // Functions.

  /// The word that holds the dirty bit, or for a collection the has-synced bit.
  std::uint32_t FlowOut::*word;
  /// Plain: reads the entity's value and writes it.
  void (*writeValue)(Sa&, Ptr<Out> const&);
  /// Pieces: the entity's text.
  String8 (*text)(Sa&);
  /// Reference: reads what it leads to; null for nothing.
  Ptr<Entity const> (*target)(Sa&);
  /// Singleton: the child; null for none.
  Ptr<Entity> (*child)(Sa&);
  /// Singleton: finds or makes and announces the child's adapter.
  Ptr<Sa> (*childAdapter)(Sa&, Ptr<Entity> const&);
  /// Calls the handler `onX()`, or `onX(key)` with the key behind the pointer.
  void (*notify)(Sa&, void const* key);
  /// Applies or reflects a message with a positive id, and one with a negative id.
  void (*read)(MessageIn&);
  void (*readDel)(MessageIn&);
  /// Goes over the values of a message, which must end where the payload ends. A message with a
  /// negative id has the key alone.
  void (*shape)(MessageScan&);
  /// True when the FlowOut has still to say the slot whose key stands at the front of the payload.
  bool (*owes)(Sa&, FlowOut&, In& payload);
  /// Owning attributes: parts the adapter of the child whose key stands at the front of the
  /// payload from the connection, with all below it.
  void (*partChild)(Sa&, In& payload);
  /// Collections: writes the key behind the pointer, and calls the handler of the key at the front
  /// of a payload.
  void (*writeKey)(void const* key, Ptr<Out> const&);
  void (*notifyOf)(Sa&, In& payload);
  /// Collections: the walk of a flow-out; true when it is through.
  bool (*walk)(Sa&);
  std::size_t (*dirtyKeyCount)(FlowOut&);
  /// Collections: marks all members, deletes the marked ones.
  void (*sweep)(Sa&, StreamAdapter::AttrTransactionType);
  /// Collections: takes the marks off, and gives those that had one.
  void (*marksTake)(Entity&, MarkedMembers&);
  /// Releases the slots of a stopped flow-out that stands at this attribute.
  void (*freeSlots)(FlowOut&);
  /// Owning attributes: parts every child's adapter from the connection. The adapter has been
  /// parted already and knows its entity no more.
  void (*remount)(Sa&, Entity&);

  bool isCollection() const { return form >= WireForm::entities; }
  bool isInPieces() const { return form == WireForm::pieces || form == WireForm::valuesByString; }
  bool ownsChildren() const { return form == WireForm::singleton || form == WireForm::entities; }
  /// A value whose message has one length.
  bool isNumber() const { return form == WireForm::plain && fixedLength != 0; }

  /// True when a message with this sign tells its length only at its end.
  bool isVariable(bool deletes) const {
    return deletes ? form != WireForm::singleton : fixedLength == 0;
  }
  /// Goes over a message whose payload the scan's In holds. Throws BadLength, BadId, BadPiece.
  void scan(MessageScan& message, bool deletes) const;
  /// The bytes of the key at the front of a payload. Throws BadLength.
  std::string_view keyOf(unsigned char const* payload, std::size_t size) const;

  bool bit(FlowOut& flowOut) const { return (flowOut.*word & dirtyMask) != 0; }
  /// A scalar or reference that is owed, or a collection that has not been walked yet: its bit says
  /// that it has.
  bool owesItself(FlowOut& flowOut) const { return bit(flowOut) != isCollection(); }
  std::size_t owedKeys(FlowOut& flowOut) const {
    return dirtyKeyCount ? dirtyKeyCount(flowOut) : 0;
  }
  void bitIs(FlowOut& flowOut, bool on) const {
    std::uint32_t& bits = flowOut.*word;
    bits = on ? bits | dirtyMask : bits & ~dirtyMask;
  }
};

/// The rows of one type, in id order, and those of its base.
struct TypeRows {
  AttrRow const* rows;
  std::size_t count;
  TypeRows const* base;

  AttrRow const* begin() const { return rows; }
  AttrRow const* end() const { return rows + count; }
  /// The row of an id, bases included; null for none.
  AttrRow const* find(AttributeId id) const {
    // Most types' rows have consecutive ids from the first on.
    if (count != 0) {
      std::size_t const guess = static_cast<std::size_t>(id) - static_cast<std::size_t>(rows->id);
      if (guess < count && rows[guess].id == id) return rows + guess;
    }
    return search(id);
  }
  /// The same without the guess.
  AttrRow const* search(AttributeId id) const;
  /// True for a type that takes compound messages. Its bases don't count.
  bool ownsChildren() const;
};

}  // namespace NboAttrLog
}  // namespace Mox
