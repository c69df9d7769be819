#include "simulation/World.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <map>

#include "attrlog/adapter/EntityIds.h"
#include "attrlog/wire/StreamText.h"
#include "simulation/Changes.h"
#include "simulation/LinkChecks.h"
#include "simulation/Quiet.h"
#include "simulation/Reactions.h"

namespace Mox::Simulation {

using namespace NboAttrLog;

namespace {

constexpr unsigned int plantStreams = 1u << 20;
constexpr unsigned int settleStreams = 1u << 21;
/// Turns in which a world that works has fallen quiet by far.
constexpr int mostTurns = 20000;

Entity const& rootOf(Entity const& entity) {
  Entity const* root = &entity;
  while (root->parent()) root = root->parent().get();
  return *root;
}

}  // namespace

/// The subscribers of one process.
class World::Observer final : public ReplicaObserver {
 public:
  Observer(World& world, Process& process) : world_(world), process_(process) {}

  void seen(Entity const& entity, Attribute const& attribute, String8 const& text,
            bool isNotified) override {
    if (attribute.values->isText()) {
      seenText(entity, attribute, text, isNotified);
    } else if (attribute.values->isIncreasing() && isRootHere(entity)) {
      if (!isNotified) numbers_.erase({&entity, attribute.id()});
      seenNumber(entity, attribute, text);
    }
  }

  void notified(Ptr<GenericIf> const& object, Attribute const& attribute,
                Ptr<GenericIf const> const& key) override {
    Ptr<Entity> const entity = entityOf(object);
    if (!entity) return;
    ++process_.notifications;
    process_.lastNotification = std::string(entity->fullName().view()) + "." +
                                std::string(attribute.attribute->name().view());
    if (world_.history_.isTraced) {
      world_.trace(process_.name, "is notified of " + process_.lastNotification);
    }
    if (world_.reactor_ != &process_ || !world_.mayChange(process_, **entity)) return;
    bool const wasChanging = std::exchange(world_.isChanging_, true);
    react(object, attribute, key, world_.chance_);
    world_.isChanging_ = wasChanging;
  }

 private:
  void seenText(Entity const& entity, Attribute const& attribute, String8 const& text,
                bool isNotified) {
    bool const isOwnTree =
        std::any_of(process_.trees.begin(), process_.trees.end(),
                    [&](Tree const& tree) { return tree.own.get() == &rootOf(entity); });
    if (world_.isChanging_ || (!isNotified && isOwnTree)) {
      world_.chance_.written(text.view());
    } else if (!world_.chance_.wasWritten(text.view())) {
      world_.note("a text that nobody wrote is seen in " + process_.name + " at " +
                  std::string(entity.fullName().view()) + "." +
                  std::string(attribute.attribute->name().view()) + ": " +
                  std::string(text.view().substr(0, 100)));
    }
  }

  static bool isRootHere(Entity const& entity) {
    return !entity.parent() || dynamic_cast<Dir const*>(entity.parent().get());
  }
  /// Of one writer's numbers, each larger than the one before, none is seen behind a later one.
  void seenNumber(Entity const& entity, Attribute const& attribute, String8 const& text) {
    if (world_.state_.plan.manyWriters || world_.state_.intrudes) return;
    double const number = std::strtod(text.charPtr(), nullptr);
    if (!world_.chance_.wasFresh(number)) return;
    double& last = numbers_[{&entity, attribute.id()}];
    if (number < last) world_.note(process_.name + " sees an older value after a newer one");
    last = number;
  }

