// Trees of a hundred thousand members go in linear time and with little stack, whichever way they
// are released. A square of that would run into the suite's time limit.
#include <gtest/gtest.h>
#include <pthread.h>

#include <functional>

#include "Model.h"

namespace {

using namespace Inventory::Arad;
using model::Entity;
using model::Ptr;

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

TEST(Model, TreesOfAnyShapeGoWithLittleStack) {
  Ptr<AradSlice> slice(new AradSlice("slice"));
  Ptr<SocProperties> bag(new SocProperties("bag", 0));
  Ptr<NifSerdes> chain;  // Each holds the next one by its link, and nobody else does.
  onSmallStack([&] {
    for (unsigned int i = 0; i < many; ++i) {
      slice->fapIs(Mox::Name(Mox::valueToStrep(i)), i);
      bag->propertyIs(Mox::valueToStrep(i), "value");
      Ptr<NifSerdes> const lane(new NifSerdes(1, false, false, 1, 1, 0));
      lane->jerichoNifSerdesTuningIs(Hardware::Sand::serdesTuningCopper);
      lane->next = chain;
      chain = lane;
    }
    slice = nullptr;
    bag = nullptr;
    chain = nullptr;
  });
}

TEST(Model, DeletingAllOfManyNotifiesOfEachOnce) {
  struct Listener : Inventory::Arad::Arad::Notifiee {
    void onElkConnection(unsigned int) override { ++calls; }
    using Inventory::Arad::Arad::NotifieeConst::onElkConnection;
    unsigned int calls = 0;
  };
  Ptr<Inventory::Arad::Arad> const arad(new Inventory::Arad::Arad("fap0", 0));
  for (unsigned int i = 0; i < many; ++i) arad->elkConnectionIs(i);
  Ptr<Listener> const listener(new Listener);
  listener->isRegisteredNotifieeIs(true);
  listener->notifierIs(Ptr<Mox::PtrInterface const>(arad));
  onSmallStack([&] { arad->elkConnectionDelAll(); });
  EXPECT_EQ(arad->elkConnectionCount(), 0u);
  EXPECT_EQ(arad->version(), 1 + 2 * many);
  EXPECT_EQ(listener->calls, many);
  listener->notifierIs(nullptr);
}

}  // namespace
