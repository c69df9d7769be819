// The base of all entity types: identity, counters, the link to the parent, and the slots of the
// attribute log. A parent owns its children; a child only knows its parent.
#pragma once

#include <cstdint>

#include "Mox/AttributeId.h"
#include "Mox/Name.h"
#include "Mox/Notifiee.h"
#include "Mox/Ptr.h"
#include "Mox/PtrInterface.h"
#include "Mox/String8.h"

namespace MOX_API Mox {

class EntityId;
class MoxAttr;
class MoxType;
namespace NboAttrLog {
class Out;
}

class Entity : public PtrInterface {
 public:
  class NotifieeConst;
  class Notifiee;
  /// The stream adapter of an entity on one connection; defined by the attribute log.
  class MoxNboAttrLogSa;

  // The order of the virtual operations is part of the interface.

  ~Entity() override;
  virtual Name name() const;
  virtual Ptr<Entity const> parent() const;
  virtual Ptr<Entity> parent();
  /// Stores the link, without owning. Null: the entity has left its parent. The link never dangles:
  /// a parent that dies clears the links that still name it.
  virtual void parentIs(Ptr<Entity> const& parent);
  /// The parent's attribute that holds this entity; null if that isn't known.
  virtual MoxAttr const* parentAttr() const;
  virtual AttributeId parentAttrId() const;
  virtual void parentAttrIdIs(AttributeId attribute);
  virtual String8 uriPath() const;
  /// The way from the root: `slice/fap[fap0]/serdes[5]`.
  virtual String8 fullName() const;
  /// The name of an attribute, "unknown" for an id that the type doesn't have.
  virtual String8 attributeString(AttributeId attribute) const;
  virtual void moxNotifieeAdapterIs(Ptr<Entity const> const& entity);
  /// The parent link was just changed.
  virtual void handleParent(Ptr<Entity> const& parent);

  // The attribute log's slots. Their bodies for a type without a log face (null) are defined in
  // attrlog/adapter/Entity.cc, where Out and the adapter are complete.
  virtual Ptr<MoxNboAttrLogSa const> moxNboAttrLogSa(Ptr<NboAttrLog::Out const> const& out) const;
  virtual bool moxHasAttrLogInterface() const;
  virtual Ptr<MoxNboAttrLogSa> moxNboAttrLogSa(Ptr<NboAttrLog::Out const> const& out);
  virtual Ptr<MoxNboAttrLogSa> moxNboAttrLogSaForMsgChannel(
      Ptr<MoxNboAttrLogSa> const& adapter) const;
  virtual Ptr<MoxNboAttrLogSa> moxNboAttrLogSaIs(PtrInterface::NotifieeConst::Mox_BitSet flags,
                                                 unsigned int number,
                                                 Ptr<NboAttrLog::Out> const& out,
                                                 PtrInterface* channel);
  virtual Ptr<MoxNboAttrLogSa> moxNboAttrLogSaDel(Ptr<NboAttrLog::Out const> const& out);

  /// The entity's id on the connection of `out`. `announces`: an entity that no tree of the
  /// connection holds is announced by itself, which drops a message that is being written
  /// (`isInMessage`): an `AttrLogRecordException` asks for it again. `throws`: an
  /// `EntityIdUnavailableException` when the peer can't know the entity yet; else the id 0.
  EntityId entityId(Ptr<NboAttrLog::Out> const& out, bool isInMessage, bool announces,
                    bool throws) const;

  // Bump nothing.
  std::uint32_t version() const { return version_; }
  std::uint32_t readCount() const { return readCount_; }
  std::uint32_t entityFlags() const { return entityFlags_; }

  // Plumbing of generated classes and their templates.
  void moxVersionInc() {
    moxRequireHeld();
    ++version_;
  }
  void moxReadCountInc() const { ++readCount_; }
  /// The parent, not counted.
  Entity* moxRawParent() const { return parent_; }
  /// `parentIs(parent)` by an owner that clears the link itself before it dies, so that nothing has
  /// to be recorded for it.
  void moxOwnerIs(Ptr<Entity> const& parent) {
    if (parent) parent->moxRequireHeld(1);
    link_ |= ownerSetsLink;
    parentIs(parent);
  }

  /// The attribute log keeps an id of the entity: its end is reported to `Hooks::destroyed`.
  void moxIsIdentifiedIs() { link_ |= isIdentified; }

  /// Defined with the type registry.
  static MoxType* _fwkType();

 protected:
  explicit Entity(Name const& name) : name_(name) {}

 private:
  /// `moxOwnerIs` is under way.
  static constexpr std::uint8_t ownerSetsLink = 1;
  /// The link to the parent is on record, and so are links to this entity (Entity.cc).
  static constexpr std::uint8_t isRecorded = 2;
  static constexpr std::uint8_t hasRecords = 4;
  static constexpr std::uint8_t isIdentified = 8;

  void record(Entity& parent);
  void eraseRecord();

  std::uint8_t link_ = 0;
  Name name_;
  std::uint32_t version_ = 0;
  mutable std::uint32_t readCount_ = 0;
  std::uint32_t entityFlags_ = 136;
  AttributeId parentAttrId_ = 0;
  Entity* parent_ = nullptr;
};

/// The base of the subscriber classes X::NotifieeConst; a client derives from one of those. By
/// itself it can't be bound, since an entity notifies subscribers of its own type alone; who wants
/// to watch entities of any type uses a generic object.
class Entity::NotifieeConst : public PtrInterface::NotifieeConst {
 public:
  /// Every entity is one of another type than this class's own: binds to nothing.
  void notifierIs(Ptr<PtrInterface const> const& notifier) override;
  virtual void onParent();
  virtual void onVersion();
  ~NotifieeConst() override;

 protected:
  NotifieeConst() = default;
  explicit NotifieeConst(Mox_BitSet flags) : PtrInterface::NotifieeConst(flags) {}
};

class Entity::Notifiee : public Entity::NotifieeConst {
 public:
  ~Notifiee() override;

 protected:
  Notifiee() = default;
  explicit Notifiee(Mox_BitSet flags) : NotifieeConst(flags) {}
};

}  // namespace Mox