  World& world_;
  Process& process_;
  std::map<std::pair<Entity const*, AttributeId>, double> numbers_;
};

World::World(History const& history)
    : history_(history), chance_(history.seed), state_{.plan = *history.plan} {
  entityIdsSeed(static_cast<std::uint32_t>(history.seed));
  chance_.written("''");
  chance_.longestTextIs(std::array{2000u, 60000u, 400000u}[chance_.below(3)]);
  state_.references = static_cast<References>(chance_.below(3));
  Plan const& plan = state_.plan;
  LinkOptions& options = state_.options;
  options.outCapacity = (chance_.oneIn(2) ? 2 : 1) * leastCapacity;
  options.grantsWrite = options.wantsWrite = plan.manyWriters || chance_.oneIn(4);
  int last = 0;
  for (auto const& [up, down] : plan.cables) last = std::max({last, up, down});
  for (int at = 0; at <= last; ++at) {
    state_.processes.push_back(std::make_unique<Process>());
    state_.processes.back()->name = std::string(1, static_cast<char>('A' + at));
  }
  auto const& processes = state_.processes;
  for (auto const& [up, down] : plan.cables) {
    state_.cables.push_back({processes[static_cast<std::size_t>(up)].get(),
                             processes[static_cast<std::size_t>(down)].get(),
                             {},
                             {},
                             {},
                             {}});
  }
  auto const addRoot = [&](char const* name, Process& home) {
    MoxType const* const type = history.rootTypes[draw(history.rootTypes.size())];
    state_.roots.push_back({Name(name), type, &home});
  };
  addRoot("main", *processes.front());
  if (chance_.oneIn(2)) addRoot("spare", *processes.front());
  if (chance_.oneIn(2)) addRoot("back", *processes.back());
  waitsForPeers_ = chance_.oneIn(2);
  state_.intrudes = !options.wantsWrite && chance_.oneIn(3);
  if (chance_.oneIn(3)) reactor_ = plan.manyWriters ? &anyProcess() : processes.front().get();
  for (unsigned int phase = 1 + chance_.below(4); phase != 0; --phase) {
    stepCount_ += 20 + chance_.below(400);
    phaseEnds_.push_back(stepCount_);
  }
  for (auto const& process : processes) start(*process);
}

World::~World() {
  for (auto const& process : state_.processes) {
    for (Tree& tree : process->trees) tree.replica.reset();
  }
}

bool World::isPlayed(unsigned int step) const {
  return !history_.steps ||
         std::binary_search(history_.steps->begin(), history_.steps->end(), step);
}

void World::run() {
  unsigned int at = 1;
  for (unsigned int const end : phaseEnds_) {
    bool isPlayedAtAll = false;
    for (; at <= end; ++at) {
      if (!isPlayed(at)) continue;
      isPlayedAtAll = true;
      chance_.streamIs(at);
      if (history_.isTraced) trace("step", std::to_string(at));
      step();
      throwNoted();
    }
    if (!isPlayedAtAll && end != stepCount_) continue;
    chance_.streamIs(settleStreams + end);
    settle();
    check();
  }
  repeatTransfer();
}

void World::note(std::string const& what) {
  if (failure_.empty()) failure_ = what;
}
void World::throwNoted() const {
  if (!failure_.empty()) throw Failure(failure_);
}

void World::trace(std::string const& where, std::string const& what) const {
  if (history_.isTraced) std::fprintf(stderr, "%s: %s\n", where.c_str(), what.c_str());
}

// Processes and trees.

void World::start(Process& process) {
  process.trees.clear();
  process.session.reset();
  for (Cable& cable : state_.cables) {
    if (cable.up == &process) cable.upLink = nullptr;
    if (cable.down == &process) cable.downLink = nullptr;
  }
  process.parties.clear();
  process.isPaused = process.isDone = false;
  process.session = std::make_unique<Session>(process.name, state_.options);
  process.session->onReport(
      [this, &process](std::string const& line) { trace(process.name, line); });
  trace(process.name, "starts");
  process.parties.areUsed(
      state_.references == References::ofAll ||
      (state_.references == References::ofExporter && &process == state_.processes.front().get()));
  process.observer = std::make_unique<Observer>(*this, process);
  process.dir = new Dir;
  process.session->importDirIs(process.dir);
  process.trees.resize(state_.roots.size());
  for (Root& root : state_.roots) {
    if (root.home != &process) continue;
    plant(root);
    root.isShown = !chance_.oneIn(8);
    if (root.isShown) process.session->exportIs(state_.ownTree(root));
  }
  watch(process);
}

/// A new tree for the root. Its draws have a stream of their own, so that a smaller tree leaves the
/// rest of the history as it is.
void World::plant(Root const& root) {
  Ptr<Entity>& tree = state_.ownTree(root);
  tree = root.type->newEntity(root.name, nullptr);
  std::uint64_t const place = chance_.state();
  chance_.streamIs(plantStreams + plantings_++);
  isChanging_ = true;
  if (!chance_.oneIn(4)) {
    unsigned int const count = std::min(chance_.below(80), history_.mostPlanted);
    for (unsigned int at = 0; at != count; ++at) {
      Simulation::change(genericOf(tree), chance_, root.home->parties);
    }
  }
  isChanging_ = false;
  chance_.stateIs(place);
}

/// The root is withdrawn, or comes back: the same tree or another one.
void World::toggle(Root& root) {
  Process& home = *root.home;
  if (home.isPaused) return;
  root.isShown = !root.isShown;
  trace(home.name,
        std::string(root.isShown ? "exports " : "withdraws ") + std::string(root.name.view()));
  if (!root.isShown) return home.session->exportDel(state_.ownTree(root));
  if (chance_.oneIn(2)) plant(root);
  home.session->exportIs(state_.ownTree(root));
  watch(home);
}

/// What an application does when a tree has come or gone: it subscribes, and exports it to others.
void World::watch(Process& process) {
  bool const isRelay = linksOf(process).size() > 1;
  for (Root const& root : state_.roots) {
    Entity* const now = state_.tree(process, root);
    Tree& tree = state_.treeOf(process, root);
    if (tree.seen.get() == now) continue;
    tree.replica.reset();
    if (isRelay && !tree.own && tree.seen) process.session->exportDel(tree.seen);
    tree.seen = now;
    if (now == nullptr) continue;
    tree.replica = std::make_unique<Replica>(tree.seen, *process.observer);
    if (isRelay && !tree.own) process.session->exportIs(tree.seen);
  }
  announceEnd(process);
}

void World::announceEnd(Process& process) {
  if (process.isDone) return;
  std::vector<Link const*> const links = linksOf(process);
  if (links.size() > 1 && waitsForPeers_) {
    for (Link const* link : links) {
      if (link == nullptr || !link->demuxer().peerExportsDone()) return;
    }
  }
  process.isDone = true;
  process.session->exportsDone();
}

/// One for each of its cables; null for one that isn't connected.
std::vector<Link const*> World::linksOf(Process const& process) const {
  std::vector<Link const*> links;
  for (Cable const& cable : state_.cables) {
    if (cable.up == &process) links.push_back(cable.upLink.get());
    if (cable.down == &process) links.push_back(cable.downLink.get());
  }
  return links;
}

void World::change(Process& process) {
  if (process.isPaused) return;
  Root const& root = anyRoot();
  Tree const& tree = state_.treeOf(process, root);
  if (!tree.replica || state_.tree(process, root) != tree.seen.get()) return;
  if (!mayChange(process, **tree.seen) && !(state_.intrudes && chance_.oneIn(8))) return;
  isChanging_ = true;
  changeTree(process, *tree.replica);
  isChanging_ = false;
}

void World::changeTree(Process& process, Replica const& tree) {
  Parties& parties = process.parties;
  Ptr<GenericIf> const object = tree.object();
  if (chance_.oneIn(24)) {
    if (Ptr<Entity> const party = parties.anyMade(chance_)) {
      return Simulation::change(genericOf(party), chance_, parties);
    }
  }
  if (chance_.oneIn(16)) {
    // What one tree holds or refers to is referred to in another one as well.
    Tree const& source = state_.treeOf(process, anyRoot());
    if (source.replica) {
      Replica const& from = source.replica->any(chance_);
      Ptr<Entity> const target = from.anyTarget(chance_);
      parties.alsoIs(target ? target : entityOf(from.object()));
    }
  }
  Simulation::change(object, chance_, parties);
  parties.alsoIs(nullptr);
}

bool World::mayChange(Process const& process, Entity const& entity) const {
  if (state_.plan.manyWriters) return true;
  Entity const& root = rootOf(entity);
  return std::any_of(process.trees.begin(), process.trees.end(),
                     [&root](Tree const& tree) { return tree.own.get() == &root; });
}

// Connections.

void World::connect(Cable& cable) {
  trace(cable.name(), "connects");
  auto ends = MemoryLink::pair(MemoryPipe::unlimited, MemoryPipe::unlimited);
  cable.toDown = ends.first->out();
  cable.toUp = ends.first->in();
  throttle(*cable.toDown);
  throttle(*cable.toUp);
  cable.upLink = cable.up->session->linkIs(std::move(ends.first));
  cable.downLink = cable.down->session->linkIs(std::move(ends.second));
  observe(cable);
}

/// Frames are traced, and those that no peer may send are noted.
void World::observe(Cable& cable) {
  std::string const name = cable.name();
  auto const text = std::make_shared<StreamText>([](auto, std::string const&) {});
  for (Ptr<Link> const& link : {cable.downLink, cable.upLink}) {
    bool const isDown = link == cable.downLink;
    Demuxer& demuxer = link->demuxer();
    demuxer.frameObserverIs([=, this, &demuxer](Frame const& frame) {
      if (history_.isTraced) {
        using Direction = StreamText::Direction;
        std::string const line =
            text->frameLine(isDown ? Direction::sent : Direction::received, frame);
        trace(name + (isDown ? " >" : " <"), line);
      }
      if (!state_.plan.manyWriters && isWriteToOwn(demuxer, frame)) {
        note("a frame goes back to the only writer, attribute " +
             std::to_string(frame.attributeId));
      }
    });
  }
}

void World::throttle(MemoryPipe& pipe) {
  auto const size = [this](unsigned int bits) -> std::size_t {
    return chance_.oneIn(3) ? MemoryPipe::unlimited : 1 + chance_.below(1u << chance_.below(bits));
  };
  pipe.capacity = size(18);
  pipe.writePiece = size(16);
  pipe.readPiece = size(16);
}

/// Some of what is under way may still arrive; it ends at any byte.
void World::cut(Cable& cable) {
  trace(cable.name(), "is cut");
  bool const isLost = chance_.oneIn(2);
  for (auto const& pipe : {cable.toDown, cable.toUp}) {
    if (!pipe) continue;
    if (isLost) {
      pipe->isCut = true;
    } else {
      pipe->bytes.truncate(draw(pipe->bytes.size() + 1));
      pipe->isEnded = true;
    }
  }
}

/// The importer ends the connection, and the exporter doesn't learn of it.
void World::giveUp(Cable& cable) {
  trace(cable.down->name, "gives up");
  if (cable.down->isPaused) return;
  cable.downLink->closeIs("given up");
  service(*cable.down);
  cable.toUp->isEnded = cable.toUp->isCut;
}

void World::service(Process& process) {
  if (process.isPaused) return;
  process.session->service(now_);
  watch(process);
  for (Ptr<Link> const& link : process.session->links()) checkEnd(**link, chance_.oneIn(32));
}

// The course of a history.

void World::step() {
  now_ += chance_.below(100);
  unsigned int const kind = chance_.below(1000);
  if (kind < 550) {
    for (unsigned int count = chance_.oneIn(6) ? chance_.below(12) : 1; count != 0; --count) {
      change(anyProcess());
    }
  } else if (kind < 930) {
    service(anyProcess());
  } else if (kind < 950) {
    Cable& cable = anyCable();
    if (auto const& pipe = chance_.oneIn(2) ? cable.toDown : cable.toUp) throttle(*pipe);
  } else if (kind < 970) {
    Process& process = anyProcess();
    process.isPaused = !process.isPaused;
    trace(process.name, process.isPaused ? "pauses" : "goes on");
  } else if (kind < 977) {
    cut(anyCable());
  } else if (kind < 994) {
    Cable& cable = anyCable();
    if (!cable.isClosed() && chance_.oneIn(10)) giveUp(cable);
    if (cable.mayConnect()) connect(cable);
  } else if (kind < 996) {
    start(anyProcess());
  } else {
    Root& root = anyRoot();
    toggle(root);
    if (chance_.oneIn(2)) toggle(root);
  }
}

/// Mends what is broken, and takes turns until nothing moves any more.
void World::settle() {
  trace("all", "settle");
  for (auto const& process : state_.processes) process->isPaused = false;
  std::uint64_t before = 0;
  for (int quiet = 0, turns = 0; quiet < 4; ++turns) {
    if (turns == mostTurns) throw Failure("it never falls quiet");
    // An ack that waits for company goes by itself before the world counts as quiet.
    now_ += 10;
    for (Cable& cable : state_.cables) {
      if (cable.mayConnect()) {
        connect(cable);
        continue;
      }
      for (auto const& pipe : {cable.toDown, cable.toUp}) {
        pipe->capacity = std::max<std::size_t>(pipe->capacity, 4096);
        pipe->readPiece = std::max<std::size_t>(pipe->readPiece, 1024);
      }
    }
    for (auto const& process : state_.processes) service(*process);
    throwNoted();
    std::uint64_t moved = 0;
    bool isClosed = false;
    for (Cable& cable : state_.cables) {
      isClosed = isClosed || cable.isClosed();
      for (Ptr<Link> const& link : {cable.upLink, cable.downLink}) {
        if (!link) continue;
        moved += link->stats().bytesSent + link->stats().bytesReceived;
        // A stream that one end refuses is always a fault.
        std::string const& error = link->error();
        if (error.starts_with("log: ") && !error.starts_with("log: no greeting")) {
          throw Failure(error);
        }
      }
    }
    quiet = moved == before && !isClosed ? quiet + 1 : 0;
    before = moved;
  }
}

void World::check() {
  throwNoted();
  checkQuiet(state_);
}

/// The same state once more: nobody is notified of it.
void World::repeatTransfer() {
  std::map<Process*, std::uint64_t> before;
  for (auto const& process : state_.processes) before[process.get()] = process->notifications;
  cut(anyCable());
  settle();
  check();
  for (auto const& [process, count] : before) {
    if (process->notifications != count) {
      throw Failure("a second transfer is notified in " + process->name + ": " +
                    process->lastNotification);
    }
  }
}

}  // namespace Mox::Simulation
