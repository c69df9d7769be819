// The base of the types' FlowOut classes.
#include "attrlog/adapter/FlowOut.h"

#include "Mox/Assertion.h"
#include "Mox/NboAttrLogFlow.h"
#include "attrlog/adapter/FlowIn.h"
#include "attrlog/adapter/StreamAdapter.h"

namespace Mox::NboAttrLog {

FlowOut::FlowOut(StreamAdapter* adapter, bool full) : adapter_(adapter), full_(full) {}
FlowOut::~FlowOut() = default;
FlowOut::MoxForwardRef::~MoxForwardRef() = default;

void FlowOut::streamAdapterIs(Ptr<StreamAdapter> const& adapter) { adapter_ = adapter.get(); }

Ptr<StreamAdapter> FlowOut::forwardRefDel(unsigned int key) {
  return forwardRefs_ ? forwardRefs_->del(key) : nullptr;
}
Ptr<StreamAdapter> FlowOut::forwardRefDel(ForwardRefs::IteratorConst const& at) {
  return at ? forwardRefDel(at.key()) : nullptr;
}
void FlowOut::forwardRefEnq(Ptr<StreamAdapter> const& adapter) { forwardRefIs(0, adapter); }
Ptr<StreamAdapter> FlowOut::forwardRefDeq() { return forwardRefs_ ? forwardRefs_->deq() : nullptr; }
void FlowOut::forwardRefIs(unsigned int key, Ptr<StreamAdapter> const& adapter) {
  if (!forwardRefs_) forwardRefs_ = std::make_unique<ForwardRefs>();
  forwardRefs_->enq(key, adapter);
}

void FlowOut::pendingAbortDel(PendingAborts::Iterator const& at) {
  if (at) pendingAbortDel(at->key());
}

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
