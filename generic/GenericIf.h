// The root of the reflective objects: what clients read, change, walk and watch the model with that
// don't know its classes. Values travel in carriers (generic/Carrier.h), entities as generic
// objects (generic/GenericIfEntity.h); `MoxType::genericIf` makes either. How to use them:
// docs/generic-interface.md. One thread, that of the entity.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <vector>

#include "Mox/LinkedQueue.h"
#include "Mox/Notifiee.h"
#include "Mox/Ptr.h"
#include "Mox/String8.h"

namespace MOX_API Mox {

class GenericIfListLink;
class MoxType;

class GenericIf : public PtrInterface::Notifiee {
 public:
  class List;
  class List_;
  class Listener;
  using NotifieeConst = PtrInterface::NotifieeConst;

  /// One operation: on which attribute, and what to do.
  struct AttributeOp {
    /// From 128 on an operation writes.
    enum OpId : std::int32_t {
      attrGet = 0,
      attrCount = 1,
      attrVersion = 2,
      attrExists = 3,
      attrSet = 128,
      attrDel = 129,
    };
    AttributeId attributeId = 0;
    OpId op = attrGet;
    bool isWriting() const { return op >= attrSet; }
  };

  /// A place in a collection attribute. A plain value: whoever keeps one ends it by
  /// `attributeIterator_iterDel`, and gives a copy a state of its own by
  /// `attributeIterator_iterClone`. `AttributeWalk` (generic/AttributeWalk.h) does both by itself.
  struct AttributeIteratorConst {
    Ptr<GenericIf> genericIf;
    AttributeId attribute = 0;
    /// Null: nothing to free.
    mutable void* state = nullptr;
  };
  using AttributeIterator = AttributeIteratorConst;

  ~GenericIf() override = default;

  void onAttribute(AttributeId attribute) override;
  void onZeroReferences() override;
  Activity* moxFwkActivity() override;
  using NotifieeConst::moxFwkActivity;
  ActivitySm* actsm() override;

  // The order of the virtual operations is part of the interface.

  virtual Ptr<MoxType const> type() const;
  /// The address of what is carried, seen as a `type`; TypeException if it is no such thing.
  virtual void* voidPtrIs(Ptr<MoxType const> const& type) const;
  /// The name of an attribute; "unknown" for an id that the type doesn't have.
  virtual String8 attributeString(AttributeId attribute) const;
  /// The id of an attribute; UnknownAttrException for a name that the type doesn't have.
  virtual AttributeId attributeId(String8 name) const;
  /// Carries out one operation. What index, value and result are for each kind of attribute, and in
  /// which order the failures come: docs/generic-interface.md. A failure leaves everything alone.
  virtual Ptr<GenericIf> attributeOp(AttributeOp const& op, Ptr<GenericIf const> const& index,
                                     Ptr<GenericIf> const& value);
  /// What is carried, as text.
  virtual String8 strRep() const;
  /// True: stops hearing. False: hears again.
  virtual void moxDoZombieReactors(bool zombie);

  // Walks over a collection attribute.
  virtual AttributeIteratorConst attributeIteratorConst(AttributeId attribute) const;
  virtual AttributeIteratorConst attributeIteratorKeyConst(AttributeId attribute,
                                                           Ptr<GenericIf const> const& key) const;
  virtual Ptr<GenericIf> attributeIterator_iterObj(AttributeIteratorConst const& at);
  virtual Ptr<GenericIf> attributeIterator_iterObj(AttributeIteratorConst const& at) const;
  virtual Ptr<GenericIf> attributeIterator_iterInc(AttributeIteratorConst const& at) const;
  virtual Ptr<GenericIf> attributeIterator_iterKey(AttributeIteratorConst const& at) const;
  virtual void* attributeIterator_iterClone(AttributeIteratorConst const& at) const;
  virtual bool attributeIterator_nonNull(AttributeIteratorConst const& at) const;
  virtual Ptr<GenericIf> attributeIterator_iterDel(AttributeIteratorConst const& at) const;
  virtual AttributeIterator attributeIterator(AttributeId attribute);
  virtual AttributeIterator attributeIteratorKey(AttributeId attribute,
                                                 Ptr<GenericIf const> const& key);

  /// Another object for the same thing.
  virtual Ptr<GenericIf> clone();

