// A directory of entities by name: where root entities stand and where peers mount what they
// import.
#pragma once

#include "Mox/Entity.h"
#include "Mox/HashMap.h"

namespace MOX_API Mox {

class Dir : public Entity {
 public:
  /// One name and the entity that stands under it, counted.
  class Entry : public PtrInterface {
   public:
    enum Operation { endMount = 3 };

    Entry(Dir* dir, Name const& name, Ptr<Entity> const& target)
        : dir_(dir), name_(name), target_(target) {}

    Name const& key() const { return name_; }
    Name const& name() const { return name_; }
    /// Null once the entry has ended.
    Ptr<Entity> const& target() const { return target_; }
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
  /// Puts `target` under `name` and becomes its parent; another entity under that name ends first.
  Ptr<Entry> entryIs(Name const& name, Ptr<Entity> const& target);
  /// Ends the entry and returns what stood there; null for a name that isn't there.
  Ptr<Entity> entryDel(Name const& name);
  Entries::IteratorConst entryIteratorConst() const { return entries_.iteratorConst(); }
  std::uint32_t entryCount() const { return entries_.size(); }

 private:
  Entries entries_;
};

}  // namespace Mox
