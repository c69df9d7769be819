// The base of the types' FlowOut classes.
#include "attrlog/FlowOut.h"

#include "Mox/Assertion.h"
#include "Mox/NboAttrLogFlow.h"
#include "attrlog/FlowIn.h"

namespace Mox::NboAttrLog {

FlowOut::~FlowOut() = default;

void FlowOut::attrIdIs(AttributeId id) {
  if (id == attrId_) return;
  if (hasFilledSlot()) {
    assertionFailed("!hasFilledSlot()", "attrlog/FlowOut", __LINE__, __func__);
  }
  moxDataBits_ &= static_cast<unsigned char>(~walkOver);
  attrId_ = id;
}

void FlowOut::pendingAbortIs(AttributeId id, bool owed) {
  if (MoxPendingAbort* entry = pendingAbort_[id]) {
    entry->valueIs(owed);
    return;
  }
  pendingAbort_.newMemberG(Ptr<PtrInterface>(new MoxPendingAbort(id, owed)), &id);
}

void FlowOut::pendingAbortDel(AttributeId id) {
  if (MoxPendingAbort* entry = pendingAbort_[id]) {
    pendingAbort_.deleteMember(Ptr<PtrInterface>(entry));
  }
}

AttributeId FlowOut::resumeAt() const {
  if (runResult_ != 0) return runResult_;
  return hasFilledSlot() ? attrId_ : 0;
}

FlowIn::~FlowIn() {
  delete static_cast<String8::Iterator*>(iter_);
  delete static_cast<String8*>(idx_);
}

}  // namespace Mox::NboAttrLog
