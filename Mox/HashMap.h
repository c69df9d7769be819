// The intrusive map of counted members in bit-reversed key order, and its iterators, which survive
// any change of the table. Holds every keyed collection and every set of dirty keys.
// The order and why it is so: docs/hash-map.md. One thread changes a map at a time.
#pragma once

#include <array>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <type_traits>
#include <utility>

#include "Mox/Assertion.h"
#include "Mox/Name.h"
#include "Mox/Ptr.h"
#include "Mox/PtrInterface.h"
#include "Mox/String8.h"

namespace MOX_API Mox {

class Entity;

/// The 32 bits in the opposite order.
constexpr unsigned int bitReverse(unsigned int value) {
  value = (value >> 1 & 0x55555555) | (value & 0x55555555) << 1;
  value = (value >> 2 & 0x33333333) | (value & 0x33333333) << 2;
  value = (value >> 4 & 0x0f0f0f0f) | (value & 0x0f0f0f0f) << 4;
  return __builtin_bswap32(value);
}

/// Whether `bitReverse(a) < bitReverse(b)`: the lowest bit in which they differ decides.
constexpr bool isReversedLess(std::uint32_t a, std::uint32_t b) {
  std::uint32_t const differing = a ^ b;
  return (b & differing & (0 - differing)) != 0;
}

/// The hash of a key, before the reversal. Numbers, enumerations and identifiers hash to their own
/// value; specialise it for other keys.
template <class K>
struct KeyHash {
  static constexpr std::uint32_t hash(K const& key) {
    if constexpr (std::is_enum_v<K>) {
      return KeyHash<std::underlying_type_t<K>>::hash(static_cast<std::underlying_type_t<K>>(key));
    } else if constexpr (std::is_same_v<K, bool>) {
      return key ? 1 : 0;
    } else if constexpr (std::is_integral_v<K> && sizeof(K) > 4) {
      auto const wide = static_cast<std::uint64_t>(key);
      return static_cast<std::uint32_t>(wide ^ wide >> 32);
    } else if constexpr (std::is_integral_v<K>) {
      return static_cast<std::uint32_t>(static_cast<std::make_unsigned_t<K>>(key));
    } else if constexpr (std::is_base_of_v<String8, K>) {
      return key.hash();
    } else {
      static_assert(K::isMoxIdentifier, "specialise KeyHash for this key");
      return KeyHash<std::remove_cvref_t<decltype(key.value())>>::hash(key.value());
    }
  }
};

/// Where a member's key is. The default asks `key()`, which must bump no counter.
template <class V>
struct HashMapMember {
  static decltype(auto) key(V const& member) { return member.key(); }
};

/// What the generic side of a map has to ask of its members. The order of the operations is part
/// of the interface.
class HashMapVTableGeneric {
 public:
  /// The member's key hash, bit-reversed.
  virtual unsigned int hash(PtrInterface const* member) const = 0;
  virtual bool keyEquals(void const* key, PtrInterface const* member) const = 0;
  /// With `other`: other's key < member's key. Else with `key`: *key < member's key. Else true.
  virtual bool keyLessThan(void const* key, PtrInterface const* member,
                           PtrInterface const* other) const = 0;
  /// Assigns the member's `next`, counted; the version of an entity member goes up by 1.
  virtual void setNext(PtrInterface* member, PtrInterface* next) const = 0;

 protected:
  ~HashMapVTableGeneric() = default;
};

template <class V, class K>
class HashMapVTable final : public HashMapVTableGeneric {
 public:
  unsigned int hash(PtrInterface const* member) const override {
    return bitReverse(KeyHash<K>::hash(keyOf(member)));
  }
  bool keyEquals(void const* key, PtrInterface const* member) const override {
    return keyOf(member) == *static_cast<K const*>(key);
  }
  bool keyLessThan(void const* key, PtrInterface const* member,
                   PtrInterface const* other) const override {
    if (other) return keyOf(other) < keyOf(member);
    if (key) return *static_cast<K const*>(key) < keyOf(member);
    return true;
  }
  void setNext(PtrInterface* member, PtrInterface* next) const override {
    auto* const typed = static_cast<V*>(member);
    typed->next.ptrAssign(static_cast<V*>(next));
    if constexpr (std::is_base_of_v<Entity, V>) typed->moxVersionInc();
  }

