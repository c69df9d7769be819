// The first bytes of a connection, in pieces as the first byte says: the connection runs, waits for
// more, or has ended with a reason, and the tree that it was to show is as it was.
#include <InvArad.h>

#include <algorithm>

#include "attrlog/link/Session.h"
#include "fuzz/Memory.h"
#include "simulation/HostilePeer.h"
#include "simulation/TreeText.h"
#include "transport/MemoryLink.h"

extern "C" int LLVMFuzzerTestOneInput(unsigned char const* bytes, std::size_t size) {
  using namespace Mox::NboAttrLog;
  if (size == 0) return 0;
  static auto const tree =
      Mox::Simulation::preparedTree(*Inventory::Arad::AradSlice::_fwkType(), 1, 25);
  static std::string const before = Mox::Simulation::treeText(tree);
  // Buffers of a connection, and what it says to a peer whose greeting is accepted.
  Fuzz::MemoryBound const bound(size, 2u << 20, 512);
  LinkOptions options;
  options.schemaStrict = (bytes[0] & 1) != 0;
  Session session("here", options);
  session.exportIs(tree);
  auto ends = MemoryLink::pair();
  auto const pipe = ends.second->out();
  Mox::Ptr<Link> const link = session.linkIs(std::move(ends.first));
  std::size_t const piece = 1 + (bytes[0] >> 1);
  std::uint64_t now = 1;
  session.service(now);
  for (std::size_t at = 1; at < size; at += piece) {
    pipe->bytes.append(bytes + at, std::min(piece, size - at));
    session.service(now++);
  }
  if ((link->state() == Link::State::closed) == link->error().empty()) std::abort();
  session.service(now + 10000);
  if (link->state() == Link::State::greeting) std::abort();
  if (Mox::Simulation::treeText(tree) != before) std::abort();
  return 0;
}
