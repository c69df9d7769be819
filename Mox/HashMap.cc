// The order, growth and links of every map. Members of a chain stand in table order, so that a
// bucket splits by one cut and two buckets join by one link. The essay is docs/hash-map.md.
#include "Mox/HashMap.h"

#include <algorithm>
#include <atomic>
#include <bit>
#include <cstring>
#include <exception>
#include <new>

namespace Mox {

namespace {

constexpr unsigned int largestBits = 30;
/// At most 2^4 buckets for a member are granted against strides.
constexpr unsigned int largestSpread = 4;

unsigned int smallestBits(std::uint8_t sizing) { return sizing & 0xf; }
unsigned int spreadOf(std::uint8_t sizing) { return sizing >> 4; }

}  // namespace

PtrInterface* HashMapGeneric::noMembers_[1] = {nullptr};

HashMapGeneric::HashMapGeneric(unsigned int buckets)
    : sizing_(static_cast<std::uint8_t>(
          std::bit_width(std::min(buckets > 1 ? buckets - 1 : 0u, 0x7fffu)))),
      buckets_(noMembers_) {}

HashMapGeneric::~HashMapGeneric() {
  emptyAllBuckets();
  releaseTable();
}

void HashMapGeneric::releaseTable() {
  if (buckets_ != noMembers_) delete[] buckets_;
  buckets_ = noMembers_;
  bits_ = 0;
  firstBucket_ = 0;
  sizing_ = static_cast<std::uint8_t>(smallestBits(sizing_));
}

PtrInterface* HashMapGeneric::nextOf(PtrInterface const* member) const {
  // The link has the member's own type, so it is read as bytes.
  PtrInterface* next;
  std::memcpy(&next, reinterpret_cast<char const*>(member) + nextOffset_, sizeof next);
  return next;
}

/// What the untyped side asks: the vtable, and the offset of the link.
class HashMapGeneric::GenericOrder {
 public:
  explicit GenericOrder(HashMapGeneric const& map) : map_(map) {}
  std::uint32_t hash(PtrInterface const* member) const { return map_.vtable_->hash(member); }
  std::uint32_t bucket(HashMapGeneric const&, std::uint32_t hash) const {
    return map_.bucketOf(hash);
  }
  bool isLess(std::uint32_t a, std::uint32_t b) const { return a < b; }
  bool keyLess(PtrInterface const* a, PtrInterface const* b) const {
    return map_.vtable_->keyLessThan(nullptr, b, a);
  }
  void setNext(PtrInterface* member, PtrInterface* next) const {
    map_.vtable_->setNext(member, next);
  }
  void adoptNext(PtrInterface* member, PtrInterface* next) const {
    setNext(member, next);
    ptrDec(next);
  }
  PtrInterface* releaseNext(PtrInterface* member) const {
    PtrInterface* const next = nextOf(member);
    ptrInc(next);
    setNext(member, nullptr);
    return next;
  }
  PtrInterface* nextOf(PtrInterface const* member) const { return map_.nextOf(member); }