 private:
  static decltype(auto) keyOf(PtrInterface const* member) {
    return HashMapMember<V>::key(*static_cast<V const*>(member));
  }
};

/// The untyped part of every map: order, growth, links. Typed code reads version, bits and buckets
/// in line and calls the rest.
class HashMapGeneric {
 public:
  /// `buckets`: the smallest table, taken at the first insertion and rounded up to a power of two.
  explicit HashMapGeneric(unsigned int buckets);
  ~HashMapGeneric();
  HashMapGeneric(HashMapGeneric const&) = delete;
  HashMapGeneric& operator=(HashMapGeneric const&) = delete;

  /// The change stamp of the table, not of an entity: changes with every member and every size.
  std::uint32_t version() const { return version_; }
  /// Number of members.
  std::uint32_t size() const { return size_; }
  bool empty() const { return size_ == 0; }
  /// Log2 of the number of buckets.
  std::uint8_t bits() const { return bits_; }
  std::uint32_t bucketCount() const { return 1u << bits_; }
  /// The bucket of a reversed hash: its top `bits()` bits.
  std::uint32_t bucketOf(std::uint32_t reversedHash) const {
    return static_cast<std::uint32_t>(std::uint64_t{reversedHash} << bits_ >> 32);
  }
  /// The same of a hash that wasn't reversed: tables of up to 2^16 buckets look at two bytes of it.
  std::uint32_t bucketOfHash(std::uint32_t hash) const {
    if (bits_ > 16) [[unlikely]]
      return bucketOf(bitReverse(hash));
    return static_cast<std::uint32_t>(reversedBytes[hash & 0xff] << 8 |
                                      reversedBytes[hash >> 8 & 0xff]) >>
           (16 - bits_);
  }
  PtrInterface* bucketHead(std::uint32_t bucket) const { return buckets_[bucket]; }

  /// Links a member, which the map then holds. Requires: its key isn't in the map. `key` may be
  /// null. A failed allocation of the first table goes to the caller, nothing changed.
  void newMemberG(Ptr<PtrInterface> const& member, void const* key);
  /// Unlinks the member and drops the map's reference; a member that isn't linked is left alone.
  void deleteMember(Ptr<PtrInterface> const& member);
  /// Unlinks all members, in order, without recursion; their destructors see an empty map. Of the
  /// exceptions of their zero handling the first goes to the caller once all are unlinked.
  void emptyAllBuckets();
  /// The first member for null, else the one behind `member`'s position, linked or not. Null
  /// behind the last. Writes the bucket through `bucket` unless that is null (-1 for no member).
  PtrInterface* findNextG(PtrInterface const* member, int* bucket) const;
  /// The head of the first non-empty bucket above `*bucket`, which it updates; else null.
  PtrInterface* findNextBucket(int* bucket) const {
    std::uint32_t const count = bucketCount();
    for (auto at = static_cast<std::uint32_t>(*bucket) + 1; at < count; ++at) {
      if (!buckets_[at]) continue;
      *bucket = static_cast<int>(at);
      return buckets_[at];
    }
    return nullptr;
  }
  /// The first member at or behind (`hash`, `*key`); `hash` is reversed. `*bucket` is at least the
  /// bucket count when there is none.
  PtrInterface* startAtHash(void const* key, unsigned int hash, int* bucket) const;

  // For cursors that don't know the member class.

  /// The member that follows in the chain of a bucket; null at its end.
  PtrInterface* moxNext(PtrInterface const* member) const { return nextOf(member); }
  bool moxKeyEquals(void const* key, PtrInterface const* member) const {
    return vtable_->keyEquals(key, member);
  }

  /// The longest chain, for tests and measurements.
  std::uint32_t longestChain() const;

 protected:
  /// Called by the typed constructor.
  void layoutIs(HashMapVTableGeneric const* vtable, std::size_t nextOffset) {
    vtable_ = vtable;
    nextOffset_ = static_cast<std::uint16_t>(nextOffset);
  }

  // Insertion and deletion, for both sides: `Order` is what tells hashes, order and links. The
  // generic side's asks the vtable; the typed side's is expanded in line. `adoptNext` hands a
  // counted reference over to a link that is null, `releaseNext` takes that of a link, which is
  // null then; both count as link changes.
  template <class Order>
  void link(Order const& order, PtrInterface* fresh);
  template <class Order>
  void unlink(Order const& order, PtrInterface* member) {
    unlinkFrom(order, order.bucket(*this, order.hash(member)), member);
  }
  /// False if the member isn't in that bucket.
  template <class Order>
  bool unlinkFrom(Order const& order, std::uint32_t bucket, PtrInterface* member);

