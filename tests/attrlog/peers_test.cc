// More than two ends. Faults here mix the marks of two connections' transactions, keep marks behind
// a cut, let a write through that the middle may not make, or let an old connection end a newer
// one.
#include <gtest/gtest.h>

#include "attrlog/adapter/Marks.h"
#include "attrlog/wire/StreamText.h"
#include "tests/attrlog/Mirror.h"

namespace Mox::NboAttrLog::test {
namespace {

using Hardware::Sand::AradNifSerdesId;
using Inventory::Arad::Arad;
using Inventory::Arad::AradSlice;

/// Sessions in a row: the first has the tree, each other one imports it and shows it to the next.
class Chain {
 public:
  explicit Chain(std::size_t length, std::vector<bool> const& writable)
      : slice(new AradSlice("s")) {
    for (std::size_t i = 0; i < length; ++i) {
      LinkOptions options = prompt();
      options.grantsWrite = i < writable.size() && writable[i];
      options.wantsWrite = true;
      sessions.push_back(std::make_unique<Session>(std::string(1, char('A' + i)), options));
      dirs.push_back(new Dir(Name("import")));
      sessions.back()->onClosed([this](Link&, std::string const& why) { closed.push_back(why); });
      if (i != 0) sessions.back()->importDirIs(dirs.back());
    }
    sessions[0]->exportIs(Ptr<Entity>(slice));
    sessions[0]->exportsDone();
    ups.resize(length);
    downs.resize(length);
    pipes.resize(length);
  }
  /// The cable between `at` and `at + 1`.
  void connect(std::size_t at) {
    auto ends = MemoryLink::pair(1 << 20);
    pipes[at] = {ends.first->out(), ends.first->in()};
    downs[at] = sessions[at]->linkIs(std::move(ends.first));
    ups[at + 1] = sessions[at + 1]->linkIs(std::move(ends.second));
  }
  void cut(std::size_t at) {
    for (auto const& pipe : pipes[at]) pipe->isCut = true;
    turn();
    turn();
  }
  void turn() {
    for (auto const& session : sessions) session->service(1);
  }
  void settle() {
    for (int turns = 0; turns < 200; ++turns) turn();
  }
  AradSlice& tree(std::size_t at) {
    return at == 0 ? **slice : dynamic_cast<AradSlice&>(**dirs[at]->entry("s")->target());
  }
  void show(std::size_t at) {
    sessions[at]->exportIs(Ptr<Entity>(&tree(at)));
    sessions[at]->exportsDone();
  }
  /// All trees are equal to the first, on live connections.
  void expectSame() {
    std::string const text = treeText(Ptr<Entity>(slice));
    for (std::size_t i = 1; i < sessions.size(); ++i) {
      EXPECT_EQ(treeText(Ptr<Entity>(&tree(i))), text) << "session " << i;
      ASSERT_EQ(ups[i]->error(), "");
      EXPECT_EQ(ups[i]->demuxer().flowOutCount() + downs[i - 1]->demuxer().flowOutCount(), 0u);
      EXPECT_EQ(ups[i]->demuxer().reactorCount(), downs[i - 1]->demuxer().reactorCount());
    }
    EXPECT_EQ(Marks::openCount(), 0u);
  }

