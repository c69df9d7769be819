// A connection whose peer sends any bytes: recordings of honest streams, and what must hold of this
// end whatever is made of them. The fuzzers and the mutation test feed it.
#pragma once

#include <InvArad.h>

#include <cstdio>
#include <stdexcept>
#include <string>

#include "Mox/Dir.h"
#include "attrlog/adapter/EntityIds.h"
#include "attrlog/link/Demuxer.h"
#include "tests/attrlog/Replica.h"
#include "tests/attrlog/SimOps.h"

namespace Mox::NboAttrLog::test {

/// What this end is: bits of the first byte of an input.
enum Role : unsigned char {
  exports = 1,     ///< it shows a small tree; else it imports
  isWritable = 2,  ///< the importing end may write
};

inline Ptr<Inventory::Arad::AradSlice> preparedTree(std::uint64_t seed,
                                                    unsigned int changes = 150) {
  Chance chance(seed);
  chance.longest = 40;
  Ptr<Inventory::Arad::AradSlice> slice(new Inventory::Arad::AradSlice("slice"));
  slice->fapIs("fap0", 0);
  for (; changes != 0; --changes) ops::change(**slice, chance);
  return slice;
}

/// One end of a connection, without a socket: bytes in, bytes out.
class BareEnd {
 public:
  BareEnd(bool exporting, bool writable, Ptr<Entity> const& tree)
      : demuxer_(new Demuxer(optionsOf(writable))), dir_(new Dir), tree_(tree) {
    demuxer_->begin();
    if (exporting) {
      demuxer_->exportIs(tree);
      demuxer_->exportsDone();
    } else {
      demuxer_->importDirIs(dir_);
    }
  }
  BareEnd(BareEnd const&) = delete;
  BareEnd& operator=(BareEnd const&) = delete;
  ~BareEnd() {
    demuxer_->close();
    demuxer_->emptyGraveyard();
  }

  void feed(void const* bytes, std::size_t size) {
    demuxer_->in()->received().append(bytes, size);
    demuxer_->dispatchReceived();
    run();
  }
  void run() {
    demuxer_->runFlowOuts([this] { flush(); });
    flush();
    demuxer_->emptyGraveyard();
  }
  /// What this end has said since the last call.
  std::string taken() { return std::exchange(said_, {}); }

  Demuxer& demuxer() const { return **demuxer_; }
  /// Its tree, or what it has imported; null for nothing yet.
  Entity* tree() const {
    if (tree_) return tree_.get();
    Ptr<Dir::Entry> const entry = dir_->entry("slice");
    return entry ? entry->target().get() : nullptr;
  }
  std::uint32_t roots() const { return dir_->entryCount(); }

 private:
  static LinkOptions optionsOf(bool writable) {
    LinkOptions options;
    options.grantsWrite = options.wantsWrite = writable;
    options.ackDelayMs = 0;
    return options;
  }
  void flush() {
    Out& out = **demuxer_->out();
    said_.append(reinterpret_cast<char const*>(out.committed()), out.committedSize());
    out.sent(out.committedSize());
  }

  Ptr<Demuxer> demuxer_;
  Ptr<Dir> dir_;
  Ptr<Entity> tree_;
  std::string said_;
};

inline constexpr std::uint32_t hostileIds = 7;

/// The end that is fed with anything. Ids are the same in every run, so that recordings fit.
class Victim : public BareEnd {
 public:
  explicit Victim(unsigned char role)
      : BareEnd(role & exports, role & isWritable,
                role & exports ? Ptr<Entity>(preparedTree(1, 40)) : Ptr<Entity>()) {
    entityIdsSeed(hostileIds);
  }
};

/// What an honest peer of an end with this role says: the role, then greeting and frames.
inline std::string recording(unsigned char role, std::uint64_t seed, unsigned int changes,
                             unsigned int longest = 90000) {
  bool const exporting = (role & exports) != 0;
  BareEnd peer(!exporting, role & isWritable,
               exporting ? Ptr<Entity>() : Ptr<Entity>(preparedTree(seed, changes)));
  Victim here(role);
  std::string said(1, static_cast<char>(role));
  auto const exchange = [&] {
    for (int quiet = 0; quiet < 2; ++quiet) {
      std::string const there = here.taken();
      peer.feed(there.data(), there.size());
      std::string const back = peer.taken();
      here.feed(back.data(), back.size());
      said += back;
      if (!there.empty() || !back.empty()) quiet = 0;
    }
  };
  peer.run();
  exchange();
  if (!exporting || (role & isWritable) != 0) {
    Chance chance(seed);
    chance.longest = longest;
    for (; changes != 0 && peer.tree(); --changes) {
      ops::change(static_cast<Inventory::Arad::AradSlice&>(*peer.tree()), chance);
      if (chance.oneIn(4)) exchange();
    }
    exchange();
  }
  return said;
}

/// Feeds one input (role, bytes) to a fresh end and checks what must hold after it. Throws what is
/// wrong. True if the stream was taken, false if it was refused.
inline bool feedHostile(unsigned char const* input, std::size_t size, std::string* why = nullptr) {
  if (size == 0) return true;
  unsigned char const role = input[0] & (exports | isWritable);
  std::size_t const piece = std::size_t{1} << (8 + (input[0] >> 4));
  ++input;
  --size;
  // The greeting comes alone, so that this end has said all that the frames acknowledge.
  std::size_t const greeting = size >= 10 ? getBytes(input + 8, 2) : size;
  auto const feed = [&](BareEnd& end, std::size_t upTo) {
    end.run();
    for (std::size_t at = 0; at < upTo && end.demuxer().error().empty();) {
      std::size_t const count = std::min(at < greeting ? greeting - at : piece, upTo - at);
      end.feed(input + at, count);
      at += count;
    }
  };
  Victim end(role);
  feed(end, size);
  Demuxer const& demuxer = end.demuxer();
  if (demuxer.stats().handlerExceptions != 0) throw std::runtime_error("a handler threw");
  demuxer.reactorsVisit([](Entity::MoxNboAttrLogSa const& adapter) {
    if (adapter.rawEntity() == nullptr) throw std::runtime_error("an adapter without an entity");
    if (adapter.hasFlag(noFlowOut) == (adapter.flowOut() != nullptr)) {
      throw std::runtime_error("a flow-out and its flag differ");
    }
  });
  if (demuxer.error().empty()) return true;

  if (why) *why = demuxer.error();

  // The refused message must have changed nothing.
  unsigned long offset = 0;
  if (std::sscanf(demuxer.error().c_str(), "log: %*s at stream offset %lu", &offset) != 1) {
    return false;  // the peer's own reason for ending
  }
  Victim before(role);
  feed(before, offset);
  if (!before.demuxer().error().empty()) throw std::runtime_error("refused before the bad message");
  if ((before.tree() == nullptr) != (end.tree() == nullptr) || before.roots() != end.roots()) {
    throw std::runtime_error(demuxer.error() + ": a root came or went");
  }
  if (end.tree() != nullptr) {
    std::string const found = difference(*before.tree(), *end.tree(), "slice");
    if (!found.empty()) throw std::runtime_error(demuxer.error() + ": changed " + found);
  }
  return false;
}

}  // namespace Mox::NboAttrLog::test
