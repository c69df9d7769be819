#include "Mox/Dir.h"

namespace Mox {

void Dir::Entry::operationIs(unsigned int operation) {
  if (operation == endMount && dir_) dir_->entryDel(name_);
}

Dir::Dir(Name const& name) : Entity(name) {}

Dir::~Dir() {
  for (Entries::Iterator it(&entries_); it; it.advance()) entryDel(it.key());
}

Ptr<Dir::Entry> Dir::entryIs(Name const& name, Ptr<Entity> const& target) {
  Ptr<Entry> entry(entries_[name]);
  if (entry && entry->target() == target) return entry;
  if (entry) entryDel(name);
  if (!target) return nullptr;
  entry = new Entry(this, name, target);
  entries_.newMember(entry);
  moxVersionInc();
  target->parentAttrIdIs(0);
  target->moxOwnerIs(this);
  return entry;
}

Ptr<Entity> Dir::entryDel(Name const& name) {
  Ptr<Entry> const entry(entries_[name]);
  if (!entry) return nullptr;
  entries_.deleteMember(entry);
  moxVersionInc();
  entry->dir_ = nullptr;
  Ptr<Entity> const target(std::move(entry->target_));
  target->parentIs(nullptr);
  return target;
}

}  // namespace Mox
