// A world of processes in one: sessions joined by memory pipes that are short, slow, stopped and
// cut, trees changed at random meanwhile. Whenever it falls quiet all trees must be equal, every
// subscriber must have heard of all, and nothing may be left over.
//
// Every history follows from its number. SIMULATION_SEEDS=FIRST-LAST runs others than the usual
// ones, as in  SIMULATION_SEEDS=7-7 attrlog_tests --gtest_filter='*Simulation*star'.
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <optional>

#include "Mox/PtrTrack.h"
#include "attrlog/link/Session.h"
#include "attrlog/wire/StreamText.h"
#include "tests/attrlog/Replica.h"
#include "tests/attrlog/SimOps.h"
#include "transport/MemoryLink.h"

namespace Mox::NboAttrLog::test {
namespace {

using Inventory::Arad::AradSlice;

/// The kind of world that a history plays in.
struct Plan {
  char const* name;
  std::vector<std::pair<int, int>> cables;  ///< exporter and importer
  bool manyWriters;
};

/// Subscribers that write: they correct what they were told, set something else, take an arriving
/// child out again. Only one process has them, or they would never rest.
void react(Entity& entity, AttributeText const& attribute, String8 const* key) {
  using Inventory::Arad::Arad;
  std::string_view const name = attribute.name;
  if (auto* const slice = dynamic_cast<AradSlice*>(&entity)) {
    if (name == "numPorts" && slice->numPorts() % 4 == 0) slice->numPortsIs(slice->numPorts() + 1);
  } else if (auto* const chip = dynamic_cast<Arad*>(&entity)) {
    if (name == "tolminMbId") chip->tolminMbUnitIs(chip->tolminMbId());
    if (name == "api") chip->modelNameIs(chip->api());
    if (name == "ddrTuneSetting" && key->view() == "'k1'") {
      auto const value = chip->ddrTuneSetting("k1");
      chip->ddrTuneSettingIs("k2", value);
    }
    if (name == "serdesQuartet") chip->serdesQuartetDel(Hardware::Sand::SerdesQuartetId(1));
    if (name == "pciDevice" && chip->pciDevice()) chip->slotIdIs(Fru::SlotId(7));
  }
}

/// One of the world's root trees as a process has it.
struct Tree {
  Ptr<AradSlice> own;   ///< in the process that it comes from
  Ptr<AradSlice> seen;  ///< what the application has subscribed to, and shows to others
  std::unique_ptr<Replica> replica;
  std::uint64_t numPortsSeen = 0;
};

struct Process {
  std::string name;
  bool isPaused = false;
  bool isDone = false;  ///< has told its peers that its roots are out
  std::unique_ptr<Session> session;
  Ptr<Dir> dir;
  std::vector<Tree> trees;  ///< by the world's roots
  std::map<std::type_index, std::vector<Ptr<Entity>>> parties;
  Replica::Watch watch;
};

struct Root {
  char const* name;
  Process* home;
  bool isShown = false;
};

struct Cable {
  Process* up;
  Process* down;
  std::shared_ptr<MemoryPipe> toDown;
  std::shared_ptr<MemoryPipe> toUp;
  Ptr<Link> upLink;
  Ptr<Link> downLink;

  /// The importing end connects, when it knows that it is not connected.
  bool mayConnect() const { return !downLink || downLink->state() == Link::State::closed; }
  bool isClosed() const {
    return mayConnect() || !upLink || upLink->state() == Link::State::closed;
  }
};

class World {
 public:
  World(Plan const& plan, std::uint64_t seed) : plan_(plan), chance_(seed) {
    chance_.longest = std::array{2000u, 60000u, 400000u}[chance_.below(3)];
    references_ = static_cast<References>(chance_.below(3));
    options_.outCapacity = (chance_.oneIn(2) ? 2 : 1) * leastCapacity;
    options_.grantsWrite = options_.wantsWrite = plan.manyWriters || chance_.oneIn(4);
    int last = 0;
    for (auto const& [up, down] : plan.cables) last = std::max({last, up, down});
    for (int at = 0; at <= last; ++at) {
      processes_.push_back(std::make_unique<Process>());
      processes_.back()->name = std::string(1, static_cast<char>('A' + at));
    }
    for (auto const& [up, down] : plan.cables) {
      cables_.push_back({processes_[up].get(), processes_[down].get(), {}, {}, {}, {}});
    }
    roots_.push_back({"slice", processes_.front().get()});
    if (chance_.oneIn(2)) roots_.push_back({"spare", processes_.front().get()});
    if (chance_.oneIn(2)) roots_.push_back({"back", processes_.back().get()});
    waitsForPeers_ = chance_.oneIn(2);
    intrudes_ = !options_.wantsWrite && chance_.oneIn(3);
    if (chance_.oneIn(3)) reactor_ = plan.manyWriters ? &anyProcess() : processes_.front().get();
    for (auto const& process : processes_) start(*process);
  }

