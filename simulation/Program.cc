#include "simulation/Program.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <string>
#include <typeinfo>
#include <unordered_set>

#include "Mox/PtrTrack.h"
#include "simulation/DamagedStream.h"
#include "simulation/HostilePeer.h"
#include "simulation/Outline.h"
#include "simulation/Plan.h"
#include "simulation/Shrink.h"
#include "simulation/Trial.h"
#include "simulation/World.h"

namespace Mox::Simulation {
namespace {

constexpr char usage[] =
    "usage: %s [OPTION]...\n"
    "Plays random histories of processes that replicate trees of the model.\n"
    "  --histories N     histories in each world, seeds 1 to N (100)\n"
    "  --seeds FROM-TO   those seeds; also one number\n"
    "  --world NAME      this world alone: pair, star, both, starBoth, chain, chainBoth, hostile\n"
    "  --root TYPE       trees of this root type alone\n"
    "  --steps LIST      of one seed, these steps alone, as in 3,17-20; none\n"
    "  --planted N       most changes of a tree before it is exported\n"
    "  --trace           writes each action, notification and frame to standard error\n"
    "  --failures N      stops after so many failing histories (5)\n";

/// Seconds after which a history that has not ended is stuck.
constexpr unsigned int batchSeconds = 3600;
constexpr unsigned int historySeconds = 60;

class Usage : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

struct Options {
  std::uint64_t firstSeed = 1;
  std::uint64_t lastSeed = 100;
  std::string world;
  String8 root;
  History history;
  unsigned int mostFailures = 5;
  bool isHelp = false;
};

unsigned long number(std::string const& text) {
  char* end = nullptr;
  unsigned long const value = std::strtoul(text.c_str(), &end, 10);
  if (text.empty() || *end != '\0' || text[0] == '-') throw Usage("not a number: " + text);
  return value;
}

Options optionsOf(int argc, char** argv) {
  Options options;
  for (int at = 1; at < argc; ++at) {
    std::string const name = argv[at];
    if (name == "--help") {
      options.isHelp = true;
      return options;
    }
    if (name == "--trace") {
      options.history.isTraced = true;
      continue;
    }
    if (at + 1 == argc) throw Usage("no such option, or no value behind it: " + name);
    std::string const value = argv[++at];
    if (name == "--histories") {
      options.lastSeed = number(value);
    } else if (name == "--seeds") {
      std::size_t const dash = value.find('-');
      options.firstSeed = number(value.substr(0, dash));
      options.lastSeed =
          dash == std::string::npos ? options.firstSeed : number(value.substr(dash + 1));
    } else if (name == "--world") {
      options.world = value;
    } else if (name == "--root") {
      options.root = String8(value);
    } else if (name == "--steps") {
      options.history.steps = stepsFromText(value);
    } else if (name == "--planted") {
      options.history.mostPlanted = static_cast<unsigned int>(number(value));
    } else if (name == "--failures") {
      options.mostFailures = static_cast<unsigned int>(number(value));
    } else {
      throw Usage("no such option: " + name);
    }
  }
  if (options.history.steps && options.firstSeed != options.lastSeed) {
    throw Usage("--steps needs a single seed");
  }
  options.history.rootTypes = rootTypes(options.root);
  if (options.history.rootTypes.empty()) throw Usage("the model has no such root type");
  return options;
}

/// One world after the other.
class Player {
 public:
  Player(Options const& options, std::string command)
      : options_(options), command_(std::move(command)) {}

  void playAll() {
    bool isKnown = false;
    for (Plan const& plan : plans()) {
      if (!options_.world.empty() && options_.world != plan.name) continue;
      isKnown = true;
      History history = options_.history;
      history.plan = &plan;
      playSeeds(plan.name, [&](std::uint64_t seed) {
        history.seed = seed;
        return playOne(history);
      });
    }
    if (options_.world.empty() || options_.world == "hostile") {
      isKnown = true;
      playHostile();
    }
    if (!isKnown) throw Usage("no such world: " + options_.world);
  }
  unsigned int failures() const { return failures_; }
  std::uint64_t played() const { return played_; }

 private:
  using PlaySeed = std::function<std::string(std::uint64_t seed)>;

