// M1: a number set to a new value with no listener. M2: with 1, 4 and 16. M3: set to the value that
// is there already, with 4. The setter is the generated one.
#include <BenchTree.h>

#include "bench/Micro.h"

namespace {

using BenchTree::Port;

class Sum : public Port::NotifieeConst {
 public:
  void onS7() override { sum += port->s7(); }
  Port const* port = nullptr;
  std::uint64_t sum = 0;
};

void addSetter(std::string const& name, int listeners, bool isEqual) {
  bench::add(name, [listeners, isEqual](benchmark::State& state) {
    Mox::Ptr<Port> const port(new Port(1, 1));
    std::vector<Mox::Ptr<Sum>> sums;
    for (int i = 0; i < listeners; ++i) {
      Sum& sum = **sums.emplace_back(new Sum);
      sum.port = port.get();
      sum.notifierIs(port);
      sum.isRegisteredNotifieeIs(true);
    }
    std::uint32_t value = 1;
    port->s7Is(value);
    for (auto const& sum : sums) sum->sum = 0;
    Port* raw = port.get();
    benchmark::DoNotOptimize(raw);
    // Read in the loop, the capture would be loaded again after each clobbering.
    bool const isAnother = !isEqual;
    for (auto _ : state) {
      if (isAnother) ++value;
      benchmark::DoNotOptimize(value);
      raw->s7Is(value);
      benchmark::ClobberMemory();
    }
    for (auto const& sum : sums) {
      if ((sum->sum == 0) != isEqual) state.SkipWithError("a listener was not called, or was");
      sum->notifierIs(Mox::Ptr<Mox::PtrInterface const>());
    }
  });
}

}  // namespace

int main(int argc, char** argv) {
  addSetter("M1/mox", 0, false);
  for (int const listeners : {1, 4, 16}) {
    addSetter("M2/" + std::to_string(listeners) + "/mox", listeners, false);
  }
  addSetter("M3/mox", 4, true);
  return bench::run(argc, argv);
}