  /// Throws the first thing that is wrong.
  void run() {
    for (unsigned int phase = 1 + chance_.below(4); phase != 0; --phase) {
      for (unsigned int steps = 20 + chance_.below(400); steps != 0; --steps) step();
      settle();
      check();
    }
    repeatTransfer();
  }

 private:
  [[noreturn]] static void fail(std::string const& what) { throw std::runtime_error(what); }

  void start(Process& process) {
    process.trees.clear();
    process.session.reset();
    for (Cable& cable : cables_) {
      if (cable.up == &process) cable.upLink = nullptr;
      if (cable.down == &process) cable.downLink = nullptr;
    }
    process.parties.clear();
    process.isPaused = process.isDone = false;
    process.session = std::make_unique<Session>(process.name, options_);
    process.session->onReport([&process](std::string const& line) { tell(process.name, line); });
    tell(process.name, "starts");
    process.watch.seen = [this, &process](Entity const& entity, AttributeText const& attribute,
                                          String8 const& text) {
      see(process, entity, attribute, text);
    };
    process.watch.react = [this, &process](Entity& entity, AttributeText const& attribute,
                                           String8 const* key) {
      tell(process.name, "is told " + process.watch.last);
      if (reactor_ == &process && mayChange(process, entity)) react(entity, attribute, key);
    };
    process.dir = new Dir;
    process.session->importDirIs(process.dir);
    process.trees.resize(roots_.size());
    for (Root& root : roots_) {
      if (root.home != &process) continue;
      plant(root);
      root.isShown = !chance_.oneIn(8);
      if (root.isShown) process.session->exportIs(ownTree(root));
    }
    watch(process);
  }

  Tree& treeOf(Process& process, Root const& root) { return process.trees[&root - roots_.data()]; }
  Ptr<AradSlice>& ownTree(Root const& root) { return treeOf(*root.home, root).own; }
  /// Null while the process hasn't got the root.
  AradSlice* slice(Process& process, Root const& root) {
    if (root.home == &process) return ownTree(root).get();
    Ptr<Dir::Entry> const entry = process.dir->entry(root.name);
    return entry ? static_cast<AradSlice*>(entry->target().get()) : nullptr;
  }

  /// A new tree for the root.
  void plant(Root const& root) {
    Ptr<AradSlice>& tree = ownTree(root);
    tree = new AradSlice(root.name);
    if (chance_.oneIn(4)) return;
    tree->fapIs("fap0", 0);
    useParties(*root.home);
    for (unsigned int count = chance_.below(80); count != 0; --count) {
      ops::change(**tree, chance_);
    }
  }

  /// The root is withdrawn, or comes back: the same tree or another one.
  void toggle(Root& root) {
    Process& home = *root.home;
    if (home.isPaused) return;
    root.isShown = !root.isShown;
    tell(home.name, std::string(root.isShown ? "shows " : "withdraws ") + root.name);
    if (!root.isShown) return home.session->exportDel(ownTree(root));
    if (chance_.oneIn(2)) plant(root);
    home.session->exportIs(ownTree(root));
    watch(home);
  }