 private:
  class GenericOrder;
  static constexpr std::array<std::uint8_t, 256> reversedBytes = [] {
    std::array<std::uint8_t, 256> bytes{};
    for (unsigned int byte = 0; byte < 256; ++byte) {
      bytes[byte] = static_cast<std::uint8_t>(bitReverse(byte) >> 24);
    }
    return bytes;
  }();

  /// Whether `candidate` stands behind the position of `member`, whose hash is `hash`.
  template <class Order>
  static bool isBehind(Order const& order, PtrInterface const* candidate, std::uint32_t hash,
                       PtrInterface const* member) {
    std::uint32_t const candidateHash = order.hash(candidate);
    return order.isLess(hash, candidateHash) ||
           (candidateHash == hash && order.keyLess(member, candidate));
  }
  PtrInterface* nextOf(PtrInterface const* member) const;
  /// The most members that a table of this size is left with.
  std::uint32_t most() const { return (bucketCount() - bucketCount() / 8) >> (sizing_ >> 4); }
  void tableIs();
  bool bitsIs(unsigned int bits);
  void split(PtrInterface** fresh);
  void join(PtrInterface** fresh);
  void growFor(PtrInterface const* head, PtrInterface const* fresh, unsigned int place);
  void shrinkIfSparse();
  void releaseTable();

  /// A longer chain than this doesn't come from chance (1 in 10^9 at one member a bucket): the keys
  /// have a common stride, and more buckets than members take it apart.
  static constexpr unsigned int longChain = 12;
  /// The one bucket of every map that has none of its own. Never written.
  static PtrInterface* noMembers_[1];

  std::uint32_t version_ = 0;
  std::uint32_t size_ = 0;
  HashMapVTableGeneric const* vtable_ = nullptr;
  /// Low nibble: log2 of the smallest table. High nibble: log2 of the buckets per member that keys
  /// with a common stride were granted.
  std::uint8_t sizing_;
  std::uint8_t bits_ = 0;
  std::uint16_t nextOffset_ = 0;
  /// No member stands in a bucket below: the search for the first one begins here, so that taking
  /// out the first member again and again costs linear time. Moved by that search, and atomically,
  /// since any number of threads may read a map.
  mutable std::uint32_t firstBucket_ = 0;
  PtrInterface** buckets_;
};

template <class Order>
void HashMapGeneric::link(Order const& order, PtrInterface* fresh) {
  std::uint32_t const hash = order.hash(fresh);
  if (buckets_ == noMembers_) [[unlikely]]
    tableIs();
  std::uint32_t const bucket = order.bucket(*this, hash);
  unsigned int length = 1;
  PtrInterface* previous = nullptr;
  PtrInterface* following = buckets_[bucket];
  for (; following && !isBehind(order, following, hash, fresh);
       following = order.nextOf(following)) {
    previous = following;
    ++length;
  }
  ++version_;
  ++size_;
  if (bucket < firstBucket_) firstBucket_ = bucket;
  if (order.nextOf(fresh)) [[unlikely]]
    order.setNext(fresh, nullptr);
  if (previous) {
    if (following) order.setNext(fresh, following);
    order.setNext(previous, fresh);
  } else {
    ptrInc(fresh);
    buckets_[bucket] = fresh;
    // The bucket's reference on the old head becomes the new head's.
    if (following) order.adoptNext(fresh, following);
  }
  if (size_ > most() || length > longChain) [[unlikely]]
    growFor(buckets_[bucket], fresh, length);
}

template <class Order>
bool HashMapGeneric::unlinkFrom(Order const& order, std::uint32_t bucket, PtrInterface* member) {
  PtrInterface* previous = nullptr;
  PtrInterface* at = buckets_[bucket];
  for (; at && at != member; at = order.nextOf(at)) previous = at;
  if (!at) return false;
  Ptr<PtrInterface> const held(member);
  PtrInterface* const following = order.nextOf(at);
  if (previous) {
    order.setNext(previous, following);
    // A removed member keeps no sibling alive.
    if (following) order.setNext(at, nullptr);
  } else {
    buckets_[bucket] = following ? order.releaseNext(at) : nullptr;
    ptrDec(at);
  }
  ++version_;
  --size_;
  if (size_ < bucketCount() / 4) shrinkIfSparse();
  return true;
}

/// What the typed side asks, in line: hashes stay as they are, and counts that would rise and fall
/// again stay too.
template <class V, class K>
class HashMapOrder {
 public:
  static std::uint32_t hash(PtrInterface const* member) { return KeyHash<K>::hash(keyOf(member)); }
  static std::uint32_t bucket(HashMapGeneric const& map, std::uint32_t hash) {
    return map.bucketOfHash(hash);
  }
  static bool isLess(std::uint32_t a, std::uint32_t b) { return isReversedLess(a, b); }
  static bool keyLess(PtrInterface const* a, PtrInterface const* b) { return keyOf(a) < keyOf(b); }
  static PtrInterface* nextOf(PtrInterface const* member) {
    return static_cast<V const*>(member)->next.get();
  }
  static void setNext(PtrInterface* member, PtrInterface* next) {
    HashMapVTable<V, K>().setNext(member, next);
  }
  static void adoptNext(PtrInterface* member, PtrInterface* next) {
    auto* const typed = static_cast<V*>(member);
    typed->next.moxAdopt(static_cast<V*>(next));
    if constexpr (std::is_base_of_v<Entity, V>) typed->moxVersionInc();
  }
  static PtrInterface* releaseNext(PtrInterface* member) {
    auto* const typed = static_cast<V*>(member);
    if constexpr (std::is_base_of_v<Entity, V>) typed->moxVersionInc();
    return typed->next.moxRelease();
  }

