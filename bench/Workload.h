// The tree that every library replicates, its content hash and the lists of changes. Needs nothing
// but the standard library; the tables of what is in the tree stand in docs/performance.md.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

namespace bench::tree {

inline std::uint64_t mix(std::uint64_t x) {
  x += 0x9E3779B97F4A7C15ull;
  x = (x ^ (x >> 30)) * 0xBF58476D1CE4E5B9ull;
  x = (x ^ (x >> 27)) * 0x94D049BB133111EBull;
  return x ^ (x >> 31);
}

enum Kind : std::uint32_t {
  slice,
  chip,
  serdes,
  blockA,
  blockB,
  blockC,
  blockD,
  port,
  bag,
  kindCount
};
inline constexpr std::uint32_t perChip[kindCount] = {0, 1, 72, 18, 18, 36, 96, 128, 3};
inline constexpr std::uint32_t scalarCount[kindCount] = {1, 1, 10, 4, 4,
                                                         4, 4, 20, 0};  // attributes 1..n, u32
inline constexpr bool hasText(std::uint32_t k) { return k <= chip || (k >= blockA && k <= blockD); }
inline constexpr bool hasLanes(std::uint32_t k) { return k >= blockA && k <= blockC; }
inline constexpr std::uint32_t lanesPerBlock = 4, bagEntries = 400, objectsPerChip = 372,
                               valuesPerChip = 5610;
inline constexpr std::uint32_t sliceId = 1, doneAttr = 1, ackAttr = 2;  // attributes of the slice
inline constexpr std::uint32_t textAttr = 100, laneAttr = 101, bagAttr = 102;

struct Object {
  std::uint32_t id, kind, parent, key;
};

inline std::vector<Object> objectsOf(std::uint32_t chips) {  // parents before children
  std::vector<Object> v{{sliceId, slice, 0, 0}};
  std::uint32_t id = sliceId;
  for (std::uint32_t c = 0; c < chips; ++c) {
    std::uint32_t const chipId = ++id;
    v.push_back({chipId, chip, sliceId, c});
    for (std::uint32_t k = serdes; k < kindCount; ++k)
      for (std::uint32_t i = 0; i < perChip[k]; ++i) v.push_back({++id, k, chipId, i});
  }
  return v;
}
inline std::uint64_t valueCount(std::uint32_t chips) {
  return 2 + std::uint64_t(chips) * valuesPerChip;
}

inline std::uint32_t scalar(std::uint32_t id, std::uint32_t attr) {
  return std::uint32_t(mix(std::uint64_t(id) << 8 | attr)) & (attr & 1 ? 0xFFu : 0xFFFFu);
}
inline std::string text(std::uint32_t id, std::uint32_t kind) {  // 24 bytes
  static char const* tag[kindCount] = {"slic", "chip", "", "pbA-", "pbB-", "pbC-", "pbD-", "", ""};
  char b[64];
  std::snprintf(b, sizeof b, "%s%08x-%011llx", tag[kind], id, (unsigned long long)(mix(id) >> 20));
  return std::string(b, 24);
}
inline std::uint32_t laneId(std::uint32_t key, std::uint32_t j) { return key * lanesPerBlock + j; }
inline bool laneValue(std::uint32_t id, std::uint32_t j) { return (id + j) & 1; }
inline std::string bagKey(std::uint32_t id, std::uint32_t i) {  // 24 bytes
  char b[64];
  std::snprintf(b, sizeof b, "prop.%03u.%015llx", i,
                (unsigned long long)(mix(std::uint64_t(id) << 16 | i) >> 4));
  return std::string(b, 24);
}
inline std::string bagValue(std::uint32_t id, std::uint32_t i) {  // 16 bytes
  char b[64];
  std::snprintf(b, sizeof b, "%016llx",
                (unsigned long long)mix((std::uint64_t(id) << 16 | i) + 0x5151));
  return std::string(b, 16);
}

// Content hash: the sum modulo 2^64 of one term per object and per value, so in any order.
inline std::uint64_t fnv(std::string_view s) {
  std::uint64_t h = 0xCBF29CE484222325ull;
  for (unsigned char c : s) h = (h ^ c) * 0x100000001B3ull;
  return h;
}
inline std::uint64_t hashObject(Object const& o) {
  return mix(mix(std::uint64_t(o.id) << 32 | o.parent) + (std::uint64_t(o.kind) << 32 | o.key));
}
inline std::uint64_t hashScalar(std::uint32_t id, std::uint32_t attr, std::uint32_t v) {
  return mix(mix(std::uint64_t(id) << 32 | attr) + v);
}
inline std::uint64_t hashText(std::uint32_t id, std::string_view s) {
  return mix(mix(std::uint64_t(id) << 32 | textAttr) + fnv(s));
}
inline std::uint64_t hashLane(std::uint32_t id, std::uint32_t lane, bool v) {
  return mix(mix(std::uint64_t(id) << 32 | laneAttr) + (std::uint64_t(lane) << 1 | v));
}
inline std::uint64_t hashBag(std::uint32_t id, std::string_view k, std::string_view v) {
  return mix(mix(std::uint64_t(id) << 32 | bagAttr) + mix(fnv(k)) + fnv(v));
}

// A change: index in objectsOf(), attribute, new value (always different from the one before).
struct Change {
  std::uint32_t index, attr, value;
};

class Changes {
 public:
  explicit Changes(std::vector<Object> const& objects)
      : objects_(objects), now_(objects.size() * 21) {
    for (std::uint32_t i = 0; i < objects.size(); ++i) {
      for (std::uint32_t a = 1; a <= scalarCount[objects[i].kind]; ++a)
        now_[i * 21 + a] = scalar(objects[i].id, a);
      if (objects[i].kind >= serdes && objects[i].kind <= port) any_.push_back(i);
      if (objects[i].kind == port && ports_.size() < 50) ports_.push_back(i);
    }
  }
  // Of any object from the serdes to the ports, any of its scalars.
  std::vector<Change> random(std::uint32_t n) {
    std::vector<Change> v(n);
    for (auto& c : v) {
      std::uint64_t r = mix(seed_++);
      std::uint32_t i = any_[std::uint32_t(r) % any_.size()];
      c = step(i, 1 + std::uint32_t(r >> 32 & 0xFFFF) % scalarCount[objects_[i].kind], r);
    }
    return v;
  }
  // Of the 20 scalars of each of the first 50 ports.
  std::vector<Change> hot(std::uint32_t n) {
    std::vector<Change> v(n);
    for (auto& c : v) {
      std::uint64_t r = mix(seed_++);
      c = step(ports_[std::uint32_t(r) % 50], 1 + std::uint32_t(r >> 32 & 0xFFFF) % 20, r);
    }
    return v;
  }

 private:
  Change step(std::uint32_t i, std::uint32_t a, std::uint64_t r) {
    std::uint32_t& x = now_[i * 21 + a];
    x += 1 + std::uint32_t(r >> 48 & 0x3F);
    return {i, a, x};
  }
  std::vector<Object> const& objects_;
  std::vector<std::uint32_t> now_, any_, ports_;
  std::uint64_t seed_ = 42;
};

}  // namespace bench::tree