  /// What an application does when a tree has come or gone: it subscribes, and shows it to others.
  void watch(Process& process) {
    bool const isRelay = linksOf(process).size() > 1;
    for (Root const& root : roots_) {
      AradSlice* const now = slice(process, root);
      Tree& tree = treeOf(process, root);
      if (tree.seen.get() == now) continue;
      tree.replica.reset();
      if (isRelay && !tree.own && tree.seen) process.session->exportDel(tree.seen);
      tree.seen = now;
      tree.numPortsSeen = 0;
      if (now == nullptr) continue;
      tree.replica = std::make_unique<Replica>(*now, process.watch);
      if (isRelay && !tree.own) process.session->exportIs(tree.seen);
    }
    if (process.isDone) return;
    if (isRelay && waitsForPeers_) {
      for (Link const* link : linksOf(process)) {
        if (link == nullptr || !link->demuxer().peerExportsDone()) return;
      }
    }
    process.isDone = true;
    process.session->exportsDone();
  }
  /// One for each of its cables; null for one that isn't connected.
  std::vector<Link const*> linksOf(Process const& process) const {
    std::vector<Link const*> links;
    for (Cable const& cable : cables_) {
      if (cable.up == &process) links.push_back(cable.upLink.get());
      if (cable.down == &process) links.push_back(cable.downLink.get());
    }
    return links;
  }

  void see(Process& process, Entity const& entity, AttributeText const& attribute,
           String8 const& text) {
    if (attribute.kind == TextKind::text && attribute.set && !chance_.wasWritten(text.view())) {
      fail("a text that nobody wrote is seen in " + process.name + " at " +
           std::string(entity.fullName().view()) + "." + attribute.name + ": " +
           std::string(text.view().substr(0, 100)));
    }
    if (plan_.manyWriters || intrudes_ || std::string_view(attribute.name) != "numPorts") return;
    std::uint64_t const number = std::stoull(std::string(text.view()));
    for (Tree& tree : process.trees) {
      if (tree.seen.get() != &entity) continue;
      if (number < tree.numPortsSeen) fail(process.name + " sees an older value after a newer one");
      tree.numPortsSeen = number;
    }
  }

  /// SIMULATION_TELL=1: what happens, for a single history.
  static bool isTelling() {
    static bool const isWanted = std::getenv("SIMULATION_TELL") != nullptr;
    return isWanted;
  }
  static void tell(std::string const& where, std::string const& what) {
    if (isTelling()) std::fprintf(stderr, "%s: %s\n", where.c_str(), what.c_str());
  }

  /// Ids by what the announcement says of the entity.
  using Announced = std::map<std::string, std::string>;