 private:
  static decltype(auto) keyOf(PtrInterface const* member) {
    return HashMapMember<V>::key(*static_cast<V const*>(member));
  }
};

/// `V`: the member class, with `K key() const` and a public `Ptr<V> next`; PtrInterface stands at
/// its start. `H`: what a lookup of the owning attribute hands out.
template <class V, class K, class H = V>
class HashMap : public HashMapGeneric {
  template <bool isConst>
  class BasicIterator;

 public:
  using MemberType = V;
  using KeyType = K;
  using ValueType = H;
  using IteratorConst = BasicIterator<true>;
  using Iterator = BasicIterator<false>;

  explicit HashMap(unsigned int buckets = 4) : HashMapGeneric(buckets) {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Winvalid-offsetof"
    static_assert(sizeof(V) <= 0xffff);
    layoutIs(moxVTable(), offsetof(V, next));
#pragma GCC diagnostic pop
  }

  /// The member with this key, or null. Not counted: the caller takes the reference that it needs.
  V* operator[](K const& key) const {
    std::uint32_t const bucket = bucketOfHash(KeyHash<K>::hash(key));
    for (auto* member = static_cast<V*>(bucketHead(bucket)); member; member = member->next.get()) {
      if (HashMapMember<V>::key(*member) == key) return member;
    }
    return nullptr;
  }

  void newMember(Ptr<V> const& member) { link(HashMapOrder<V, K>(), member.get()); }
  using HashMapGeneric::deleteMember;
  void deleteMember(Ptr<V> const& member) { unlink(HashMapOrder<V, K>(), member.get()); }
  void deleteMember(V* member) { deleteMember(Ptr<V>(member)); }
  /// The same for a member whose key has changed under the map, as that of a wrapper can. Looks
  /// into every bucket.
  void deleteMisplaced(Ptr<V> const& member) {
    for (std::uint32_t bucket = 0; bucket < bucketCount(); ++bucket) {
      if (unlinkFrom(HashMapOrder<V, K>(), bucket, member.get())) return;
    }
  }
  /// Whether this very member is linked, by its key.
  bool contains(V const* member) const {
    V const* at = (*this)[HashMapMember<V>::key(*member)];
    while (at && at != member) at = at->next.get();
    return at != nullptr;
  }

  Iterator iterator() { return Iterator(this); }
  IteratorConst iteratorConst() const { return IteratorConst(this); }
  IteratorConst iteratorConst(K const& key) const { return IteratorConst(this, key); }

