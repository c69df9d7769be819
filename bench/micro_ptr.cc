// M4: copy and drop one counted pointer, or one 24-byte string, while a second thread exists.
#include <condition_variable>
#include <mutex>
#include <thread>

#include "Mox/Ptr.h"
#include "Mox/String8.h"
#include "bench/Micro.h"

namespace {

using Mox::Ptr;
using Mox::PtrInterface;
using Mox::String8;

class Object : public PtrInterface {
 public:
  std::uint32_t value = 1;
};

/// A second thread that sleeps as long as this lives.
class Sleeper {
 public:
  ~Sleeper() {
    {
      std::lock_guard const lock(mutex_);
      isOver_ = true;
    }
    wake_.notify_one();
    thread_.join();
  }

 private:
  std::mutex mutex_;
  std::condition_variable wake_;
  bool isOver_ = false;
  std::thread thread_{[this] {
    std::unique_lock lock(mutex_);
    wake_.wait(lock, [this] { return isOver_; });
  }};
};

template <class T>
void copyAndDrop(std::string const& name, T (*make)(), bool hasSafePointers) {
  bench::add(name, [make, hasSafePointers](benchmark::State& state) {
    Sleeper const other;
    Mox::VFPtrInterface::enableThreadSafePointers = hasSafePointers;
    {
      T source = make();
      for (auto _ : state) {
        benchmark::DoNotOptimize(&source);
        T copy(source);
        benchmark::DoNotOptimize(&copy);
        benchmark::ClobberMemory();
      }
    }
    Mox::VFPtrInterface::enableThreadSafePointers = false;
  });
}

constexpr char text[] = "serdes-lane-00000042-abc";
static_assert(sizeof text == 25);

}  // namespace

int main(int argc, char** argv) {
  auto const object = [] { return Ptr<Object>(new Object); };
  auto const string = [] { return String8(text); };
  copyAndDrop<Ptr<Object>>("M4/ptr/mox", object, false);
  copyAndDrop<Ptr<Object>>("M4/ptr/mox_thread_safe", object, true);
  copyAndDrop<String8>("M4/str24/mox", string, false);
  copyAndDrop<String8>("M4/str24/mox_thread_safe", string, true);
  return bench::run(argc, argv);
}
