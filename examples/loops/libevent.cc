// The same inside libevent: two events, one for the poll loop's descriptor and one for its next due
// time, which is asked for anew behind each turn.
#include <InvArad.h>
#include <event2/event.h>

#include <iostream>

#include "attrlog/link/Session.h"
#include "transport/PollLoop.h"

using Inventory::Arad::AradSlice;
using Mox::NboAttrLog::Listener;
using Mox::NboAttrLog::PollLoop;
using Mox::NboAttrLog::Session;
using Mox::NboAttrLog::SocketAddress;
using Mox::NboAttrLog::SocketLink;

namespace {

class Events {
 public:
  Events(event_base* base, PollLoop& loop)
      : loop_(loop),
        ready_(event_new(base, loop.fd(), EV_READ | EV_PERSIST, turn, this)),
        due_(event_new(base, -1, 0, turn, this)) {
    event_add(ready_, nullptr);
    waitAgain();
  }
  ~Events() {
    event_free(due_);
    event_free(ready_);
  }
  Events(Events const&) = delete;
  Events& operator=(Events const&) = delete;

 private:
  static void turn(evutil_socket_t, short, void* self) {
    auto& events = *static_cast<Events*>(self);
    events.loop_.turn(0);
    events.waitAgain();
  }
  void waitAgain() {
    event_del(due_);
    auto const dueMs = loop_.dueMs();
    if (!dueMs) return;
    auto const now = loop_.nowMs();
    auto const waitMs = *dueMs > now ? *dueMs - now : 0;
    timeval const wait{static_cast<time_t>(waitMs / 1000),
                       static_cast<suseconds_t>(waitMs % 1000 * 1000)};
    event_add(due_, &wait);
  }

  PollLoop& loop_;
  event* ready_;
  event* due_;
};

class Watcher : public AradSlice::Notifiee {
 public:
  explicit Watcher(event_base* base) : base_(base) {}
  void onNumPorts() override {
    std::cout << "the copy has " << notifier()->numPorts() << " ports\n";
    event_base_loopbreak(base_);
  }

 private:
  event_base* base_;
};

}  // namespace

int main() {
  event_base* const base = event_base_new();
  {
    PollLoop loop;
    Mox::Ptr<AradSlice> const card(new AradSlice("linecard"));
    Session server("server");
    server.exportIs(card);
    server.exportsDone();
    Listener listener(SocketAddress::tcp("127.0.0.1:0"));
    loop.listenerIs(listener, server);
    loop.sessionIs(server);
    Mox::Ptr<Mox::Dir> const roots(new Mox::Dir);
    Session client("client");
    client.importDirIs(roots);
    loop.sessionIs(client);
    auto const link = client.linkIs(SocketLink::connect(listener.address(), 1000));
    Events const events(base, loop);
    while (!link->demuxer().inStep()) event_base_loop(base, EVLOOP_ONCE);

    Mox::Ptr<Watcher> const watcher(new Watcher(base));
    watcher->notifierIs(Mox::ptrCast<AradSlice>(roots->entry("linecard")->target()));
    watcher->isRegisteredNotifieeIs(true);
    auto const change = [](evutil_socket_t, short, void* slice) {
      static_cast<AradSlice*>(slice)->numPortsIs(48);
    };
    timeval const soon{0, 1000};
    event_base_once(base, -1, EV_TIMEOUT, change, card.get(), &soon);
    event_base_dispatch(base);
  }
  event_base_free(base);
}
