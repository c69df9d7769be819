// The state of one entity whose message comes in pieces, or whose collection is being walked by
// the peer. At most one for each entity of a demuxer; made and dropped by the readers.
#pragma once

#include "Mox/AttributeId.h"
#include "Mox/Ptr.h"
#include "Mox/PtrInterface.h"

namespace MOX_API Mox {
namespace NboAttrLog {

class FlowIn : public PtrInterface {
 public:
  ~FlowIn() override;

  AttributeId aid() const { return aid_; }
  void aidIs(AttributeId aid) { aid_ = aid; }
  /// The key of the value in pieces (a String8); null for a scalar. Owned.
  void* idx() const { return idx_; }
  void idxIs(void* idx) { idx_ = idx; }
  /// What has come of the string so far (a String8::Iterator); null when none is open. Owned.
  void* iter() const { return iter_; }
  void iterIs(void* iter) { iter_ = iter; }
  bool handlingTransaction() const { return handlingTransaction_; }
  void handlingTransactionIs(bool on) { handlingTransaction_ = on; }

  /// The attribute whose begin marker has come and whose end marker has not; 0 when none.
  AttributeId openTransaction() const { return openTransaction_; }
  void openTransactionIs(AttributeId attribute) { openTransaction_ = attribute; }

 private:
  AttributeId aid_ = 0;
  AttributeId openTransaction_ = 0;
  void* idx_ = nullptr;
  void* iter_ = nullptr;
  bool handlingTransaction_ = false;
};

}  // namespace NboAttrLog
}  // namespace Mox