  void connect(Cable& cable) {
    tell(cable.up->name + cable.down->name, "connects");
    auto ends = MemoryLink::pair(MemoryPipe::unlimited, MemoryPipe::unlimited);
    cable.toDown = ends.first->out();
    cable.toUp = ends.first->in();
    throttle(*cable.toDown);
    throttle(*cable.toUp);
    cable.upLink = cable.up->session->linkIs(std::move(ends.first));
    cable.downLink = cable.down->session->linkIs(std::move(ends.second));
    std::string const names = cable.up->name + cable.down->name;
    auto const text = std::make_shared<StreamText>([](auto, std::string const&) {});
    auto const announced = std::make_shared<Announced>();
    for (Ptr<Link> const& link : {cable.downLink, cable.upLink}) {
      bool const isDown = link == cable.downLink;
      Demuxer& demuxer = link->demuxer();
      demuxer.frameObserverIs([this, names, text, announced, isDown, &demuxer](Frame const& frame) {
        bool const isRoot =
            frame.kind == FrameKind::message && frame.attributeId == orphanAttribute;
        if (isTelling() || isRoot) {
          using Direction = StreamText::Direction;
          std::string const line =
              text->frameLine(isDown ? Direction::sent : Direction::received, frame);
          tell(names + (isDown ? " >" : " <"), line);
          if (isRoot) noteTwins(line, *announced);
        }
        bool const isAbout = frame.kind == FrameKind::message || frame.kind == FrameKind::marker ||
                             frame.kind == FrameKind::complete;
        Entity::MoxNboAttrLogSa const* const adapter = demuxer.reactor(frame.entityId);
        if (plan_.manyWriters || !isAbout || !adapter || adapter->hasFlag(notAuthority)) return;
        fail("a frame goes back to the only writer, attribute " +
             std::to_string(frame.attributeId));
      });
    }
  }
  /// Two entities made of the same arguments have been announced on one connection: by both ends,
  /// or by a process that had its own and got another one from elsewhere.
  void noteTwins(std::string const& line, Announced& announced) {
    for (Root const& root : roots_) {
      if (line.starts_with(std::string("root ") + root.name + ":")) return;
    }
    // What the line says of the entity comes before its id.
    std::size_t const end = line.find(" id ");
    std::string const id = line.substr(end, line.find(' ', end + 4) - end);
    if (announced.emplace(line.substr(0, end), id).first->second != id) hadTwins_ = true;
  }
  void throttle(MemoryPipe& pipe) {
    auto const size = [this](unsigned int bits) -> std::size_t {
      return chance_.oneIn(3) ? MemoryPipe::unlimited
                              : 1 + chance_.below(1u << chance_.below(bits));
    };
    pipe.capacity = size(18);
    pipe.writePiece = size(16);
    pipe.readPiece = size(16);
  }
  /// Some of what is under way may still arrive; what it ends in is any byte.
  void cut(Cable& cable) {
    tell(cable.up->name + cable.down->name, "is cut");
    bool const isLost = chance_.oneIn(2);
    for (auto const& pipe : {cable.toDown, cable.toUp}) {
      if (!pipe) continue;
      if (isLost) {
        pipe->isCut = true;
      } else {
        pipe->bytes.truncate(chance_.below(static_cast<unsigned int>(pipe->bytes.size()) + 1));
        pipe->isEnded = true;
      }
    }
  }

  /// The importer ends the connection, and the exporter isn't told.
  void giveUp(Cable& cable) {
    tell(cable.down->name, "gives up");
    if (cable.down->isPaused) return;
    cable.downLink->closeIs("given up");
    service(*cable.down);
    cable.toUp->isEnded = cable.toUp->isCut;
  }

  void service(Process& process) {
    if (process.isPaused) return;
    process.session->service(now_);
    watch(process);
    for (Ptr<Link> const& link : process.session->links()) checkBounds(link->demuxer());
  }

  /// What holds at any moment.
  void checkBounds(Demuxer const& demuxer) {
    if (demuxer.out()->committedSize() >
        options_.outCapacity + defaultMaxMessageSize + frameOverhead + runReserve) {
      fail("more is buffered than the capacity lets");
    }
    if (!chance_.oneIn(32)) return;
    demuxer.reactorsVisit([](Entity::MoxNboAttrLogSa const& adapter) {
      if (adapter.hasFlag(noFlowOut) == (adapter.flowOut() != nullptr)) {
        fail("a flow-out and its flag differ");
      }
    });
  }

  void change(Process& process) {
    if (process.isPaused) return;
    Root const& root = anyRoot();
    AradSlice* const tree = slice(process, root);
    if (!tree || !(mayChange(process, *tree) || (intrudes_ && chance_.oneIn(8)))) return;
    useParties(process);
    if (!chance_.oneIn(16)) return ops::change(*tree, chance_);
    if (AradSlice* const from = slice(process, anyRoot())) ops::share(*from, *tree, chance_);
  }
  bool mayChange(Process& process, Entity const& entity) {
    if (plan_.manyWriters) return true;
    Entity const* root = &entity;
    while (root->parent()) root = root->parent().get();
    auto const isOwn = [root](Tree const& tree) { return tree.own.get() == root; };
    return std::any_of(process.trees.begin(), process.trees.end(), isOwn);
  }

  void useParties(Process& process) {
    bool const may =
        references_ == ofAll || (references_ == ofExporter && &process == processes_.front().get());
    chance_.parties = may ? &process.parties : nullptr;
  }

  Process& anyProcess() {
    return *processes_[chance_.below(static_cast<unsigned int>(processes_.size()))];
  }
  Root& anyRoot() { return roots_[chance_.below(static_cast<unsigned int>(roots_.size()))]; }
  Cable& anyCable() { return cables_[chance_.below(static_cast<unsigned int>(cables_.size()))]; }

