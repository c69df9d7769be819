// A world of processes in one: sessions joined by memory pipes that are short, slow, stopped and
// cut, while trees of any model change at random. Whenever it falls quiet the checks of Quiet.h
// hold. docs/simulation.md describes what happens in it.
#pragma once

#include <string>
#include <vector>

#include "simulation/Chance.h"
#include "simulation/State.h"

namespace Mox::Simulation {

class World {
 public:
  explicit World(History const& history);
  ~World();
  World(World const&) = delete;
  World& operator=(World const&) = delete;

  /// Plays the history. Throws what is wrong: `Failure`, or what the model or the log throws.
  void run();
  /// The steps that the whole history has.
  unsigned int stepCount() const { return stepCount_; }

 private:
  class Observer;

  // Processes and trees.
  void start(Process& process);
  void plant(Root const& root);
  void toggle(Root& root);
  void watch(Process& process);
  void announceEnd(Process& process);
  void change(Process& process);
  void changeTree(Process& process, Replica const& tree);
  bool mayChange(Process const& process, Entity const& entity) const;

  // Connections.
  void connect(Cable& cable);
  void observe(Cable& cable);
  void throttle(NboAttrLog::MemoryPipe& pipe);
  void cut(Cable& cable);
  void giveUp(Cable& cable);
  void service(Process& process);
  std::vector<NboAttrLog::Link const*> linksOf(Process const& process) const;

  // The course of a history.
  bool isPlayed(unsigned int step) const;
  void step();
  void settle();
  void check();
  void repeatTransfer();
  /// Keeps the first thing that went wrong where an exception would be swallowed.
  void note(std::string const& what);
  void throwNoted() const;
  void trace(std::string const& where, std::string const& what) const;

  unsigned int draw(std::size_t count) { return chance_.below(static_cast<unsigned int>(count)); }
  Process& anyProcess() { return *state_.processes[draw(state_.processes.size())]; }
  Root& anyRoot() { return state_.roots[draw(state_.roots.size())]; }
  Cable& anyCable() { return state_.cables[draw(state_.cables.size())]; }

  History const& history_;
  Chance chance_;
  State state_;
  std::vector<unsigned int> phaseEnds_;  ///< the number of the last step of each phase
  unsigned int stepCount_ = 0;
  unsigned int plantings_ = 0;
  bool waitsForPeers_ = false;  ///< a relay announces its last root when its peers have done so
  Process* reactor_ = nullptr;  ///< whose subscribers write
  bool isChanging_ = false;     ///< what subscribers see now, this process has written
  std::string failure_;
  std::uint64_t now_ = 1;
};

}  // namespace Mox::Simulation
