// A directory of entities by name: root entities are kept here, and peers mount here what they
// import. To the type registry and the generic interface it is a type with one attribute, the
// collection `entry` of entities by name.
#pragma once

#include "Mox/Entity.h"
#include "Mox/HashMap.h"
#include "Mox/ListRaw.h"
#include "Mox/NotifieeList.h"

namespace MOX_API Mox {

class Dir : public Entity {
 public:
  class NotifieeConst;
  class Notifiee;
  class GenericIf_;
  static constexpr AttributeId entryId = 0x102;

  /// One name and the entity under it, counted.
  class Entry : public PtrInterface {
   public:
    enum Operation { endMount = 3 };

    Entry(Dir* dir, Name const& name, Ptr<Entity> const& target)
        : dir_(dir), name_(name), target_(target) {}

    Name const& key() const { return name_; }
    Name const& name() const { return name_; }
    /// Null once the entry has ended.
    Ptr<Entity> const& target() const { return target_; }
    /// The same, as the member that the collection shows.
    Ptr<Entity> const& child() const { return target_; }
    /// `endMount` takes the entry out: the target loses its parent and is released. Other numbers
    /// do nothing.
    virtual void operationIs(unsigned int operation);

   private:
    friend class Dir;
    Dir* dir_;
    Name name_;
    Ptr<Entity> target_;

   public:
    Ptr<Entry> next;
  };
  using Entries = HashMap<Entry, Name, Entry>;

  /// A directory with an empty name doesn't show in paths.
  explicit Dir(Name const& name = Name());
  ~Dir() override;

  /// Null for a name that isn't there.
  Ptr<Entry> entry(Name const& name) const { return entries_[name]; }
  /// The entity under a name; null for a name that isn't there. Counts as a read.
  Ptr<Entity> entryTarget(Name name) const;
  /// Puts `target` under `name` and becomes its parent; another entity under that name ends first.
  /// Null ends the entry.
  Ptr<Entry> entryIs(Name const& name, Ptr<Entity> const& target);
  /// Ends the entry and returns its entity; null for a name that isn't there.
  Ptr<Entity> entryDel(Name const& name);
  void entryNotify(Name const& name);
  Entries::IteratorConst entryIteratorConst() const { return entries_.iteratorConst(); }
  std::uint32_t entryCount() const { return entries_.size(); }

  void zeroReferencesIs(bool zero) override;
  String8 attributeString(AttributeId attribute) const override;
  MoxType const* fwkType() const override { return _fwkType(); }
  /// Defined with the generic interface.
  static MoxType* _fwkType();

  /// The subscribers, stream adapters first.
  ListRaw<NotifieeConst>& notifieeList() const { return notifieeList_; }

 private:
  Ptr<Entity> remove(Ptr<Entry> const& entry);

  Entries entries_;
  mutable ListRaw<NotifieeConst> notifieeList_;
};

/// Receives every change of one directory; as the subscribers of generated types.
class Dir::NotifieeConst : public Entity::NotifieeConst {
 public:
  virtual void onEntry(Name) {}
  virtual void onEntrymoxImmediate() {}
  virtual void onEntry() {}

  ~NotifieeConst() override;
  void isRegisteredNotifieeIs(bool registered) const override;
  Name name() const override;
  void notifierIs(Ptr<PtrInterface const> const& notifier) override;
  /// Null when unbound.
  Ptr<Dir const> notifier() const;

 protected:
  NotifieeConst() = default;
  explicit NotifieeConst(Mox_BitSet flags) : Entity::NotifieeConst(flags) {}
  /// The latest key of `entry`, and how many wait; the generic relay's.
  Name entryKey_{};
  unsigned char entryKeys_ = 0;

 public:
  /// The link of the notifier's list.
  NotifieeConst* next = nullptr;
};

/// The same with access to a mutable notifier.
class Dir::Notifiee : public Dir::NotifieeConst {
 public:
  /// Null when unbound.
  Ptr<Dir> notifier() const;

 protected:
  using NotifieeConst::NotifieeConst;
};

}  // namespace Mox