  void step() {
    now_ += chance_.below(100);
    unsigned int const draw = chance_.below(1000);
    if (draw < 550) {
      for (unsigned int count = chance_.oneIn(6) ? chance_.below(12) : 1; count != 0; --count) {
        change(anyProcess());
      }
    } else if (draw < 930) {
      service(anyProcess());
    } else if (draw < 950) {
      throttle(*anyPipe());
    } else if (draw < 970) {
      Process& process = anyProcess();
      process.isPaused = !process.isPaused;
      tell(process.name, process.isPaused ? "pauses" : "goes on");
    } else if (draw < 977) {
      cut(anyCable());
    } else if (draw < 994) {
      Cable& cable = anyCable();
      if (!cable.isClosed() && chance_.oneIn(10)) giveUp(cable);
      if (cable.mayConnect()) connect(cable);
    } else if (draw < 996) {
      start(anyProcess());
    } else {
      Root& root = anyRoot();
      toggle(root);
      if (chance_.oneIn(2)) toggle(root);
    }
  }
  std::shared_ptr<MemoryPipe> anyPipe() {
    Cable& cable = anyCable();
    static auto const none = std::make_shared<MemoryPipe>();
    auto const& pipe = chance_.oneIn(2) ? cable.toDown : cable.toUp;
    return pipe ? pipe : none;
  }

  /// Turns until nothing moves any more; what is broken is mended first.
  void settle() {
    tell("all", "settle");
    for (auto const& process : processes_) process->isPaused = false;
    std::uint64_t before = 0;
    for (int quiet = 0, turns = 0; quiet < 4; ++turns) {
      if (turns == 20000) fail("it never falls quiet");
      // An ack that waits for company goes by itself before the world counts as quiet.
      now_ += 10;
      for (Cable& cable : cables_) {
        if (cable.mayConnect()) {
          connect(cable);
        } else {
          for (auto const& pipe : {cable.toDown, cable.toUp}) {
            pipe->capacity = std::max<std::size_t>(pipe->capacity, 4096);
            pipe->readPiece = std::max<std::size_t>(pipe->readPiece, 1024);
          }
        }
      }
      for (auto const& process : processes_) service(*process);
      std::uint64_t moved = 0;
      bool isClosed = false;
      for (Cable& cable : cables_) {
        isClosed = isClosed || cable.isClosed();
        for (Ptr<Link> const& link : {cable.upLink, cable.downLink}) {
          if (!link) continue;
          moved += link->stats().bytesSent + link->stats().bytesReceived;
          noteError(link->error());
        }
      }
      quiet = moved == before && !isClosed ? quiet + 1 : 0;
      before = moved;
    }
  }
  /// A stream that one end refuses is always a fault.
  static void noteError(std::string const& error) {
    if (error.find("log: ") == 0 && error.find("log: no greeting") != 0) fail(error);
  }

  void check() {
    for (auto const& process : processes_) {
      unsigned int imported = 0;
      for (Root const& root : roots_) {
        AradSlice* const tree = slice(*process, root);
        bool const isHome = root.home == process.get();
        if (bool(tree) != (isHome || root.isShown)) {
          fail(process->name + (tree ? " still has " : " has no ") + root.name);
        }
        if (!tree) continue;
        imported += !isHome;
        std::string found = difference(**ownTree(root), *tree, root.name);
        if (!found.empty()) fail(root.home->name + " and " + process->name + " differ: " + found);
        found = treeOf(*process, root).replica->difference(*tree, root.name);
        if (!found.empty()) fail("a subscriber in " + process->name + " was not told: " + found);
      }
      if (process->dir->entryCount() != imported) fail(process->name + " has a tree too many");
      if (!plan_.manyWriters && !mayReferencesCross()) checkReferences(*process);
    }
    checkLeftOver();
    for (Cable const& cable : cables_) {
      std::string const found =
          strange(checkEnd(*cable.up, **cable.upLink), checkEnd(*cable.down, **cable.downLink));
      if (!found.empty())
        fail("only one of " + cable.up->name + cable.down->name + " has " + found);
      if (!cable.downLink->demuxer().inStep()) fail(cable.down->name + " is not in step");
      if (!cable.upLink->demuxer().inStep()) fail(cable.up->name + " is not in step");
    }
    PtrTrack::forEach([](PtrInterface const* object) {
      if (object->moxMarkedForDeletion()) fail("a mark is left");
    });
  }