  Ptr<AradSlice> slice;
  std::vector<std::unique_ptr<Session>> sessions;
  std::vector<Ptr<Dir>> dirs;
  std::vector<Ptr<Link>> ups;    ///< by the importing session
  std::vector<Ptr<Link>> downs;  ///< by the exporting session
  std::vector<std::vector<std::shared_ptr<MemoryPipe>>> pipes;
  std::vector<std::string> closed;
};

Chain& start(Chain& chain) {
  chain.slice->fapIs("f", 4)->portIs(1, nullptr);
  for (std::size_t i = 0; i + 1 < chain.sessions.size(); ++i) {
    chain.connect(i);
    chain.settle();
    if (i + 2 < chain.sessions.size()) chain.show(i + 1);
  }
  chain.settle();
  return chain;
}

TEST(Relay, AWriteThatTheMiddleMayNotMakeItselfIsUndoneAtTheFarEnd) {
  Chain chain(3, {false, true});
  start(chain).expectSame();
  struct Row {
    char const* what;
    void (*change)(AradSlice& slice);
  };
  static constexpr Row rows[] = {
      {"number", [](AradSlice& s) { s.numPortsIs(9); }},
      {"child added", [](AradSlice& s) { s.fap("f")->portIs(7, nullptr)->laneIs(4); }},
      {"child removed", [](AradSlice& s) { s.fap("f")->portDel(1); }},
      {"string in pieces",
       [](AradSlice& s) {
         std::string const text(100000, 'x');
         s.fap("f")->ddrTuneSettingIs("k", String8(text.data(), text.size()));
       }},
      {"child's number", [](AradSlice& s) { s.fap("f")->port(1)->laneIs(3); }},
  };
  for (Row const& row : rows) {
    SCOPED_TRACE(row.what);
    row.change(chain.tree(2));
    chain.settle();
    chain.expectSame();
    EXPECT_EQ(chain.ups[1]->stats().readOnlyWrites, 0u) << "the middle has changed nothing";
  }
  EXPECT_EQ(chain.downs[1]->stats().reflected, 5u);
}

TEST(Relay, AChangeOfTheModeHoldsOnEveryConnectionOfTheEntity) {
  Chain chain(3, {true, true});
  start(chain);
  Ptr<Entity> const middle(&chain.tree(1));
  Ptr<Entity::MoxNboAttrLogSa> const up =
      middle->moxNboAttrLogSa(Ptr<Out const>(chain.ups[1]->demuxer().out()));
  Ptr<Entity::MoxNboAttrLogSa> const down =
      middle->moxNboAttrLogSa(Ptr<Out const>(chain.downs[1]->demuxer().out()));
  ASSERT_EQ(up->entityId(), down->entityId());
  unsigned char const suspended[] = {0, 0, 0, 3};
  chain.ups[1]->demuxer().in()->payloadIs(suspended, sizeof suspended);
  up->handleAttrDeserialization(syncAttribute, {}, sizeof suspended, Ptr<In>());
  for (auto const& adapter : {up, down}) {
    EXPECT_EQ(adapter->syncMode(), StreamAdapter::SyncMode::suspended);
    EXPECT_FALSE(adapter->hasFlag(applyingSync));
  }
  EXPECT_TRUE(chain.tree(1).fap("f")) << "nothing was marked, nothing goes";
}

TEST(Relay, TheMarksOfOneTransactionAreNotThoseOfAnother) {
  // Both neighbours of the middle send the same collection anew at the same time: each end's
  // marker deletes what its own side did not name.
  Chain chain(3, {true, true});
  start(chain);
  for (unsigned short port = 2; port < 9; ++port) chain.slice->fap("f")->portIs(port, nullptr);
  chain.settle();
  Ptr<Entity> const arad(chain.tree(1).fap("f"));
  Ptr<Entity::MoxNboAttrLogSa> const fromA =
      arad->moxNboAttrLogSa(Ptr<Out const>(chain.ups[1]->demuxer().out()));
  Ptr<Entity::MoxNboAttrLogSa> const fromC =
      arad->moxNboAttrLogSa(Ptr<Out const>(chain.downs[1]->demuxer().out()));
  using Type = StreamAdapter::AttrTransactionType;
  auto const marked = [&] {
    std::string text;
    for (auto port = chain.tree(1).fap("f")->portIterator(); port; ++port) {
      if (port->moxMarkedForDeletion()) text += std::to_string(port.key());
    }
    std::sort(text.begin(), text.end());
    return text;
  };
  Ptr<Arad> const chip = chain.tree(1).fap("f");
  AttrRow const& row = *fromA->rows().find(522);
  AdapterHost const* const a = &chain.ups[1]->demuxer().host();
  AdapterHost const* const c = &chain.downs[1]->demuxer().host();
  fromA->handleAttrTransaction(522, Type::begin, 0);
  EXPECT_EQ(marked(), "12345678");
  for (unsigned short port : {1, 2, 3}) chip->port(port)->moxMarkedForDeletionIs(false);
  fromC->handleAttrTransaction(522, Type::begin, 0);
  EXPECT_EQ(marked(), "12345678") << "C's";
  for (unsigned short port : {3, 4, 5}) chip->port(port)->moxMarkedForDeletionIs(false);
  Marks::enter(**arad, row, a);
  EXPECT_EQ(marked(), "45678");
  Marks::enter(**arad, row, c);
  EXPECT_EQ(marked(), "12678");
  // C's end is lost with its connection: nothing is deleted.
  chain.cut(1);
  EXPECT_EQ(chip->portCount(), 8u);
  Marks::enter(**arad, row, a);
  EXPECT_EQ(marked(), "45678");
  fromA->handleAttrTransaction(522, Type::end, 0);
  chain.settle();
  EXPECT_EQ(chip->portCount(), 3u);
  EXPECT_EQ(marked(), "");
  EXPECT_EQ(Marks::openCount(), 0u);
}

TEST(Relay, AConnectionThatDiesInATransactionLeavesNoMarks) {
  Ptr<AradSlice> slice(new AradSlice("s"));
  Ptr<Arad> arad = slice->fapIs("f", 4);
  for (unsigned short port = 0; port < 60; ++port) arad->portIs(port, nullptr);
  Mirror mirror{Ptr<Entity>(slice)};
  mirror.connect();
  mirror.settle();
  Ptr<Arad> const copy = dynamic_cast<AradSlice&>(**mirror.copy()).fap("f");
  int interrupted = 0;
  for (int turns = 1; turns < 40; ++turns) {
    mirror.cut();
    mirror.connect(400, 400);
    for (int i = 0; i < turns; ++i) mirror.turn();
    interrupted += Marks::openCount() != 0;
    mirror.cut();
    EXPECT_EQ(Marks::openCount(), 0u);
    EXPECT_EQ(copy->portCount(), 60u);
    for (auto port = copy->portIterator(); port; ++port) EXPECT_FALSE(port->moxMarkedForDeletion());
  }
  EXPECT_GT(interrupted, 5);
}

TEST(Peers, ALateGreetingOfAnOlderConnectionDoesNotEndTheNewerOne) {
  Mirror mirror{Ptr<Entity>(new AradSlice("s"))};
  auto ends = MemoryLink::pair(0);
  auto const pipes = {ends.first->out(), ends.first->in()};
  Ptr<Link> const oldOut = mirror.exporter().linkIs(std::move(ends.first));
  Ptr<Link> const oldIn = mirror.importer().linkIs(std::move(ends.second));
  mirror.connect();
  mirror.settle();
  for (auto const& pipe : pipes) pipe->capacity = 65536;
  for (int turns = 0; turns < 10; ++turns) mirror.turn();
  EXPECT_EQ(mirror.exporterLink->error(), "");
  EXPECT_EQ(mirror.importerLink->error(), "");
  EXPECT_EQ(oldOut->state(), Link::State::closed);
  EXPECT_EQ(oldIn->state(), Link::State::closed);
  EXPECT_EQ(treeText(mirror.copy()), treeText(mirror.root()));
}

}  // namespace
}  // namespace Mox::NboAttrLog::test
