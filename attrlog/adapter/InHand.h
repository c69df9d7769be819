// The message that a connection is applying: through which adapter, about which attribute, and the
// changes that subscribers made to its slot meanwhile. The reader opens it; writers ask it, so that
// no message is sent back to its sender.
#pragma once

#include <functional>
#include <utility>
#include <vector>

#include "Mox/AttributeId.h"
#include "Mox/Ptr.h"
#include "attrlog/adapter/StreamAdapter.h"

namespace MOX_API Mox {
namespace NboAttrLog {

class InHand {
 public:
  /// For its lifetime a message about the attribute is applied through the adapter.
  class Anchor {
   public:
    Anchor(InHand& inHand, StreamAdapter const& adapter, AttributeId attribute) : inHand_(inHand) {
      inHand.adapter_ = &adapter;
      inHand.attribute_ = attribute;
      inHand.isApplied_ = false;
    }
    ~Anchor() {
      inHand_.adapter_ = nullptr;
      inHand_.attribute_ = 0;
      inHand_.startsTransfer_ = false;
    }
    Anchor(Anchor const&) = delete;
    Anchor& operator=(Anchor const&) = delete;

   private:
    InHand& inHand_;
  };

  bool isIdle() const { return adapter_ == nullptr && noted_.empty(); }
  bool isApplying(StreamAdapter const& adapter) const { return adapter_ == &adapter; }
  bool isApplying(StreamAdapter const& adapter, AttributeId attribute) const {
    return adapter_ == &adapter && attribute_ == attribute;
  }
  /// True while a message about another attribute is applied through this adapter.
  bool isApplyingOther(StreamAdapter const& adapter, AttributeId attribute) const {
    return adapter_ == &adapter && attribute_ != attribute;
  }

  /// A setter is about to be called: from here on the message counts as applied, and an exception
  /// is a subscriber's, not the peer's fault.
  void appliedIs() { isApplied_ = true; }
  bool isApplied() const { return isApplied_; }
  void isAppliedIs(bool applied) { isApplied_ = applied; }
  /// The frame announces that the whole state of the entity that it creates follows.
  bool startsTransfer() const { return startsTransfer_; }
  void startsTransferIs(bool starts) { startsTransfer_ = starts; }

  /// Keeps a subscriber's change of the slot in hand; `notify` sends it when the message is done.
  void note(Entity::MoxNboAttrLogSa& adapter, std::function<void()> notify) {
    noted_.emplace_back(Ptr<Entity::MoxNboAttrLogSa>(&adapter), std::move(notify));
  }
  /// Sends the noted changes of adapters that haven't retired meanwhile.
  void sendNoted() {
    if (!noted_.empty()) sendAllNoted();
  }
  void clear() { noted_.clear(); }

 private:
  void sendAllNoted();

  StreamAdapter const* adapter_ = nullptr;
  AttributeId attribute_ = 0;
  bool isApplied_ = false;
  bool startsTransfer_ = false;
  std::vector<std::pair<Ptr<Entity::MoxNboAttrLogSa>, std::function<void()>>> noted_;
};

}  // namespace NboAttrLog
}  // namespace Mox
