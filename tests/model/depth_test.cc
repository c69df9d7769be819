// Trees of a hundred thousand members go in linear time and with little stack, whichever way they
// are let go of.
#include <gtest/gtest.h>
#include <pthread.h>

#include <algorithm>
#include <ctime>
#include <functional>
#include <string>

#include "InvArad.h"

namespace {

using namespace Inventory::Arad;
using Mox::Name;
using Mox::Ptr;
using Mox::PtrInterface;
using Mox::String8;

constexpr unsigned int many = 100000;

/// Runs `call` on a thread with two megabytes of stack: twenty bytes for each of the many.
void onSmallStack(std::function<void()> call) {
  pthread_attr_t attributes;
  ASSERT_EQ(pthread_attr_init(&attributes), 0);
  ASSERT_EQ(pthread_attr_setstacksize(&attributes, 2 << 20), 0);
  pthread_t thread;
  auto const body = [](void* argument) -> void* {
    (*static_cast<std::function<void()>*>(argument))();
    return nullptr;
  };
  ASSERT_EQ(pthread_create(&thread, &attributes, body, &call), 0);
  pthread_join(thread, nullptr);
  pthread_attr_destroy(&attributes);
}

/// Processor time of `call`, on this thread.
double seconds(std::function<void()> const& call) {
  auto const now = [] {
    timespec time;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + 1e-9 * static_cast<double>(time.tv_nsec);
  };
  double const start = now();
  call();
  return now() - start;
}

/// Makes an object with this many members.
using Make = Ptr<PtrInterface> (*)(unsigned int count);

Ptr<PtrInterface> chips(unsigned int count) {
  Ptr<AradSlice> const slice(new AradSlice("slice"));
  for (unsigned int i = 0; i < count; ++i) slice->fapIs(Name(Mox::valueToStrep(i)), i);
  return slice;
}
Ptr<PtrInterface> connections(unsigned int count) {
  Ptr<AradSlice> const slice(new AradSlice("slice"));
  Ptr<Arad> const arad = slice->fapIs("fap0", 0);
  for (unsigned int i = 0; i < count; ++i) arad->elkConnectionIs(i);
  return slice;
}
Ptr<PtrInterface> properties(unsigned int count) {
  Ptr<SocProperties> const bag(new SocProperties("bag", 0));
  for (unsigned int i = 0; i < count; ++i) bag->propertyIs(Mox::valueToStrep(i), "value");
  return bag;
}
/// Each holds the next one by its link, and nobody else does.
Ptr<PtrInterface> chain(unsigned int count) {
  Ptr<NifSerdes> head;
  for (unsigned int i = 0; i < count; ++i) {
    Ptr<NifSerdes> const lane(new NifSerdes(1, false, false, 1, 1, 0));
    lane->jerichoNifSerdesTuningIs(Hardware::Sand::serdesTuningCopper);
    lane->next = head;
    head = lane;
  }
  return head;
}

struct Row {
  char const* what;
  Make make;
};
class Depth : public testing::TestWithParam<Row> {};

// A square of the many would be ten thousand million steps: that runs into the suite's time limit.
// The times of two sizes are reported, not judged.
TEST_P(Depth, GoesInLinearTimeWithLittleStack) {
  Make const make = GetParam().make;
  double few = 0, all = 0;
  onSmallStack([&] {
    Ptr<PtrInterface> object = make(many / 16);
    few = seconds([&] { object = nullptr; });
    object = make(many);
    all = seconds([&] { object = nullptr; });
    EXPECT_FALSE(object);
  });
  RecordProperty("microsecondsForOneSixteenth", static_cast<int>(few * 1e6));
  RecordProperty("microseconds", static_cast<int>(all * 1e6));
}

INSTANTIATE_TEST_SUITE_P(Model, Depth,
                         testing::Values(Row{"Chips", chips}, Row{"Connections", connections},
                                         Row{"Properties", properties}, Row{"Chain", chain}),
                         [](auto const& info) { return std::string(info.param.what); });

TEST(Model, DeletingAllOfManyTellsOfEachOnce) {
  struct Listener : Arad::Notifiee {
    void onElkConnection(unsigned int) override { ++heard; }
    using Arad::NotifieeConst::onElkConnection;
    unsigned int heard = 0;
  };
  Ptr<Arad> const arad(new Arad("fap0", 0));
  for (unsigned int i = 0; i < many; ++i) arad->elkConnectionIs(i);
  Ptr<Listener> const listener(new Listener);
  listener->isRegisteredNotifieeIs(true);
  listener->notifierIs(Ptr<PtrInterface const>(arad));
  std::uint32_t const version = arad->version();
  onSmallStack([&] { arad->elkConnectionDelAll(); });
  EXPECT_EQ(arad->elkConnectionCount(), 0u);
  EXPECT_EQ(arad->version(), version + many);
  EXPECT_EQ(listener->heard, many);
  listener->notifierIs(nullptr);
}

}  // namespace
