// R1 to R4: the workloads' tree between two processes over a Unix socket.

#include <optional>

#include "Mox/Dir.h"
#include "attrlog/link/Session.h"
#include "bench/BenchModel.h"
#include "bench/Replication.h"
#include "transport/PollLoop.h"

namespace {

using namespace Mox::NboAttrLog;
using bench::Model;

SocketAddress address() { return SocketAddress::unixPath("/tmp/" + bench::runTag() + ".socket"); }

/// In round trips both ends write: the acknowledgement comes from the one that imports the tree.
LinkOptions options(std::string const& workload) {
  LinkOptions result;
  result.schemaHash = BenchTree::schemaHash;
  result.grantsWrite = result.wantsWrite = workload.starts_with("R3");
  return result;
}

class Sender {
 public:
  Sender(std::vector<bench::tree::Object> const& objects, std::string const& workload)
      : objects_(objects),
        isStalled_(workload == "R4"),
        model_(objects),
        session_("sender", options(workload)) {
    session_.exportIs(Mox::Ptr<Mox::Entity>(&model_.slice()));
    session_.exportsDone();
    listener_.emplace(address());
    loop_.sessionIs(session_);
    loop_.listenerIs(*listener_, session_);
  }

  void serve(int control) {
    serveRest(control);
    loop_.listenerDel(*listener_);
    listener_.reset();
  }
  void set(std::uint32_t index, std::uint32_t attr, std::uint32_t value) {
    bench::tree::Object const& object = objects_[index];
    bench::setterOf(object.kind, attr)(*model_.entity(object.id), value);
  }
  void pump() {
    loop_.turn(0);
    // A reader that keeps up is waited for before changes would be put together.
    while (!isStalled_ && out().committedSize() > out().capacity() / 2) loop_.turn(1);
  }
  void done(std::uint32_t value) { model_.slice().s1Is(value); }
  void serveRest(int control) {
    loop_.descriptorIs(control, [this] { loop_.stop(); });
    loop_.run();
    loop_.descriptorDel(control);
  }
  void roundTrip(std::uint32_t value) {
    model_.slice().s1Is(value);
    while (model_.slice().s2() != value) loop_.turn();
  }
  std::uint64_t hash() {
    std::uint64_t values = 0;
    return model_.hash(values);
  }

 private:
  Out& out() { return **session_.links().front()->demuxer().out(); }

  std::vector<bench::tree::Object> const& objects_;
  bool isStalled_;
  Model model_;
  Session session_;
  std::optional<Listener> listener_;
  PollLoop loop_;
};

class Receiver {
 public:
  Receiver(std::size_t objects, std::string const& workload)
      : objects_(objects), roots_(new Mox::Dir), session_("receiver", options(workload)) {
    session_.importDirIs(roots_);
    loop_.sessionIs(session_);
    link_ = session_.linkIs(SocketLink::connect(address(), 5000));
  }

  void sync() {
    while (!link_->demuxer().inStep()) turn();
    model_.emplace(Mox::ptrCast<BenchTree::Slice>(roots_->entry("slice")->target()), objects_);
    if (!model_->hasAll()) bench::die("objects are missing");
  }
  void runUntil(std::uint32_t value) {
    while (model_->slice().s1() != value) turn();
  }
  void echo(std::uint32_t count) {
    Mox::Ptr<Echo> echo(new Echo);
    echo->notifierIs(Mox::Ptr<Mox::PtrInterface const>(&model_->slice()));
    echo->isRegisteredNotifieeIs(true);
    while (echo->count < count) turn();
  }
  std::uint64_t hash() { return model_->hash(values_); }
  std::uint64_t values() {
    model_->hash(values_);
    return values_;
  }
  std::uint64_t applied() { return model_->changes(); }
  std::uint64_t bytes() { return link_->stats().bytesReceived; }

 private:
  class Echo : public BenchTree::Slice::Notifiee {
   public:
    void onS1() override {
      auto const slice = notifier();
      slice->s2Is(slice->s1());
      ++count;
    }
    std::uint32_t count = 0;
  };

  void turn() {
    loop_.turn();
    if (link_->state() == Link::State::closed) bench::die(link_->error().c_str());
  }

  std::size_t objects_;
  Mox::Ptr<Mox::Dir> roots_;
  Session session_;
  PollLoop loop_;
  Mox::Ptr<Link> link_;
  std::optional<Model> model_;
  std::uint64_t values_ = 0;
};

}  // namespace

int main(int argc, char** argv) { bench::runReplication<Sender, Receiver>("mox", argc, argv); }
