// M6: one of a port's 20 numbers read and set by its id, through the generic interface, whose
// client knows no class of the model.
#include <BenchTree.h>

#include <array>

#include "bench/Micro.h"
#include "generic/Carrier.h"

namespace {

using Mox::GenericIf;
using Mox::Ptr;
using Op = GenericIf::AttributeOp;

/// Of `s1`; the others follow.
constexpr Mox::AttributeId firstId = 0x104;

class Record {
 public:
  Record() : generic_(BenchTree::Port::_fwkType()->genericIf(port_.get(), false)) {}
  std::uint32_t get(std::uint32_t number) {
    return Mox::valueOf<std::uint32_t>(generic_->attributeOp(op(number, Op::attrGet), {}, {}));
  }
  void set(std::uint32_t number, std::uint32_t value) {
    generic_->attributeOp(op(number, Op::attrSet), {}, Mox::carrier(value));
  }
  BenchTree::Port const& port() const { return **port_; }

 private:
  static Op op(std::uint32_t number, Op::OpId what) {
    return {firstId + static_cast<Mox::AttributeId>(number) - 1, what};
  }

  Ptr<BenchTree::Port> port_{new BenchTree::Port(1, 1)};
  Ptr<GenericIf> generic_;
};

std::array<std::uint8_t, 4096> order() {
  std::array<std::uint8_t, 4096> result;
  for (std::size_t i = 0; i < result.size(); ++i) {
    result[i] = static_cast<std::uint8_t>(1 + bench::mix64(i) % 20);
  }
  return result;
}

}  // namespace

int main(int argc, char** argv) {
  static auto const picks = order();
  bench::add("M6/get/mox", [](benchmark::State& state) {
    Record record;
    for (std::uint32_t number = 1; number <= 20; ++number) record.set(number, number);
    if (record.get(20) != 20 || record.port().s20() != 20) state.SkipWithError("wrong attribute");
    std::uint64_t sum = 0;
    std::size_t at = 0;
    for (auto _ : state) {
      sum += record.get(picks[at++ & 4095]);
      benchmark::DoNotOptimize(sum);
    }
  });
  bench::add("M6/set/mox", [](benchmark::State& state) {
    Record record;
    std::uint32_t value = 100;
    std::size_t at = 0;
    for (auto _ : state) {
      record.set(picks[at++ & 4095], ++value);
      benchmark::ClobberMemory();
    }
    if (record.port().version() + 100 != value) state.SkipWithError("a change was lost");
  });
  return bench::run(argc, argv);
}