  /// Both ends announce to the other what their trees refer to, be it one entity.
  bool mayReferencesCross() const {
    return references_ != none && roots_.back().home != processes_.front().get();
  }
  /// References that lead to one entity at home lead to one here, and to none that others lead to.
  void checkReferences(Process& process) {
    std::map<Entity const*, Entity const*> here;
    std::map<Entity const*, Entity const*> there;
    for (Root const& root : roots_) {
      if (!root.isShown) continue;
      auto const theirs = ops::references(**ownTree(root));
      auto const ours = ops::references(*slice(process, root));
      for (std::size_t at = 0; at != ours.size(); ++at) {
        Entity const* const one = theirs[at];
        Entity const* const other = ours[at];
        if (here.emplace(one, other).first->second == other &&
            there.emplace(other, one).first->second == one) {
          continue;
        }
        fail("not the same entity in " + process.name + ": " + std::string(one->name().view()));
      }
    }
  }
  /// What references alone have brought is gone when nobody refers to it any more.
  void checkLeftOver() {
    std::unordered_set<PtrInterface const*> known;
    for (auto const& process : processes_) {
      for (auto const& [type, parties] : process->parties) {
        for (Ptr<Entity> const& party : parties) known.insert(party.get());
      }
      for (Root const& root : roots_) {
        AradSlice const* const tree = slice(*process, root);
        if (!tree) continue;
        for (Entity const* target : ops::references(*tree)) known.insert(target);
      }
      for (Ptr<Link> const& link : process->session->links()) {
        link->demuxer().reactorsVisit(
            [&](Entity::MoxNboAttrLogSa const& adapter) { known.insert(adapter.rawEntity()); });
      }
    }
    PtrTrack::forEach([&](PtrInterface const* object) {
      auto const* const entity = dynamic_cast<Entity const*>(object);
      if (!entity || dynamic_cast<Dir const*>(entity) || known.contains(entity)) return;
      Entity const* root = entity;
      while (root->moxRawParent()) root = root->moxRawParent();
      if (root == entity && !dynamic_cast<AradSlice const*>(root))
        fail("is left over: " + std::string(entity->name().view()));
    });
  }

  /// The first entity whose id one end has and the other hasn't, or has for another path.
  using Ids = std::map<EntityId, std::string>;
  static std::string strange(Ids const& one, Ids const& other) {
    for (auto const* ids : {&one, &other}) {
      Ids const& others = ids == &one ? other : one;
      for (auto const& [id, path] : *ids) {
        auto const at = others.find(id);
        if (at == others.end() || at->second != path) return path;
      }
    }
    return {};
  }

  Ids checkEnd(Process const& process, Link const& link) {
    Demuxer const& demuxer = link.demuxer();
    std::string const at = " in " + process.name;
    if (link.state() != Link::State::running) fail("not connected" + at + ": " + link.error());
    if (demuxer.hasWaitingFlowOut()) fail("a flow-out waits" + at);
    if (demuxer.flowInCount() != 0) fail("a flow-in is left" + at);
    if (demuxer.unacknowledgedSlots() != 0) fail("a slot waits for an acknowledgement" + at);
    if (demuxer.out()->committedSize() != 0) fail("unsent bytes are left" + at);
    if (demuxer.stats().handlerExceptions != 0 && !intrudes_) fail("a handler threw" + at);
    // A child whose creation named what was withdrawn meanwhile is answered, and passed over.
    bool const mayStray = plan_.manyWriters || intrudes_ || mayReferencesCross();
    if (!mayStray && demuxer.stats().strays != 0) fail("a stray" + at);
    Ids ids;
    demuxer.reactorsVisit([&](Entity::MoxNboAttrLogSa const& adapter) {
      std::string const path =
          adapter.rawEntity() ? std::string(adapter.rawEntity()->fullName().view()) : "none";
      ids.emplace(adapter.entityId(), path);
      if (!adapter.rawEntity()) fail("an adapter without an entity" + at);
      if (adapter.flowOut()) fail("something is owed" + at + " by " + path);
      if (adapter.life() == StreamAdapter::Life::held) fail("a hold is left" + at + " of " + path);
      if (!adapter.hasFlag(noFlowOut) || adapter.hasFlag(deferAll | changeFromLog | writingOff |
                                                         boundByTransaction | inScheduledRun)) {
        fail("odd flags" + at + " of " + path);
      }
    });
    return ids;
  }

