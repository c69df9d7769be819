// M5: the map, of members that are allocated one by one. Keys: u16 (dense), u32 (scrambled), str
// (24 bytes).
#include <cstdio>
#include <memory>
#include <string>
#include <type_traits>
#include <vector>

#include "Mox/HashMap.h"
#include "bench/Micro.h"

namespace {

template <class K>
K keyOf(std::uint32_t index) {
  if constexpr (std::is_same_v<K, std::uint16_t>) {
    return static_cast<std::uint16_t>(index);
  } else if constexpr (std::is_same_v<K, std::uint32_t>) {
    std::uint32_t x = index + 0x9e3779b9u;
    x = (x ^ x >> 16) * 0x85ebca6bu;
    x = (x ^ x >> 13) * 0xc2b2ae35u;
    return x ^ x >> 16;
  } else {
    char bytes[64];
    std::snprintf(bytes, sizeof bytes, "prop.%08x.%010llx", keyOf<std::uint32_t>(index),
                  static_cast<unsigned long long>(bench::mix64(index) >> 24));
    return K(bytes, 24);
  }
}

template <class K>
class Member : public Mox::PtrInterface {
 public:
  Member(K const& key, std::uint32_t payload) : key_(key), payload_(payload) {}
  K const& key() const { return key_; }
  std::uint32_t payload() const { return payload_; }

 private:
  K key_;
  std::uint32_t payload_;

 public:
  Mox::Ptr<Member> next;
};

/// Members 0 to n-1 are in the map; n to 2n-1 are absent, with members of their own.
template <class K>
struct Fixture {
  explicit Fixture(std::uint32_t count) {
    for (std::uint32_t index = 0; index < 2 * count; ++index) {
      members.emplace_back(new Member<K>(keyOf<K>(index), index));
      queries.push_back(keyOf<K>(index));
    }
    for (std::uint32_t index = 0; index < count; ++index) map.newMember(members[index]);
    for (std::uint32_t pick = 0; pick < 65536; ++pick) {
      order.push_back(static_cast<std::uint32_t>(bench::mix64(pick) % count));
    }
  }
  std::vector<Mox::Ptr<Member<K>>> members;
  std::vector<K> queries;
  std::vector<std::uint32_t> order;
  Mox::HashMap<Member<K>, K> map;
};

template <class K>
void addSize(char const* key, std::uint32_t count) {
  // Built by the first operation that runs.
  auto const shared = std::make_shared<std::unique_ptr<Fixture<K>>>();
  auto const fixture = [shared, count]() -> Fixture<K>& {
    if (!*shared) *shared = std::make_unique<Fixture<K>>(count);
    return **shared;
  };
  auto const name = [&](char const* operation) {
    return std::string("M5/") + operation + "/" + key + "/" + std::to_string(count) + "/mox";
  };
  bench::add(name("hit"), [fixture](benchmark::State& state) {
    Fixture<K>& f = fixture();
    std::uint64_t sum = 0;
    std::uint32_t at = 0;
    for (auto _ : state) {
      sum += f.map[f.queries[f.order[at++ & 65535]]]->payload();
      benchmark::DoNotOptimize(sum);
    }
  });
  bench::add(name("miss"), [fixture, count](benchmark::State& state) {
    Fixture<K>& f = fixture();
    std::uint64_t found = 0;
    std::uint32_t at = 0;
    for (auto _ : state) {
      found += f.map[f.queries[count + f.order[at++ & 65535]]] != nullptr;
      benchmark::DoNotOptimize(found);
    }
    if (found != 0) state.SkipWithError("absent key found");
  });
  bench::add(name("insert_erase"), [fixture, count](benchmark::State& state) {
    Fixture<K>& f = fixture();
    std::uint32_t at = 0;
    for (auto _ : state) {
      std::uint32_t const index = count + f.order[at++ & 65535];
      f.map.newMember(f.members[index]);
      f.map.deleteMember(f.map[f.queries[index]]);
      benchmark::ClobberMemory();
    }
  });
  bench::add(name("walk"), [fixture, count](benchmark::State& state) {
    Fixture<K>& f = fixture();
    std::uint64_t sum = 0;
    for (auto _ : state) {
      sum = 0;
      for (auto member = f.map.iteratorConst(); member; ++member) sum += member->payload();
      benchmark::DoNotOptimize(sum);
    }
    if (sum != std::uint64_t{count} * (count - 1) / 2) state.SkipWithError("walk is incomplete");
    state.counters["n"] = count;
  });
}

template <class K>
void addKey(char const* key, std::initializer_list<std::uint32_t> counts) {
  for (std::uint32_t const count : counts) addSize<K>(key, count);
}

}  // namespace

int main(int argc, char** argv) {
  addKey<std::uint16_t>("u16", {72, 1000});
  addKey<std::uint32_t>("u32", {72, 1000, 100000});
  addKey<Mox::String8>("str", {72, 1000, 100000});
  return bench::run(argc, argv);
}
