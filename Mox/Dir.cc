#include "Mox/Dir.h"

#include "Mox/Notify.h"

namespace Mox {

void Dir::Entry::operationIs(unsigned int operation) {
  if (operation == endMount && dir_) dir_->entryDel(name_);
}

Dir::Dir(Name const& name) : Entity(name) {}

Dir::~Dir() {
  for (Entries::Iterator it(&entries_); it; it.advance()) entryDel(it.key());
}

Ptr<Entity> Dir::entryTarget(Name name) const {
  moxReadCountInc();
  Ptr<Entry> const entry(entries_[name]);
  return entry ? entry->target() : Ptr<Entity>();
}

Ptr<Dir::Entry> Dir::entryIs(Name const& name, Ptr<Entity> const& target) {
  Ptr<Entry> entry(entries_[name]);
  if (entry && entry->target() == target) return entry;
  if (!target) return entryDel(name), nullptr;
  // Notified once, when the new one is there: a handler may use this name.
  if (entry) remove(entry);
  entry = new Entry(this, name, target);
  entries_.newMember(entry);
  moxVersionInc();
  target->parentAttrIdIs(0);
  target->moxOwnerIs(this);
  entryNotify(name);
  return entry;
}

Ptr<Entity> Dir::entryDel(Name const& name) {
  Ptr<Entry> const entry(entries_[name]);
  if (!entry) return nullptr;
  Ptr<Entity> const target = remove(entry);
  entryNotify(entry->name());
  return target;
}

Ptr<Entity> Dir::remove(Ptr<Entry> const& entry) {
  entries_.deleteMember(entry);
  moxVersionInc();
  entry->dir_ = nullptr;
  Ptr<Entity> const target(std::move(entry->target_));
  target->parentIs(nullptr);
  return target;
}

void Dir::entryNotify(Name const& name) {
  notifyAll<static_cast<void (NotifieeConst::*)(Name)>(&NotifieeConst::onEntry)>(notifieeList_,
                                                                                 entryId, name);
}

void Dir::zeroReferencesIs(bool) { notifyZeroReferences(notifieeList_); }

String8 Dir::attributeString(AttributeId attribute) const {
  return attribute == entryId ? String8("entry") : Entity::attributeString(attribute);
}

Dir::NotifieeConst::~NotifieeConst() { notifieeDestroy<Dir>(*this); }
void Dir::NotifieeConst::isRegisteredNotifieeIs(bool registered) const {
  Mox::isRegisteredNotifieeIs<Dir>(*this, registered);
}
Name Dir::NotifieeConst::name() const { return notifierName<Dir>(*this); }
void Dir::NotifieeConst::notifierIs(Ptr<PtrInterface const> const& notifier) {
  Mox::notifierIs<Dir>(*this, notifier);
}
Ptr<Dir const> Dir::NotifieeConst::notifier() const {
  return Ptr<Dir const>(notifierOf<Dir>(*this));
}
Ptr<Dir> Dir::Notifiee::notifier() const {
  return Ptr<Dir>(const_cast<Dir*>(NotifieeConst::notifier().get()));
}

}  // namespace Mox
