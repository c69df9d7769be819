// Deferred and immediate relays: how changes of an entity reach the listeners of its generic
// object.
#include "generic/GenericIfEntity.h"
#include "generic/Rows.h"

namespace Mox {

void GenericIfEntity::moxRelay(AttributeId attribute) {
  if (moxOnAttribute(attribute, nullptr) || moxCatchUp(attribute, nullptr)) return;
  moxTell(attribute);
}

void GenericIfEntity::moxRelayKey(GenericRow const& row, GenericIf::NotifieeConst& adapter) {
  unsigned char* const count = row.cell(adapter).count;
  if (moxOnAttribute(row.id(), count) || moxCatchUp(row.id(), count)) return;
  // The key that waits was overwritten by this one.
  if (*count == 1) *count = 2;
  moxTellKey(row, adapter);
}

bool GenericIfEntity::moxCatchUp(AttributeId attribute, unsigned char* count) {
  if (moxPendingAttribute() == 0 || moxIsWaiting()) [[likely]]
    return false;
  moxPendingAttributeAdd(attribute, count);
  handleNotification(nullptr);
  return true;
}

void GenericIfEntity::moxTell(AttributeId attribute) {
  actsm();
  onAttribute(attribute);
}

void GenericIfEntity::moxTellKey(GenericRow const& row, GenericIf::NotifieeConst& adapter) {
  actsm();
  Ptr<GenericIf const> const key =
      row.keyType()->genericIf(static_cast<void const*>(row.cell(adapter).key), isConst());
  onAttribute(row.id(), key);
}

/// What waited for one attribute: its handler, without asking the activity again.
void GenericIfEntity::moxRun(GenericRow const& row, GenericIf::NotifieeConst& adapter,
                             bool isWhole) try {
  if (!row.isCollection()) return moxTell(row.id());
  unsigned char& waiting = *row.cell(adapter).count;
  unsigned char const count = waiting;
  waiting = 0;
  if (isWhole || count > 1) {
    onAttribute(row.id());
  } else if (count == 1) {
    moxTellKey(row, adapter);
  }
} catch (...) {
  handleNotificationException(row.id());
}

void GenericIfEntity::moxRunAll(GenericRows const& rows, GenericIf::NotifieeConst& adapter,
                                bool isWhole) {
  if (rows.base) moxRunAll(*rows.base, adapter, isWhole);
  for (GenericRow const& row : rows) {
    if (!row.isNotified()) continue;
    // An earlier handler may have switched this object off.
    if (!hasNotificationActive() || moxMarkedForDeletion()) return;
    redispatch(actsm());
    moxRun(row, adapter, isWhole);
  }
}

void GenericIfEntity::moxHandleNotification(GenericRows const& rows,
                                            GenericIf::NotifieeConst& adapter,
                                            ActivityConfig* config) {
  // A handler may drop the last reference to this object.
  Ptr<GenericIfEntity> const held(this);
  Ptr<PtrInterface> const heldAdapter(&adapter);
  if (!hasNotificationActive() || moxMarkedForDeletion()) return moxPendingDropAll(rows, adapter);
  AttributeId const attribute = moxPendingAttribute();
  moxPendingAttributeIs(0);
  GenericRow const* const row = rows.find(attribute);
  if (row && row->isNotified()) {
    actsm();
    return moxRun(*row, adapter, false);
  }
  moxPendingAttributeIs(attribute);
  try {
    GenericIfPtrInterface::handleNotification(config);
  } catch (...) {
    handleNotificationException();
  }
  if (attribute == allAttributes || attribute == allAttributesWhole) {
    moxRunAll(rows, adapter, attribute == allAttributesWhole);
  }
}

void GenericIfEntity::moxPendingDropAll(GenericRows const& rows,
                                        GenericIf::NotifieeConst& adapter) {
  moxPendingDrop();
  for (GenericRows const* level = &rows; level; level = level->base) {
    for (GenericRow const& row : *level) {
      if (row.isCollection()) *row.cell(adapter).count = 0;
    }
  }
}

}  // namespace Mox
