// What a tree of the workloads costs in memory, as the allocator counts it, beside the same tree in
// plain structs with the standard library's maps: bytes an object, a value, a map entry.
//   bench_memory [T1|T8|T64]
#include <malloc.h>

#include <memory>
#include <unordered_map>

#include "bench/BenchModel.h"

namespace {

using namespace bench;

std::size_t allocated() {
  struct mallinfo2 const info = ::mallinfo2();
  return info.uordblks + info.hblkhd;
}

/// The same objects in plain structs, each with what its kind needs.
struct Plain {
  virtual ~Plain() = default;
  std::uint32_t id, kind, parent, key, version = 0;
};
struct PlainNamed : Plain {
  std::uint32_t scalars[4];
  std::string text;
};
template <int count>
struct PlainScalars : Plain {
  std::uint32_t scalars[count];
};
struct PlainBlock : PlainNamed {
  std::unordered_map<std::uint32_t, bool> lanes;
};
struct PlainBag : Plain {
  std::unordered_map<std::string, std::string> entries;
};

void line(std::string const& workload, char const* peer, char const* metric, double value) {
  std::printf("{\"workload\":\"%s\",\"peer\":\"%s\",\"metric\":\"%s\",\"value\":%.6g}\n",
              workload.c_str(), peer, metric, value);
}

template <class Named>
std::unique_ptr<Named> withText(tree::Object const& object) {
  auto plain = std::make_unique<Named>();
  plain->text = tree::text(object.id, object.kind);
  return plain;
}

std::unique_ptr<Plain> plainOf(tree::Object const& object) {
  if (object.kind == tree::serdes) return std::make_unique<PlainScalars<10>>();
  if (object.kind == tree::port) return std::make_unique<PlainScalars<20>>();
  if (object.kind == tree::bag) {
    auto plain = std::make_unique<PlainBag>();
    for (std::uint32_t i = 0; i < tree::bagEntries; ++i) {
      plain->entries[tree::bagKey(object.id, i)] = tree::bagValue(object.id, i);
    }
    return plain;
  }
  if (!tree::hasLanes(object.kind)) return withText<PlainNamed>(object);
  auto plain = withText<PlainBlock>(object);
  for (std::uint32_t j = 0; j < tree::lanesPerBlock; ++j) {
    plain->lanes[tree::laneId(object.key, j)] = tree::laneValue(object.id, j);
  }
  return plain;
}

}  // namespace

int main(int argc, char** argv) {
  std::string const size = argc > 1 ? argv[1] : "T1";
  std::string const workload = "memory-" + size;
  auto const chips = static_cast<std::uint32_t>(std::atoi(size.c_str() + 1));
  auto const objects = tree::objectsOf(chips);
  auto const perUnit = [&](char const* peer, std::size_t bytes) {
    line(workload, peer, "bytes_per_object", double(bytes) / double(objects.size()));
    line(workload, peer, "bytes_per_value", double(bytes) / double(tree::valueCount(chips)));
  };

  std::size_t before = allocated();
  Model const model(objects);
  // The program's own index of objects isn't the model's.
  perUnit("mox", allocated() - before - (objects.size() + 1) * sizeof(void*));
  std::unordered_map<std::uint32_t, std::unique_ptr<Plain>> plain;
  before = allocated();
  for (tree::Object const& object : objects) plain[object.id] = plainOf(object);
  perUnit("plain_structs", allocated() - before);

  // What a map takes for an entry beside its payload: the key and the value, texts with what they
  // cost by themselves.
  constexpr std::uint32_t count = 4096;
  std::vector<Mox::String8> texts;
  texts.reserve(2 * count);
  for (std::uint32_t i = 0; i < count; ++i) {
    texts.emplace_back(tree::bagKey(1, i));
    texts.emplace_back(tree::bagValue(1, i));
  }
  Mox::Ptr<BenchTree::Bag> const bag(new BenchTree::Bag(1, 1));
  Mox::Ptr<BenchTree::BlockA> const block(new BenchTree::BlockA(1, 1));
  before = allocated();
  for (std::uint32_t i = 0; i < count; ++i) bag->entryIs(texts[2 * i], texts[2 * i + 1]);
  line(workload, "mox", "bytes_beside_text_to_text", double(allocated() - before) / count);
  before = allocated();
  for (std::uint32_t i = 0; i < count; ++i) block->laneIs(i, true);
  line(workload, "mox", "bytes_beside_number_to_bool", double(allocated() - before) / count - 5);
  line(workload, "mox", "sizeof_port", sizeof(BenchTree::Port));
}
