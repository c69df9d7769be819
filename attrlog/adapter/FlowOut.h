// What one adapter still owes its peer: marks, never values. The types' FlowOut classes derive
// from this and add a word of dirty bits and a set of dirty keys for each collection.
#pragma once

#include <cstdint>
#include <memory>

#include "Mox/AttributeId.h"
#include "Mox/HashMap.h"
#include "Mox/LinkQueue.h"
#include "Mox/Ptr.h"
#include "Mox/PtrInterface.h"

namespace MOX_API Mox {

class Entity;
class StreamAdapter;

namespace NboAttrLog {

enum class EntityIdStatus : std::uint8_t { none = 0, assigned = 1 };

class FlowOut : public PtrInterface {
 public:
  /// Bits of `moxDataBits`.
  static constexpr unsigned char walkOver = 0x4;  ///< only dirty keys of the collection remain
  static constexpr unsigned char blocked = 0x10;  ///< stopped on an entity without an id

  /// An abort marker that is owed for an attribute.
  class MoxPendingAbort : public ValueMember<MoxPendingAbort, AttributeId, bool> {
   public:
    using ValueMember<MoxPendingAbort, AttributeId, bool>::ValueMember;
  };
  using PendingAborts = HashMap<MoxPendingAbort, AttributeId, bool>;

  /// Adapters that wait for this one. Kept for those who ask; nothing is driven by it.
  class MoxForwardRef : public LinkQueueLink<MoxForwardRef, unsigned int, StreamAdapter> {
   public:
    using LinkQueueLink<MoxForwardRef, unsigned int, StreamAdapter>::LinkQueueLink;
    ~MoxForwardRef() override;
  };
  using ForwardRefs = LinkQueue<MoxForwardRef, unsigned int, StreamAdapter>;

  ~FlowOut() override;

  /// True while there is something to send.
  virtual bool hasDirtyAttributes() const { return pendingAbort_.size() != 0; }
  virtual Ptr<StreamAdapter> forwardRefDel(unsigned int key);
  virtual Ptr<StreamAdapter> forwardRefDel(ForwardRefs::IteratorConst const& at);
  virtual void forwardRefNotify(unsigned int) {}
  virtual void forwardRefEnq(Ptr<StreamAdapter> const& adapter);
  virtual Ptr<StreamAdapter> forwardRefDeq();
  virtual void forwardRefIs(unsigned int key, Ptr<StreamAdapter> const& adapter);
  virtual void attrIdIs(AttributeId id);
  virtual void bookmarkIs(void* bookmark) { bookmark_ = bookmark; }
  virtual void entityIdStatusIs(EntityIdStatus status) { entityIdStatus_ = status; }
  virtual void entityIdSeqnoIs(unsigned int seqno) { entityIdSeqno_ = seqno; }
  virtual void valueIterIs(void* iterator) { valueIter_ = iterator; }
  virtual void valueIterKeyIs(void* key) { valueIterKey_ = key; }
  virtual void outstandingKeysInc(unsigned int by) { outstandingKeys_ += by; }
  virtual void outstandingKeysIs(unsigned int count) { outstandingKeys_ = count; }
  virtual void moxDataBitsIs(unsigned char bits) { moxDataBits_ = bits; }
  virtual void indIs(int ind) { ind_ = ind; }
  virtual void entityVersionIs(unsigned int version) { entityVersion_ = version; }
  virtual void pendingAbortDel(AttributeId id);
  virtual void pendingAbortDel(PendingAborts::Iterator const& at);
  virtual void pendingAbortNotify(AttributeId) {}
  virtual void pendingAbortIs(AttributeId id, bool owed);
  virtual void streamAdapterIs(Ptr<StreamAdapter> const& adapter);

  AttributeId attrId() const { return attrId_; }
  void* bookmark() const { return bookmark_; }
  void* valueIter() const { return valueIter_; }
  void* valueIterKey() const { return valueIterKey_; }
  unsigned int outstandingKeys() const { return outstandingKeys_; }
  unsigned char moxDataBits() const { return moxDataBits_; }
  bool isBlocked() const { return (moxDataBits_ & blocked) != 0; }
  PendingAborts& pendingAbort() { return pendingAbort_; }
  PendingAborts const& pendingAbort() const { return pendingAbort_; }
  StreamAdapter* streamAdapter() const { return adapter_; }
  bool hasFilledSlot() const {
    return bookmark_ != nullptr || valueIter_ != nullptr || valueIterKey_ != nullptr;
  }

  /// True for a full transfer: its end is told to the peer with a complete frame.
  bool isFull() const { return full_; }
  /// Where the next run begins.
  AttributeId resumeAt() const;
  /// What is owed has become so since then, on the clock of the link's turns: since the first mark,
  /// or the beginning of the last walk over all attributes that came to its end.
  std::uint64_t owedSinceMs() const { return owedSinceMs_; }
  void owedSinceMsIs(std::uint64_t nowMs) { owedSinceMs_ = nowMs; }
  std::uint64_t walkBeganMs() const { return walkBeganMs_; }
  void walkBeganMsIs(std::uint64_t nowMs) { walkBeganMs_ = nowMs; }
  /// The end of the full transfer has been sent.
  bool isCompleteSent() const { return completeSent_; }
  void isCompleteSentIs(bool sent) { completeSent_ = sent; }
  /// The entity whose id a blocked flow-out waits for: a name only, it may be gone.
  Entity const* blockedOn() const { return blockedOn_; }
  void blockedOnIs(Entity const* target) { blockedOn_ = target; }
  void runResultIs(AttributeId result) { runResult_ = result; }
  AttributeId runResult() const { return runResult_; }

 protected:
  FlowOut(StreamAdapter* adapter, bool full);

 private:
  AttributeId attrId_ = 0;
  AttributeId runResult_ = 0;
  void* bookmark_ = nullptr;
  void* valueIter_ = nullptr;
  void* valueIterKey_ = nullptr;
  unsigned int outstandingKeys_ = 0;
  unsigned int entityIdSeqno_ = 0;
  unsigned int entityVersion_ = 0;
  int ind_ = 0;
  EntityIdStatus entityIdStatus_ = EntityIdStatus::none;
  unsigned char moxDataBits_ = 0;
  PendingAborts pendingAbort_;
  std::unique_ptr<ForwardRefs> forwardRefs_;
  StreamAdapter* adapter_;
  bool full_;
  bool completeSent_ = false;
  std::uint64_t owedSinceMs_ = 0;
  std::uint64_t walkBeganMs_ = 0;
  Entity const* blockedOn_ = nullptr;
};

}  // namespace NboAttrLog
}  // namespace Mox
