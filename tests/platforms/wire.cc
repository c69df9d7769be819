// What goes over a connection must not depend on the processor. One program, built for several:
//   wire record FILE    a server shows a tree that changes at random to a mirror; what passes
//   between
//                       them is captured, and the tree printed
//   wire replay FILE    a mirror is fed the capture; what it says must be what the capture has, and
//                       its tree is printed
#include <InvArad.h>

#include <cstring>
#include <iostream>
#include <optional>
#include <stdexcept>

#include "attrlog/adapter/EntityIds.h"
#include "simulation/Changes.h"
#include "simulation/TreeText.h"
#include "transport/Capture.h"

namespace {

using namespace Mox::NboAttrLog;
using Inventory::Arad::AradSlice;
using Mox::Simulation::Chance;
using Mox::Simulation::treeText;

constexpr std::uint64_t turns = 1000;
constexpr std::uint64_t quietTurns = 300;  ///< at the end, until both are in step
constexpr std::size_t capacity = 3000;     ///< of the pipe: who has more to say, waits

LinkOptions options() {
  LinkOptions options;
  options.schemaHash = InvArad::schemaHash;
  options.grantsWrite = options.wantsWrite = true;
  return options;
}

void change(unsigned int count, Chance& chance, Mox::Ptr<AradSlice> const& slice) {
  Mox::Simulation::Parties parties;
  for (; count != 0; --count) Mox::Simulation::change(Mox::genericOf(slice), chance, parties);
}
/// A few changes of the tree, or none.
void changeNow(std::uint64_t now, Chance& chance, Mox::Ptr<AradSlice> const& slice) {
  if (now > turns - quietTurns || !chance.oneIn(4) || !slice) return;
  change(chance.below(10), chance, slice);
}

class MirrorEnd {
 public:
  explicit MirrorEnd(std::unique_ptr<ByteLink> bytes) : session_("mirror", options()) {
    entityIdsSeed(1);
    session_.importDirIs(dir_);
    link_ = session_.linkIs(std::move(bytes));
  }

  void turn(std::uint64_t now) {
    entityIdsSeed(
        static_cast<std::uint32_t>(2 * now + 1));  // Two ends in one process draw the same.
    changeNow(now, chance_, tree());
    session_.service(now);
    if (!link_->error().empty()) {
      throw std::runtime_error("turn " + std::to_string(now) + ": " + link_->error());
    }
  }
  Mox::Ptr<AradSlice> tree() const {
    auto const entry = dir_->entry("slice");
    return entry ? Mox::ptrCast<AradSlice>(entry->target()) : Mox::Ptr<AradSlice>();
  }

 private:
  Chance chance_{11};
  Mox::Ptr<Mox::Dir> dir_{new Mox::Dir("import")};
  Session session_;
  Mox::Ptr<Link> link_;
};

/// The mirror's end of a recorded connection, which must say what was recorded.
class RecordedLink : public ByteLink {
 public:
  explicit RecordedLink(std::string const& path) : reader_(path) { step(); }

  /// The turn that the next record belongs to.
  std::uint64_t turn() const { return record_.atMs + 1; }
  bool isEnd() const { return isEnd_; }
  void nowIs(std::uint64_t turn) { now_ = turn; }

  ByteResult read(void* to, std::size_t size) override {
    if (record_.kind != CaptureRecord::Kind::received || isEnd_ || turn() != now_) return {};
    if (record_.bytes.size() > size) throw std::runtime_error("more was received at once");
    std::size_t const count = record_.bytes.copy(static_cast<char*>(to), size);
    step();
    return {count};
  }
  /// Takes what was taken then, if it is the same.
  ByteResult write(void const* from, std::size_t size) override {
    if (record_.kind != CaptureRecord::Kind::sent || isEnd_ || turn() != now_) return {};
    isOther_ = record_.bytes.size() > size ||
               std::memcmp(record_.bytes.data(), from, record_.bytes.size()) != 0;
    if (isOther_) return {0, ByteResult::State::failed};
    std::size_t const count = record_.bytes.size();
    step();
    return {count};
  }
  void close() override {}
  std::string error() const override { return isOther_ ? "other bytes than recorded" : ""; }

 private:
  void step() {
    using Kind = CaptureRecord::Kind;
    do {
      isEnd_ = !reader_.next(record_);
    } while (!isEnd_ && record_.kind != Kind::received && record_.kind != Kind::sent);
  }

  CaptureReader reader_;
  CaptureRecord record_;
  std::uint64_t now_ = 0;
  bool isEnd_ = false;
  bool isOther_ = false;
};

Mox::Ptr<AradSlice> record(std::string const& path) {
  std::uint64_t now = 1;  // The capture counts from here.
  CaptureWriter writer(path, [&now] { return now; });
  Chance chance(7);
  Mox::Ptr<AradSlice> const slice(new AradSlice("slice"));
  change(300, chance, slice);

  auto ends = MemoryLink::pair(capacity);
  MirrorEnd mirror(writer.linkOf(std::move(ends.second), "server"));
  Session server("server", options());
  server.exportIs(slice);
  server.exportsDone();
  server.linkIs(std::move(ends.first));
  for (; now <= turns; ++now) {
    entityIdsSeed(static_cast<std::uint32_t>(2 * now));
    changeNow(now, chance, slice);
    server.service(now);
    mirror.turn(now);
  }
  if (treeText(slice) != treeText(mirror.tree())) {
    throw std::runtime_error("the two ends are not in step");
  }
  return slice;
}

Mox::Ptr<AradSlice> replay(std::string const& path) {
  auto* const recorded = new RecordedLink(path);
  MirrorEnd mirror{std::unique_ptr<ByteLink>(recorded)};
  for (std::uint64_t now = 1; now <= turns; ++now) {
    recorded->nowIs(now);
    mirror.turn(now);
  }
  if (!recorded->isEnd()) throw std::runtime_error("less was said than is recorded");
  return mirror.tree();
}

}  // namespace

int main(int count, char** arguments) {
  std::string const command = count == 3 ? arguments[1] : "";
  try {
    if (command != "record" && command != "replay")
      throw std::runtime_error("usage: wire record|replay FILE");
    std::cout << treeText(command == "record" ? record(arguments[2]) : replay(arguments[2]));
    return 0;
  } catch (std::exception const& failure) {
    std::cerr << failure.what() << "\n";
    return 1;
  }
}
