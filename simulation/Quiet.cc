#include "simulation/Quiet.h"

#include <map>
#include <unordered_set>

#include "Mox/PtrTrack.h"
#include "simulation/Difference.h"
#include "simulation/LinkChecks.h"

namespace Mox::Simulation {
namespace {

using TargetMap = std::map<Entity const*, Entity const*>;

/// References of trees of one home that lead to one entity there lead to one here, and to none that
/// others lead to. Entities without a parent have the same content here and there.
void checkTargets(Process const& process, TargetPairs const& targets) {
  TargetMap here;
  TargetMap there;
  for (auto const& [one, other] : targets) {
    if (!one || !other) throw Failure("a reference leads to nothing in " + process.name);
    bool const isNew = here.emplace(one, other).second;
    if (here[one] != other || there.emplace(other, one).first->second != one) {
      throw Failure("not the same entity in " + process.name + ": " +
                    std::string(one->name().view()));
    }
    if (!isNew || one->parent() || other->parent()) continue;
    std::string const found = difference(*one, *other, std::string(one->name().view()));
    if (!found.empty()) throw Failure("differs in " + process.name + ": " + found);
  }
}

/// The targets of references, by the home of their trees: there, and in the process.
std::map<Process const*, TargetPairs> checkTrees(State const& state, Process& process) {
  std::map<Process const*, TargetPairs> targets;
  unsigned int imported = 0;
  for (Root const& root : state.roots) {
    std::string const name(root.name.view());
    Entity* const tree = state.tree(process, root);
    bool const isHome = root.home == &process;
    if (bool(tree) != (isHome || root.isShown)) {
      throw Failure(process.name + (tree ? " still has " : " has no ") + name);
    }
    if (!tree) continue;
    imported += isHome ? 0 : 1;
    Replica const& original = *state.treeOf(*root.home, root).replica;
    Replica const& copy = *state.treeOf(process, root).replica;
    std::string const found = original.difference(copy, name, targets[root.home]);
    if (!found.empty()) {
      throw Failure(root.home->name + " and " + process.name + " differ: " + found);
    }
  }
  if (process.dir->entryCount() != imported) throw Failure(process.name + " has a tree too many");
  return targets;
}

void checkSubscribers(State const& state, Process& process) {
  for (Root const& root : state.roots) {
    Tree& tree = state.treeOf(process, root);
    if (!tree.replica) continue;
    std::string const found = tree.replica->staleAt(std::string(root.name.view()));
    if (!found.empty()) throw Failure("a subscriber in " + process.name + ": " + found);
  }
}

/// What references alone have brought is gone when nobody refers to it any more.
void checkLeftOver(State const& state, std::unordered_set<PtrInterface const*> known) {
  for (auto const& process : state.processes) {
    process->parties.forEach([&](Entity const& party) { known.insert(&party); });
    for (Tree const& tree : process->trees) known.insert({tree.own.get(), tree.seen.get()});
    for (Ptr<NboAttrLog::Link> const& link : process->session->links()) {
      link->demuxer().reactorsVisit(
          [&](Entity::MoxNboAttrLogSa const& adapter) { known.insert(adapter.rawEntity()); });
    }
  }
  PtrTrack::forEach([&](PtrInterface const* object) {
    if (object->moxMarkedForDeletion()) throw Failure("a mark is left");
    auto const* const entity = dynamic_cast<Entity const*>(object);
    if (!entity || dynamic_cast<Dir const*>(entity) || known.contains(entity)) return;
    if (!entity->moxRawParent()) {
      throw Failure("is left over: " + std::string(entity->name().view()));
    }
  });
}

}  // namespace

void checkQuiet(State const& state) {
  for (auto const& process : state.processes) checkSubscribers(state, *process);
  std::unordered_set<PtrInterface const*> referenced;
  for (auto const& process : state.processes) {
    for (auto const& [home, targets] : checkTrees(state, *process)) {
      checkTargets(*process, targets);
      for (auto const& [one, other] : targets) referenced.insert({one, other});
    }
  }
  checkLeftOver(state, std::move(referenced));
  for (Cable const& cable : state.cables) {
    // Passed over: a child whose creation named what was withdrawn meanwhile, the children of what
    // both ends have announced, and of a root that its home has withdrawn.
    bool isAnyVoid = false;
    for (Ptr<NboAttrLog::Link> const& link : {cable.upLink, cable.downLink}) {
      NboAttrLog::LinkStats const& stats = link->demuxer().stats();
      isAnyVoid = isAnyVoid || stats.contested != 0 || stats.refusedOrphans != 0;
    }
    Allowed const allowed{.strays = state.plan.manyWriters || state.intrudes || isAnyVoid,
                          .handlerExceptions = state.intrudes};
    KnownIds const up = checkQuietEnd(**cable.upLink, allowed, " in " + cable.up->name);
    KnownIds const down = checkQuietEnd(**cable.downLink, allowed, " in " + cable.down->name);
    std::string const found = strangeId(up, down);
    if (!found.empty()) throw Failure("only one of " + cable.name() + " has " + found);
  }
}

}  // namespace Mox::Simulation
