// The processes, trees and connections of a world, as plain data: the world changes them, the
// checks read them.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "Mox/Dir.h"
#include "attrlog/link/Session.h"
#include "simulation/Parties.h"
#include "simulation/Plan.h"
#include "simulation/Replica.h"
#include "transport/MemoryLink.h"

namespace Mox::Simulation {

/// One of the world's root trees as a process has it.
struct Tree {
  Ptr<Entity> own;  ///< in the process that it comes from
  /// What the application has subscribed to, and exports to others if it is a relay.
  Ptr<Entity> seen;
  std::unique_ptr<Replica> replica;
};

struct Process {
  std::string name;
  bool isPaused = false;
  bool isDone = false;  ///< its peers know that its roots are exported
  std::unique_ptr<NboAttrLog::Session> session;
  Ptr<Dir> dir;
  std::vector<Tree> trees;  ///< by the world's roots
  Parties parties;
  std::unique_ptr<ReplicaObserver> observer;
  std::uint64_t notifications = 0;
  std::string lastNotification;
};

struct Root {
  Name name;
  MoxType const* type;
  Process* home;
  bool isShown = false;
};

struct Cable {
  Process* up;
  Process* down;
  std::shared_ptr<NboAttrLog::MemoryPipe> toDown;
  std::shared_ptr<NboAttrLog::MemoryPipe> toUp;
  Ptr<NboAttrLog::Link> upLink;
  Ptr<NboAttrLog::Link> downLink;

  std::string name() const { return up->name + down->name; }
  /// The importing end connects when it knows that it is not connected.
  bool mayConnect() const {
    return !downLink || downLink->state() == NboAttrLog::Link::State::closed;
  }
  bool isClosed() const {
    return mayConnect() || !upLink || upLink->state() == NboAttrLog::Link::State::closed;
  }
};

/// Which processes refer to entities without a parent.
enum class References : unsigned char { none, ofExporter, ofAll };

struct State {
  Plan const& plan;
  NboAttrLog::LinkOptions options = {};
  std::vector<std::unique_ptr<Process>> processes = {};
  std::vector<Cable> cables = {};
  std::vector<Root> roots = {};
  References references = References::none;
  bool intrudes = false;  ///< processes change what they may not write

  Tree& treeOf(Process& process, Root const& root) const {
    return process.trees[static_cast<std::size_t>(&root - roots.data())];
  }
  Ptr<Entity>& ownTree(Root const& root) const { return treeOf(*root.home, root).own; }
  /// Null while the process doesn't have the root.
  Entity* tree(Process& process, Root const& root) const {
    if (root.home == &process) return ownTree(root).get();
    Ptr<Dir::Entry> const entry = process.dir->entry(root.name);
    return entry ? entry->target().get() : nullptr;
  }
};

}  // namespace Mox::Simulation
