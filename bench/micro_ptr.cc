// M4: copy and drop one counted pointer, or one 24-byte string, beside the standard library's.
// What runs while the process has one thread says so: the standard library then leaves atomics out.
#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
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

enum class Threads { one, two, twoAndSafePointers };

template <class T>
void copyAndDrop(std::string const& name, T (*make)(), Threads threads) {
  bench::add(name, [make, threads](benchmark::State& state) {
    std::unique_ptr<Sleeper> other;
    if (threads != Threads::one) other = std::make_unique<Sleeper>();
    Mox::VFPtrInterface::enableThreadSafePointers = threads == Threads::twoAndSafePointers;
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
  auto const number = [] { return std::make_shared<std::uint32_t>(1); };
  auto const string = [] { return String8(text); };
  auto const sharedString = [] { return std::make_shared<std::string const>(text); };
  // In this order: once there was a second thread, nobody goes back to the way of one thread.
  copyAndDrop<std::shared_ptr<std::uint32_t>>("M4/ptr/std_shared_ptr_1thread", number,
                                              Threads::one);
  copyAndDrop<std::shared_ptr<std::string const>>("M4/str24/shared_ptr_string_1thread",
                                                  sharedString, Threads::one);
  copyAndDrop<Ptr<Object>>("M4/ptr/mox", object, Threads::two);
  copyAndDrop<Ptr<Object>>("M4/ptr/mox_thread_safe", object, Threads::twoAndSafePointers);
  copyAndDrop<std::shared_ptr<std::uint32_t>>("M4/ptr/std_shared_ptr_mt", number, Threads::two);
  copyAndDrop<String8>("M4/str24/mox", string, Threads::two);
  copyAndDrop<String8>("M4/str24/mox_thread_safe", string, Threads::twoAndSafePointers);
  copyAndDrop<std::string>(
      "M4/str24/std_string", [] { return std::string(text); }, Threads::two);
  copyAndDrop<std::shared_ptr<std::string const>>("M4/str24/shared_ptr_string_mt", sharedString,
                                                  Threads::two);
  return bench::run(argc, argv);
}