  /// A key of a collection changed. By default the same as `onAttribute(attribute)` for those who
  /// don't ask for keys.
  virtual void onAttribute(AttributeId attribute, Ptr<GenericIf const> const& key);

  Ptr<GenericIf const> clone() const;
  /// A read-only view: writing operations fail.
  bool isConst() const { return isConst_; }

  /// Adds a listener, behind those that are there; nothing happens if it is one of them. Holds it.
  /// A class that overrides `onAttribute` has none unless it calls this class's.
  void listenerIs(Ptr<Listener> const& listener);
  /// From the return of this call on the listener isn't called any more.
  void listenerDel(Ptr<Listener> const& listener);
  /// Notifications wait in this activity while it defers; null: they never wait. The activity isn't
  /// held. What waits in another one moves along, or is delivered here unless the new one defers.
  void moxFwkActivityIs(Ptr<Activity> const& activity);

  // The failures. Each takes the name of what was wrong; none returns.

  /// A value or a key is missing or of the wrong type.
  [[noreturn]] static void throwTypeException(char const* name);
  [[noreturn]] static void throwConstException(char const* message);
  /// An index was given where none belongs.
  [[noreturn]] static void throwBadIndexAttrException(char const* attribute);
  /// An argument list is longer than the parameters.
  [[noreturn]] static void throwUnknownArgException(char const* attribute);
  [[noreturn]] static void throwUnknownAttrException(char const* name);
  [[noreturn]] static void throwOpNotSupportedException(char const* attribute, AttributeOp::OpId op,
                                                        bool);

 protected:
  explicit GenericIf(bool isConst) : Notifiee(Mox_BitSet(relayFlags)), isConst_(isConst) {}

  /// Discards what waits.
  void moxPendingDrop();

 private:
  /// What subscribers that relay carry from the start.
  static constexpr std::uint32_t relayFlags = 0x4000000;

  template <class Call>
  void listenersCall(AttributeId attribute, Call const& call);

  bool isConst_;
  std::vector<Ptr<Listener>> listeners_;
  Ptr<ActivitySm> activity_;
};

/// Receives the notifications of generic objects, one or several. Any operation may add or remove
/// listeners, and release the object and this listener: a removed one isn't called any more, an
/// added one only from the next notification on.
class GenericIf::Listener : public PtrInterface {
 public:
  /// `key`: null unless one key of a collection changed. A collection without a key: read all of
  /// it.
  virtual void handleAttribute(GenericIf& of, AttributeId attribute,
                               Ptr<GenericIf const> const& key) = 0;
  /// Called inside the catch block when another operation of this listener has thrown; the other
  /// listeners are called all the same. An exception of this one takes the way of an exception of
  /// `onAttribute`.
  virtual void handleException(GenericIf& of, AttributeId attribute);
  /// The last reference to the entity went; `of` is weak and can still read it.
  virtual void handleEnd(GenericIf& of);
};

/// One element of an argument list.
class GenericIfListLink : public LinkedQueueLink<GenericIfListLink, GenericIf> {
 public:
  using LinkedQueueLink::LinkedQueueLink;
};

/// Arguments in their order; an element may be null.
class GenericIf::List : public LinkedQueue<GenericIfListLink, GenericIf, Ptr<GenericIf>> {
 public:
  using MoxGenericIf = GenericIfListLink;

  List() = default;
  List(List const& other);
  List& operator=(List const&) = delete;
  static MoxType* _fwkType();
};

/// Carries an argument list.
class GenericIf::List_ : public GenericIf {
 public:
  explicit List_(bool isConst = false) : GenericIf(isConst) {}
  List_(List const& list, bool isConst) : GenericIf(isConst), list_(list) {}
  List_(std::initializer_list<Ptr<GenericIf>> arguments);
  ~List_() override;

  List& list() { return list_; }
  List const& list() const { return list_; }
  void enq(Ptr<GenericIf> const& argument) { list_.enq(argument); }

  Ptr<MoxType const> type() const override;
  void* voidPtrIs(Ptr<MoxType const> const& type) const override;
  String8 strRep() const override;
  Ptr<GenericIf> clone() override;
  using GenericIf::clone;

 private:
  mutable List list_;
};

}  // namespace Mox