 private:
  HashMapGeneric const& map_;
};

void HashMapGeneric::newMemberG(Ptr<PtrInterface> const& member, void const*) {
  link(GenericOrder(*this), member.get());
}
void HashMapGeneric::deleteMember(Ptr<PtrInterface> const& member) {
  unlink(GenericOrder(*this), member.get());
}

void HashMapGeneric::tableIs() {
  unsigned int const bits = smallestBits(sizing_);
  buckets_ = new PtrInterface*[std::size_t{1} << bits]();
  bits_ = static_cast<std::uint8_t>(bits);
}

void HashMapGeneric::growFor(PtrInterface const* head, PtrInterface const* fresh,
                             unsigned int place) {
  unsigned int const spread = spreadOf(sizing_);
  if (size_ > most()) {
    bitsIs(bits_ + 1u);
  } else if (place > longChain && spread < largestSpread) {
    // Only if the next few bits take apart what stands before the new member: equal hashes stay
    // together in any table.
    std::uint32_t const differing = vtable_->hash(head) ^ vtable_->hash(fresh);
    if (differing >> (32 - (bits_ + largestSpread - spread)) != 0 && bitsIs(bits_ + 1u)) {
      sizing_ = static_cast<std::uint8_t>(sizing_ + 0x10);
    }
  }
}

void HashMapGeneric::shrinkIfSparse() {
  if (bits_ <= smallestBits(sizing_)) return;
  if (size_ == 0) {
    releaseTable();
  } else if (size_ < (bucketCount() >> spreadOf(sizing_)) / 4) {
    bitsIs(bits_ - 1u);
  }
}

/// Doubles or halves the table, within an operation that has changed the version. False if there is
/// no memory for it: the map then stays as it is, slower or larger than it might be.
bool HashMapGeneric::bitsIs(unsigned int bits) {
  if (bits > largestBits - 2) return false;
  auto** const fresh = new (std::nothrow) PtrInterface*[std::size_t{1} << bits];
  if (!fresh) return false;
  bits > bits_ ? split(fresh) : join(fresh);
  firstBucket_ = bits > bits_ ? firstBucket_ * 2 : firstBucket_ / 2;
  delete[] buckets_;
  buckets_ = fresh;
  bits_ = static_cast<std::uint8_t>(bits);
  return true;
}

void HashMapGeneric::split(PtrInterface** fresh) {
  std::uint32_t const upperHalf = 0x80000000u >> bits_;
  for (std::uint32_t bucket = 0; bucket < bucketCount(); ++bucket) {
    PtrInterface* lower = buckets_[bucket];
    PtrInterface* upper = lower;
    PtrInterface* previous = nullptr;
    for (; upper && (vtable_->hash(upper) & upperHalf) == 0; upper = nextOf(upper)) {
      previous = upper;
    }
    if (!previous) {
      lower = nullptr;
    } else if (upper) {
      ptrInc(upper);
      vtable_->setNext(previous, nullptr);
    }
    fresh[2 * bucket] = lower;
    fresh[2 * bucket + 1] = upper;
  }
}

void HashMapGeneric::join(PtrInterface** fresh) {
  for (std::uint32_t bucket = 0; bucket < bucketCount(); bucket += 2) {
    PtrInterface* const lower = buckets_[bucket];
    PtrInterface* const upper = buckets_[bucket + 1];
    fresh[bucket / 2] = lower ? lower : upper;
    if (!lower || !upper) continue;
    PtrInterface* last = lower;
    while (PtrInterface* const next = nextOf(last)) last = next;
    vtable_->setNext(last, upper);
    ptrDec(upper);
  }
}

void HashMapGeneric::emptyAllBuckets() {
  if (size_ == 0) return;
  PtrInterface** const buckets = buckets_;
  std::uint32_t const count = bucketCount();
  ++version_;
  size_ = 0;
  buckets_ = noMembers_;
  releaseTable();
  std::exception_ptr failure;
  for (std::uint32_t bucket = 0; bucket < count; ++bucket) {
    PtrInterface* at = buckets[bucket];
    while (at) {
      PtrInterface* const following = nextOf(at);
      if (following) {
        ptrInc(following);
        vtable_->setNext(at, nullptr);
      }
      try {
        ptrDec(at);
      } catch (...) {
        if (!failure) failure = std::current_exception();
      }
      at = following;
    }
  }
  delete[] buckets;
  if (failure) std::rethrow_exception(failure);
}

PtrInterface* HashMapGeneric::findNextG(PtrInterface const* member, int* bucket) const {
  std::atomic_ref<std::uint32_t> const first(firstBucket_);
  int at = static_cast<int>(first.load(std::memory_order_relaxed)) - 1;
  PtrInterface* found = nullptr;
  if (member) {
    std::uint32_t const hash = vtable_->hash(member);
    at = static_cast<int>(bucketOf(hash));
    for (found = buckets_[at]; found; found = nextOf(found)) {
      if (found != member && isBehind(GenericOrder(*this), found, hash, member)) break;
    }
  }
  if (!found) found = findNextBucket(&at);
  if (found && !member) first.store(static_cast<std::uint32_t>(at), std::memory_order_relaxed);
  if (bucket) *bucket = found ? at : -1;
  return found;
}

PtrInterface* HashMapGeneric::startAtHash(void const* key, unsigned int hash, int* bucket) const {
  int at = static_cast<int>(bucketOf(hash));
  PtrInterface* found = buckets_[at];
  for (; found; found = nextOf(found)) {
    std::uint32_t const foundHash = vtable_->hash(found);
    if (foundHash > hash) break;
    if (foundHash < hash) continue;
    if (vtable_->keyLessThan(key, found, nullptr) || vtable_->keyEquals(key, found)) break;
  }
  if (!found) found = findNextBucket(&at);
  if (bucket) *bucket = found ? at : static_cast<int>(bucketCount());
  return found;
}

std::uint32_t HashMapGeneric::longestChain() const {
  std::uint32_t longest = 0;
  for (std::uint32_t bucket = 0; bucket < bucketCount(); ++bucket) {
    std::uint32_t length = 0;
    for (PtrInterface* at = buckets_[bucket]; at; at = nextOf(at)) ++length;
    longest = std::max(longest, length);
  }
  return longest;
}

}  // namespace Mox
