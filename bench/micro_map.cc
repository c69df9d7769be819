// M5: keyed maps of members that are allocated one by one, beside the standard library's maps of
// pointers. Keys: u16 (dense), u32 (scrambled), str (24 bytes).
#include <cstdio>
#include <map>
#include <memory>
#include <string>
#include <type_traits>
#include <unordered_map>
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

/// The map of this library: the members carry their links.
template <class K>
class Intrusive {
 public:
  using Query = std::conditional_t<std::is_same_v<K, std::string>, Mox::String8, K>;
  class Member : public Mox::PtrInterface {
   public:
    Member(Query const& key, std::uint32_t payload) : key_(key), payload_(payload) {}
    Query const& key() const { return key_; }
    std::uint32_t payload() const { return payload_; }

   private:
    Query key_;
    std::uint32_t payload_;

   public:
    Mox::Ptr<Member> next;
  };
  using Held = Mox::Ptr<Member>;

  static Held make(Query const& key, std::uint32_t payload) { return new Member(key, payload); }
  void insert(Held const& member, Query const&) { map_.newMember(member); }
  Member const* find(Query const& key) const { return map_[key]; }
  void erase(Query const& key) { map_.deleteMember(map_[key]); }
  template <class F>
  void walk(F visit) const {
    for (auto it = map_.iteratorConst(); it; it.advance()) visit(*it);
  }

 private:
  Mox::HashMap<Member, Query> map_;
};

template <class K, template <class...> class Map>
class Standard {
 public:
  using Query = K;
  struct Member {
    K key;
    std::uint32_t number;
    std::uint32_t payload() const { return number; }
  };
  using Held = std::unique_ptr<Member>;

  static Held make(K const& key, std::uint32_t payload) {
    return std::make_unique<Member>(Member{key, payload});
  }
  void insert(Held const& member, K const& key) { map_.emplace(key, member.get()); }
  Member const* find(K const& key) const {
    auto const at = map_.find(key);
    return at == map_.end() ? nullptr : at->second;
  }
  void erase(K const& key) { map_.erase(key); }
  template <class F>
  void walk(F visit) const {
    for (auto const& entry : map_) visit(entry.second);
  }

 private:
  Map<K, Member*> map_;
};

/// Members 0 to n-1 are in the map; n to 2n-1 are absent, with members of their own.
template <class Map>
struct Fixture {
  using Query = typename Map::Query;

  explicit Fixture(std::uint32_t count) {
    for (std::uint32_t index = 0; index < 2 * count; ++index) {
      members.push_back(Map::make(keyOf<Query>(index), index));
      queries.push_back(keyOf<Query>(index));
    }
    for (std::uint32_t index = 0; index < count; ++index) {
      map.insert(members[index], queries[index]);
    }
    for (std::uint32_t pick = 0; pick < 65536; ++pick) {
      order.push_back(static_cast<std::uint32_t>(bench::mix64(pick) % count));
    }
  }
  std::vector<typename Map::Held> members;
  std::vector<Query> queries;
  std::vector<std::uint32_t> order;
  Map map;
};

template <class Map>
void addPeer(char const* key, std::uint32_t count, char const* peer) {
  // Built by the first operation that runs.
  auto const shared = std::make_shared<std::unique_ptr<Fixture<Map>>>();
  auto const fixture = [shared, count]() -> Fixture<Map>& {
    if (!*shared) *shared = std::make_unique<Fixture<Map>>(count);
    return **shared;
  };
  auto const name = [&](char const* operation) {
    return std::string("M5/") + operation + "/" + key + "/" + std::to_string(count) + "/" + peer;
  };
  bench::add(name("hit"), [fixture](benchmark::State& state) {
    Fixture<Map>& f = fixture();
    std::uint64_t sum = 0;
    std::uint32_t at = 0;
    for (auto _ : state) {
      sum += f.map.find(f.queries[f.order[at++ & 65535]])->payload();
      benchmark::DoNotOptimize(sum);
    }
  });
  bench::add(name("miss"), [fixture, count](benchmark::State& state) {
    Fixture<Map>& f = fixture();
    std::uint64_t found = 0;
    std::uint32_t at = 0;
    for (auto _ : state) {
      found += f.map.find(f.queries[count + f.order[at++ & 65535]]) != nullptr;
      benchmark::DoNotOptimize(found);
    }
    if (found != 0) state.SkipWithError("absent key found");
  });
  bench::add(name("insert_erase"), [fixture, count](benchmark::State& state) {
    Fixture<Map>& f = fixture();
    std::uint32_t at = 0;
    for (auto _ : state) {
      std::uint32_t const index = count + f.order[at++ & 65535];
      f.map.insert(f.members[index], f.queries[index]);
      f.map.erase(f.queries[index]);
      benchmark::ClobberMemory();
    }
  });
  bench::add(name("walk"), [fixture, count](benchmark::State& state) {
    Fixture<Map>& f = fixture();
    std::uint64_t sum = 0;
    for (auto _ : state) {
      sum = 0;
      f.map.walk([&sum](auto const* member) { sum += member->payload(); });
      benchmark::DoNotOptimize(sum);
    }
    if (sum != std::uint64_t{count} * (count - 1) / 2) state.SkipWithError("walk is incomplete");
    state.counters["n"] = count;
  });
}

template <class K>
void addKey(char const* key, std::initializer_list<std::uint32_t> counts) {
  for (std::uint32_t const count : counts) {
    addPeer<Intrusive<K>>(key, count, "mox");
    addPeer<Standard<K, std::unordered_map>>(key, count, "std_unordered_map");
    addPeer<Standard<K, std::map>>(key, count, "std_map");
  }
}

}  // namespace

int main(int argc, char** argv) {
  addKey<std::uint16_t>("u16", {72, 1000});
  addKey<std::uint32_t>("u32", {72, 1000, 100000});
  addKey<std::string>("str", {72, 1000, 100000});
  return bench::run(argc, argv);
}
