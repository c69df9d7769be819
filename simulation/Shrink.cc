#include "simulation/Shrink.h"

#include <algorithm>
#include <cstdio>
#include <numeric>

namespace Mox::Simulation {

Shrunk shrink(History history, unsigned int stepCount, std::string failure, Play const& play,
              unsigned int mostPlays) {
  if (!history.steps) {
    history.steps.emplace(stepCount);
    std::iota(history.steps->begin(), history.steps->end(), 1u);
  }
  Shrunk best{history, std::move(failure), static_cast<unsigned int>(history.steps->size())};
  unsigned int plays = 0;
  auto const stillFails = [&](History const& candidate) {
    if (plays++ >= mostPlays) return false;
    std::string const found = play(candidate);
    if (found.empty()) return false;
    best.history = candidate;
    best.failure = found;
    return true;
  };
  auto const plantFewer = [&] {
    for (unsigned int count : {0u, 1u, 2u, 4u, 8u, 16u, 32u}) {
      if (count >= best.history.mostPlanted) return;
      History candidate = best.history;
      candidate.mostPlanted = count;
      if (stillFails(candidate)) return;
    }
  };
  plantFewer();
  for (std::size_t part = best.history.steps->size(); part != 0 && plays < mostPlays;) {
    bool isShorter = false;
    // From the end: what fails rarely needs what comes behind it.
    for (std::size_t end = best.history.steps->size(); end != 0;) {
      std::size_t const begin = end > part ? end - part : 0;
      std::vector<unsigned int> steps = *best.history.steps;
      auto const first = steps.begin();
      steps.erase(first + static_cast<std::ptrdiff_t>(begin),
                  first + static_cast<std::ptrdiff_t>(end));
      History candidate = best.history;
      candidate.steps = std::move(steps);
      isShorter = stillFails(candidate) || isShorter;
      end = begin;
    }
    if (part != 1) {
      part = std::min((part + 1) / 2, best.history.steps->size());
    } else if (!isShorter) {
      break;
    }
  }
  plantFewer();
  return best;
}

std::string stepsText(std::vector<unsigned int> const& steps) {
  std::string text;
  for (std::size_t at = 0; at != steps.size();) {
    std::size_t last = at;
    while (last + 1 != steps.size() && steps[last + 1] == steps[last] + 1) ++last;
    if (!text.empty()) text += ",";
    text += std::to_string(steps[at]);
    if (last != at) text += "-" + std::to_string(steps[last]);
    at = last + 1;
  }
  return text.empty() ? "none" : text;
}

std::vector<unsigned int> stepsFromText(std::string const& text) {
  std::vector<unsigned int> steps;
  if (text == "none") return steps;
  char const* at = text.c_str();
  for (;;) {
    unsigned int first = 0;
    unsigned int last = 0;
    int length = 0;
    if (std::sscanf(at, "%u-%u%n", &first, &last, &length) != 2) {
      if (std::sscanf(at, "%u%n", &first, &length) != 1) throw std::invalid_argument(text);
      last = first;
    }
    for (unsigned int step = first; step <= last && step - first < 1000000; ++step) {
      steps.push_back(step);
    }
    at += length;
    if (*at == '\0') break;
    if (*at++ != ',') throw std::invalid_argument(text);
  }
  std::sort(steps.begin(), steps.end());
  return steps;
}

}  // namespace Mox::Simulation
