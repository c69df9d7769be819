// Counts links by origin.
#include "transport/Admission.h"

#include <sys/resource.h>

#include <algorithm>
#include <map>
#include <tuple>

namespace Mox::NboAttrLog {
namespace {

/// Standard streams, listeners with their locks, loop, signals, files, and who asks for the status.
constexpr std::size_t reservedDescriptors = 64;

}  // namespace

bool admits(Session& session, Origin const& from, std::size_t most) {
  struct Share {
    std::size_t count = 0;
    Link* newest = nullptr;
  };
  auto const key = [](Origin const& origin) { return std::tie(origin.place, origin.credentials); };
  std::map<std::tuple<std::string, std::string>, Share> shares;
  std::size_t count = 0;
  for (Ptr<Link> const& link : session.links()) {
    if (link->end() != Link::End::none) continue;
    ++count;
    Share& share = shares[key(link->origin())];
    ++share.count;
    bool const isGreeting = link->state() == Link::State::greeting;
    if (share.newest == nullptr || isGreeting || share.newest->state() != Link::State::greeting) {
      share.newest = link.get();
    }
  }
  if (count < most) return true;
  auto const largest = std::max_element(
      shares.begin(), shares.end(),
      [](auto const& a, auto const& b) { return a.second.count < b.second.count; });
  if (largest == shares.end() || shares[key(from)].count >= largest->second.count) return false;
  largest->second.newest->closeIs(
      "ended for a connection of another origin, of which there are fewer");
  return true;
}

std::size_t descriptorRoom() {
  rlimit limit{};
  if (::getrlimit(RLIMIT_NOFILE, &limit) != 0) return reservedDescriptors;
  std::size_t const all = limit.rlim_cur;
  return all > 2 * reservedDescriptors ? all - reservedDescriptors : all / 2;
}

}  // namespace Mox::NboAttrLog
