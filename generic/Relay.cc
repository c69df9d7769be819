// Deferred and immediate relays: how changes of an entity reach whoever watches its generic object.
#include "generic/GenericIfEntity.h"
#include "generic/Rows.h"

namespace Mox {

void GenericIfEntity::moxRelay(AttributeId attribute) {
  if (moxOnAttribute(attribute, nullptr)) return;
  moxTell(attribute);
}

void GenericIfEntity::moxRelayKey(GenericRow const& row, GenericIf::NotifieeConst& adapter) {
  if (moxOnAttribute(row.id(), row.cell(adapter).count)) return;
  moxTellKey(row, adapter);
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
                             bool isWhole) {
  if (!row.isCollection()) return moxTell(row.id());
  unsigned char& waiting = *row.cell(adapter).count;
  unsigned char const count = waiting;
  waiting = 0;
  if (isWhole || count > 1) {
    onAttribute(row.id());
  } else if (count == 1) {
    moxTellKey(row, adapter);
  }
}

void GenericIfEntity::moxRunAll(GenericRows const& rows, GenericIf::NotifieeConst& adapter,
                                bool isWhole) {
  if (rows.base) moxRunAll(*rows.base, adapter, isWhole);
  for (GenericRow const& row : rows) {
    if (!row.isNotified()) continue;
    redispatch(actsm());
    moxRun(row, adapter, isWhole);
  }
}

void GenericIfEntity::moxHandleNotification(GenericRows const& rows,
                                            GenericIf::NotifieeConst& adapter,
                                            ActivityConfig* config) {
  // A client may let go of this object in there.
  Ptr<GenericIfEntity> const held(this);
  Ptr<PtrInterface> const heldAdapter(&adapter);
  AttributeId const attribute = moxPendingAttribute();
  moxPendingAttributeIs(0);
  GenericRow const* const row = rows.find(attribute);
  if (row && row->isNotified()) {
    actsm();
    return moxRun(*row, adapter, false);
  }
  moxPendingAttributeIs(attribute);
  GenericIfPtrInterface::handleNotification(config);
  if (attribute == allAttributes || attribute == allAttributesWhole) {
    moxRunAll(rows, adapter, attribute == allAttributesWhole);
  }
}

}  // namespace Mox
