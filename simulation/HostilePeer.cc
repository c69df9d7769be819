#include "simulation/HostilePeer.h"

#include <algorithm>
#include <utility>

#include "attrlog/adapter/EntityIds.h"
#include "generic/Text.h"
#include "simulation/Changes.h"
#include "simulation/Difference.h"
#include "simulation/LinkChecks.h"
#include "simulation/Plan.h"

namespace Mox::Simulation {

using namespace NboAttrLog;

namespace {

constexpr std::uint32_t hostileIds = 7;
constexpr unsigned int victimChanges = 40;

LinkOptions optionsOf(bool isWritable) {
  LinkOptions options;
  options.grantsWrite = options.wantsWrite = isWritable;
  options.ackDelayMs = 0;
  return options;
}

/// The end that is fed with anything. Ids are the same in every run, so that recordings fit.
class Victim : public LoneEnd {
 public:
  Victim(MoxType const& rootType, unsigned char role)
      : LoneEnd(role & isWritable,
                role & exports ? preparedTree(rootType, 1, victimChanges) : Ptr<Entity>()) {
    entityIdsSeed(hostileIds);
  }
};

/// Where the stream went wrong, by this end's error; nothing for the peer's own reason to end.
bool offsetOf(std::string const& error, std::size_t& offset) {
  static constexpr char mark[] = "at stream offset ";
  std::size_t const at = error.find(mark);
  if (!error.starts_with("log: ") || at == std::string::npos) return false;
  offset = std::stoul(error.substr(at + sizeof mark - 1));
  return true;
}

}  // namespace

Ptr<Entity> preparedTree(MoxType const& rootType, std::uint64_t seed, unsigned int changes) {
  Chance chance(seed);
  chance.longestTextIs(40);
  Parties parties;
  Ptr<Entity> const tree = rootType.newEntity(Name(hostileRoot), nullptr);
  for (Ptr<GenericIf> const object = genericOf(tree); changes != 0; --changes) {
    change(object, chance, parties);
  }
  return tree;
}

LoneEnd::LoneEnd(bool isWritable, Ptr<Entity> const& tree)
    : dir_(new Dir), tree_(tree), session_("end", optionsOf(isWritable)) {
  if (tree) {
    session_.exportIs(tree);
    session_.exportsDone();
  } else {
    session_.importDirIs(dir_);
  }
  auto ends = MemoryLink::pair(MemoryPipe::unlimited);
  in_ = ends.first->in();
  out_ = ends.first->out();
  link_ = session_.linkIs(std::move(ends.first));
}

void LoneEnd::feed(void const* bytes, std::size_t size) {
  in_->bytes.append(bytes, size);
  do {
    run();
  } while (!in_->bytes.empty() && link_->state() != Link::State::closed);
}

void LoneEnd::run() { session_.service(1); }

std::string LoneEnd::taken() {
  std::string const bytes(reinterpret_cast<char const*>(out_->bytes.data()), out_->bytes.size());
  out_->bytes.take(bytes.size());
  return bytes;
}

Entity* LoneEnd::tree() const {
  if (tree_) return tree_.get();
  Ptr<Dir::Entry> const entry = dir_->entry(hostileRoot);
  return entry ? entry->target().get() : nullptr;
}

std::string recording(MoxType const& rootType, unsigned char role, std::uint64_t seed,
                      unsigned int changes, unsigned int longestText) {
  bool const isExporter = (role & exports) != 0;
  LoneEnd peer(role & isWritable,
               isExporter ? Ptr<Entity>() : preparedTree(rootType, seed, changes));
  Victim here(rootType, role);
  std::string sent(1, static_cast<char>(role));
  auto const exchange = [&] {
    for (int quiet = 0; quiet < 2; ++quiet) {
      std::string const there = here.taken();
      peer.feed(there.data(), there.size());
      std::string const back = peer.taken();
      here.feed(back.data(), back.size());
      sent += back;
      if (!there.empty() || !back.empty()) quiet = 0;
    }
  };
  peer.run();
  here.run();
  exchange();
  if (isExporter && (role & isWritable) == 0) return sent;
  Chance chance(seed);
  chance.longestTextIs(longestText);
  Parties parties;
  for (; changes != 0 && peer.tree(); --changes) {
    change(genericOf(peer.tree()), chance, parties);
    if (chance.oneIn(4)) exchange();
  }
  exchange();
  return sent;
}

bool feedHostile(MoxType const& rootType, unsigned char const* input, std::size_t size,
                 std::string* why) {
  if (size == 0) return true;
  unsigned char const role = input[0] & (exports | isWritable);
  std::size_t const piece = std::size_t{1} << (8 + (input[0] >> 4));
  ++input;
  --size;
  // The greeting comes alone, so that this end has sent all that the frames acknowledge.
  std::size_t const greeting = size >= 10 ? getBytes(input + 8, 2) : size;
  auto const feed = [&](LoneEnd& end, std::size_t upTo) {
    end.run();
    for (std::size_t at = 0; at < upTo && end.link().error().empty();) {
      std::size_t const count = std::min(at < greeting ? greeting - at : piece, upTo - at);
      end.feed(input + at, count);
      at += count;
    }
  };
  Victim end(rootType, role);
  feed(end, size);
  if (end.link().stats().handlerExceptions != 0) throw Failure("a handler threw");
  checkEnd(end.link(), true);
  std::string const& error = end.link().error();
  if (error.empty()) return true;
  if (why) *why = error;

  // The refused message must have changed nothing.
  std::size_t offset = 0;
  if (!offsetOf(error, offset)) return false;
  Victim before(rootType, role);
  feed(before, offset);
  if (!before.link().error().empty()) throw Failure("refused before the bad message");
  if ((before.tree() == nullptr) != (end.tree() == nullptr) || before.roots() != end.roots()) {
    throw Failure(error + ": a root came or went");
  }
  if (end.tree() != nullptr) {
    std::string const found = difference(*before.tree(), *end.tree(), hostileRoot);
    if (!found.empty()) throw Failure(error + ": changed " + found);
  }
  return false;
}

}  // namespace Mox::Simulation