  /// One table of operations for all maps of this kind, never freed.
  HashMapVTableGeneric const* moxVTable() const {
    static HashMapVTableGeneric const* const moxVTable_ = new HashMapVTable<V, K>();
    return moxVTable_;
  }
};

/// Stands on a member and holds it, or stands at the end. A member that was removed under it stays
/// its place: the next step goes to what follows there.
template <class V, class K, class H>
template <bool isConst>
class HashMap<V, K, H>::BasicIterator {
 public:
  using Map = std::conditional_t<isConst, HashMap const, HashMap>;
  using Member = std::conditional_t<isConst, V const, V>;

  BasicIterator() = default;
  /// Stands on the first member. A null map has none.
  explicit BasicIterator(Map* map) : map_(map) {
    if (!map) return;
    // The two kinds differ in what an iterator without a member keeps, as everywhere at the end.
    if constexpr (isConst) version_ = map->version();
    member_ = typed(map->findNextG(nullptr, &bucket_));
    version_ = member_ ? map->version() : version_;
  }
  /// Stands on the member with this key, or on the next one in table order.
  BasicIterator(Map* map, K const& key) : map_(map) {
    if (!map) return;
    std::uint32_t const hash = bitReverse(KeyHash<K>::hash(key));
    member_ = typed(map->startAtHash(&key, hash, &bucket_));
    version_ = bucket_ < static_cast<std::int64_t>(map->bucketCount()) ? map->version() : 0;
  }
  BasicIterator(BasicIterator const&) = default;
  BasicIterator& operator=(BasicIterator const&) = default;
  /// Iterator to IteratorConst.
  template <bool otherConst>
  requires(isConst && !otherConst) BasicIterator(BasicIterator<otherConst> const& other)
      : version_(other.version_),
        bucket_(other.bucket_),
        map_(other.map_),
        member_(other.member_) {}

  explicit operator bool() const { return static_cast<bool>(member_); }
  Member* operator->() const { return member_.get(); }
  Member* operator*() const { return member_.get(); }
  Ptr<V> const& ptr() const requires(!isConst) { return member_; }
  Ptr<V const> ptr() const requires(isConst) { return member_; }
  decltype(auto) key() const { return HashMapMember<V>::key(*member_.get()); }
  decltype(auto) value() const { return member_->value(); }

  /// At the end it does nothing.
  void advance() {
    if (!member_) return;
    std::uint32_t const version = map_->version();
    PtrInterface* next;
    if (version_ == version) {
      next = member_->next.get();
      if (!next) next = map_->findNextBucket(&bucket_);
      if (next == member_.get()) return;
      if (!next) bucket_ = -1;
    } else {
      int bucket;
      next = map_->findNextG(member_.get(), &bucket);
      bucket_ = bucket;
      version_ = version;
    }
    // Last: the release may destroy the old member, and that may change the map.
    member_.ptrAssign(typed(next));
  }
  BasicIterator& operator++() {
    advance();
    return *this;
  }

  /// Whether it stands on a member that `map` holds, and not on one that was removed, or in another
  /// map.
  bool isOnMemberOf(HashMap const& map) const {
    return member_ && map_ == &map && (version_ == map.version() || map.contains(member_.get()));
  }

  friend bool operator==(BasicIterator const& a, BasicIterator const& b) {
    return a.map_ == b.map_ && a.member_ == b.member_;
  }

 private:
  template <bool>
  friend class BasicIterator;
  static V* typed(PtrInterface* member) { return static_cast<V*>(member); }

  std::uint32_t version_ = 0;
  std::int32_t bucket_ = -1;
  Map* map_ = nullptr;
  Ptr<V> member_;
};

/// Base of the wrapper that holds one key and one value in a map:
/// `class MoxSerdes : public ValueMember<MoxSerdes, AradNifSerdesId, bool>`.
template <class Self, class K, class V>
class ValueMember : public PtrInterface {
 public:
  explicit ValueMember(K const& key, V const& value = V()) : key_(key), value_(value) {}

  K const& key() const { return key_; }
  V const& value() const { return value_; }
  void valueIs(V const& value) { value_ = value; }

 private:
  K key_;
  V value_;

 public:
  Ptr<Self> next;
};

/// The same for a set of keys with a mark each.
template <class Self, class K, class V = bool>
class KeyMember : public ValueMember<Self, K, V> {
 public:
  using ValueMember<Self, K, V>::ValueMember;
};

}  // namespace Mox
