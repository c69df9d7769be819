// The id allocator.
#include "attrlog/EntityIds.h"

#include <random>

namespace Mox {
namespace NboAttrLog {
namespace {

constexpr unsigned int counterBits = 20;

class Allocator {
 public:
  EntityId next() {
    if (counter_ == 0) newBlock();
    --counter_;
    return EntityId(high_, block_ << (counterBits + 1) | counter_ << 1 | 1);
  }

 private:
  void newBlock() {
    do {
      high_ = random_();
    } while (high_ == 0);
    block_ = random_() & 0x7ff;
    counter_ = 1u << counterBits;
  }

  std::random_device random_;
  std::uint32_t high_ = 0;
  std::uint32_t block_ = 0;
  std::uint32_t counter_ = 0;
};

}  // namespace

EntityId newEntityId() {
  static Allocator allocator;
  return allocator.next();
}

}  // namespace NboAttrLog

MsgChannel::Constrainer& MsgChannel::constrainer() {
  static thread_local Constrainer constrainer;
  return constrainer;
}

}  // namespace Mox