  /// The same state once more: nobody hears of it.
  void repeatTransfer() {
    std::map<Process*, std::uint64_t> before;
    for (auto const& process : processes_) before[process.get()] = process->watch.notifications;
    cut(anyCable());
    settle();
    check();
    if (mayReferencesCross() || hadTwins_) return;
    for (auto const& [process, count] : before) {
      if (process->watch.notifications != count)
        fail("a second transfer is told in " + process->name + ": " + process->watch.last);
    }
  }

  Plan const& plan_;
  Chance chance_;
  LinkOptions options_;
  std::vector<std::unique_ptr<Process>> processes_;
  std::vector<Cable> cables_;
  std::vector<Root> roots_;
  bool intrudes_ = false;       ///< processes change what they may not
  bool hadTwins_ = false;       ///< two entities alike have been announced on one connection
  bool waitsForPeers_ = false;  ///< a relay tells its peers of its roots when it has heard theirs
  Process* reactor_ = nullptr;
  enum References { none, ofExporter, ofAll } references_ = none;
  std::uint64_t now_ = 1;
};

char seedInHand[120];

/// An assertion ends the process: which history it was must still be known.
void tellSeed(int number) {
  [[maybe_unused]] auto const told = ::write(2, seedInHand, std::strlen(seedInHand));
  ::signal(number, SIG_DFL);
  ::raise(number);
}

class Simulation : public testing::TestWithParam<Plan> {};

TEST_P(Simulation, AllTreesAndSubscribersAgreeWhenItIsQuiet) {
  Plan const& plan = GetParam();
  unsigned long first = 1;
  unsigned long last = 100;
  if (char const* const wanted = std::getenv("SIMULATION_SEEDS")) {
    ASSERT_EQ(std::sscanf(wanted, "%lu-%lu", &first, &last), 2) << wanted;
  }
  auto const oldAbort = ::signal(SIGABRT, tellSeed);
  auto const oldSegv = ::signal(SIGSEGV, tellSeed);
  ptrifTrackOn_ = true;
  int failures = 0;
  for (unsigned long seed = first; seed <= last && failures < 5; ++seed) {
    std::snprintf(seedInHand, sizeof seedInHand, "Simulation %s: seed %lu\n", plan.name, seed);
    std::size_t const before = PtrTrack::count();
    std::string found;
    try {
      World world(plan, seed);
      world.run();
    } catch (std::exception const& failure) {
      found = failure.what();
    }
    if (found.empty() && PtrTrack::count() != before) found = "objects are left over";
    if (found.empty()) continue;
    ++failures;
    ADD_FAILURE() << plan.name << ", seed " << seed << ": " << found;
  }
  ptrifTrackOn_ = false;
  ::signal(SIGABRT, oldAbort);
  ::signal(SIGSEGV, oldSegv);
}

INSTANTIATE_TEST_SUITE_P(Worlds, Simulation,
                         testing::Values(Plan{"pair", {{0, 1}}, false},
                                         Plan{"star", {{0, 1}, {0, 2}}, false},
                                         Plan{"both", {{0, 1}}, true},
                                         Plan{"starBoth", {{0, 1}, {0, 2}}, true},
                                         Plan{"chain", {{0, 1}, {1, 2}}, false},
                                         Plan{"chainBoth", {{0, 1}, {1, 2}}, true}),
                         [](auto const& plan) { return std::string(plan.param.name); });

}  // namespace
}  // namespace Mox::NboAttrLog::test
