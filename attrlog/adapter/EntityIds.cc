// The id allocator.
#include "attrlog/adapter/EntityIds.h"

#include <optional>
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
  void seed(std::uint32_t seed) {
    seeded_.emplace(seed);
    counter_ = 0;
  }

 private:
  std::uint32_t draw() { return static_cast<std::uint32_t>(seeded_ ? (*seeded_)() : random_()); }
  void newBlock() {
    do {
      high_ = draw();
    } while (high_ == 0);
    block_ = draw() & 0x7ff;
    counter_ = 1u << counterBits;
  }

  std::random_device random_;
  std::optional<std::minstd_rand> seeded_;
  std::uint32_t high_ = 0;
  std::uint32_t block_ = 0;
  std::uint32_t counter_ = 0;
};

Allocator& allocator() {
  static Allocator instance;
  return instance;
}

}  // namespace

EntityId newEntityId() { return allocator().next(); }

void entityIdsSeed(std::uint32_t seed) { allocator().seed(seed); }

}  // namespace NboAttrLog

MsgChannel::Constrainer& MsgChannel::constrainer() {
  static thread_local Constrainer constrainer;
  return constrainer;
}

}  // namespace Mox