  /// In the process in hand; the text of what is wrong.
  static std::string playOne(History const& history) {
    ptrifTrackOn_ = true;
    std::unordered_set<PtrInterface const*> before;
    PtrTrack::forEach([&](PtrInterface const* object) { before.insert(object); });
    {
      World world(history);
      world.run();
    }
    std::string left;
    PtrTrack::forEach([&](PtrInterface const* object) {
      if (left.empty() && !before.contains(object)) left = typeid(*object).name();
    });
    return left.empty() ? left : "objects are left over, one of class " + left;
  }
  static unsigned int stepCount(History const& history) {
    unsigned int count = 0;
    std::string const text =
        trial([&] { return std::to_string(World(history).stepCount()); }, true, historySeconds);
    std::sscanf(text.c_str(), "%u", &count);
    return count;
  }

  /// One child process plays seeds until one fails.
  void playSeeds(char const* world, PlaySeed const& playSeed) {
    std::uint64_t first = options_.firstSeed;
    while (first <= options_.lastSeed && failures_ < options_.mostFailures) {
      SharedNumber seed(first);
      auto const playRest = [&]() -> std::string {
        for (; seed.value() <= options_.lastSeed; seed.valueIs(seed.value() + 1)) {
          std::string const found = caught(playSeed, seed.value());
          if (!found.empty()) return found;
        }
        return {};
      };
      std::string const failure = trial(playRest, false, batchSeconds);
      played_ += std::min(seed.value(), options_.lastSeed) - first + 1;
      if (failure.empty()) return;
      ++failures_;
      report(world, seed.value(), failure);
      first = seed.value() + 1;
    }
  }
  static std::string caught(PlaySeed const& playSeed, std::uint64_t seed) {
    try {
      return playSeed(seed);
    } catch (std::exception const& failure) {
      return failure.what();
    }
  }

  void report(std::string const& world, std::uint64_t seed, std::string const& failure) const {
    std::printf("%s, seed %llu: %s\n", world.c_str(), static_cast<unsigned long long>(seed),
                failure.c_str());
    std::string replay = command_ + " --world " + world + " --seeds " + std::to_string(seed);
    if (!options_.root.empty()) replay += " --root " + std::string(options_.root.view());
    if (world != "hostile") {
      History history = options_.history;
      for (Plan const& plan : plans()) {
        if (world == plan.name) history.plan = &plan;
      }
      history.seed = seed;
      history.isTraced = false;
      Shrunk const shrunk = shrink(history, stepCount(history), failure, [](History const& next) {
        return trial([&] { return playOne(next); }, true, historySeconds);
      });
      std::printf("  shortest failing history, %zu of %u steps: %s\n", shrunk.history.steps->size(),
                  shrunk.stepsBefore, shrunk.failure.c_str());
      replay += " --steps " + stepsText(*shrunk.history.steps);
      if (shrunk.history.mostPlanted != History().mostPlanted) {
        replay += " --planted " + std::to_string(shrunk.history.mostPlanted);
      }
    }
    std::printf("  replay: %s --trace\n", replay.c_str());
    std::fflush(stdout);
  }

  void playHostile() {
    for (MoxType const* rootType : options_.history.rootTypes) {
      std::unique_ptr<DamagedStreams> streams;
      playSeeds("hostile", [&](std::uint64_t seed) {
        if (!streams) streams = std::make_unique<DamagedStreams>(*rootType);
        std::string const input = streams->damaged(seed);
        feedHostile(*rootType, reinterpret_cast<unsigned char const*>(input.data()), input.size());
        return std::string();
      });
    }
  }

  Options const& options_;
  std::string command_;
  unsigned int failures_ = 0;
  std::uint64_t played_ = 0;
};

}  // namespace

int program(int argc, char** argv) {
  try {
    Options const options = optionsOf(argc, argv);
    if (options.isHelp) {
      std::printf(usage, argv[0]);
      return 0;
    }
    Player player(options, argv[0]);
    player.playAll();
    std::printf("%llu histories, %u failed\n", static_cast<unsigned long long>(player.played()),
                player.failures());
    return player.failures() == 0 ? 0 : 1;
  } catch (Usage const& wrong) {
    std::fprintf(stderr, "%s\n", wrong.what());
  } catch (std::invalid_argument const& wrong) {
    std::fprintf(stderr, "no list of steps: %s\n", wrong.what());
  }
  std::fprintf(stderr, usage, argv[0]);
  return 2;
}

}  // namespace Mox::Simulation
