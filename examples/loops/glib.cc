// A mirror inside a loop that isn't ours: GLib waits for the poll loop's one descriptor and its
// next due time, and calls it. A GSource has exactly the three steps that this takes.
#include <InvArad.h>
#include <glib.h>

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

struct LoopSource {
  GSource source;
  PollLoop* loop;
  gpointer descriptor;

  static LoopSource& of(GSource* source) { return *reinterpret_cast<LoopSource*>(source); }
  /// How long GLib may wait.
  static gboolean prepare(GSource* source, gint* timeoutMs) {
    PollLoop& loop = *of(source).loop;
    auto const dueMs = loop.dueMs();
    auto const now = loop.nowMs();
    *timeoutMs = !dueMs ? -1 : *dueMs > now ? static_cast<gint>(*dueMs - now) : 0;
    return *timeoutMs == 0;
  }
  static gboolean check(GSource* source) {
    PollLoop& loop = *of(source).loop;
    auto const dueMs = loop.dueMs();
    return g_source_query_unix_fd(source, of(source).descriptor) != 0 ||
           (dueMs && *dueMs <= loop.nowMs());
  }
  static gboolean dispatch(GSource* source, GSourceFunc, gpointer) {
    of(source).loop->turn(0);
    return G_SOURCE_CONTINUE;
  }
};

/// Ends the program's loop when the mirrored slice has what was set.
class Watcher : public AradSlice::Notifiee {
 public:
  explicit Watcher(GMainLoop* loop) : loop_(loop) {}
  void onNumPorts() override {
    std::cout << "the copy has " << notifier()->numPorts() << " ports\n";
    g_main_loop_quit(loop_);
  }

 private:
  GMainLoop* loop_;
};

}  // namespace

int main() {
  GMainLoop* const program = g_main_loop_new(nullptr, FALSE);
  PollLoop loop;
  static GSourceFuncs functions{
      LoopSource::prepare, LoopSource::check, LoopSource::dispatch, nullptr, nullptr, nullptr};
  GSource* const source = g_source_new(&functions, sizeof(LoopSource));
  LoopSource::of(source).loop = &loop;
  LoopSource::of(source).descriptor = g_source_add_unix_fd(source, loop.fd(), G_IO_IN);
  g_source_attach(source, nullptr);

  // One end serves a tree, the other one mirrors it; usually they are two programs.
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
  while (!link->demuxer().inStep()) g_main_context_iteration(nullptr, TRUE);

  Mox::Ptr<Watcher> const watcher(new Watcher(program));
  watcher->notifierIs(Mox::ptrCast<AradSlice>(roots->entry("linecard")->target()));
  watcher->isRegisteredNotifieeIs(true);
  // A change made by the program's own code, here a timeout of GLib, is sent without further ado.
  auto const change = [](gpointer slice) -> gboolean {
    static_cast<AradSlice*>(slice)->numPortsIs(48);
    return G_SOURCE_REMOVE;
  };
  g_timeout_add(1, change, card.get());
  g_main_loop_run(program);

  g_source_destroy(source);
  g_source_unref(source);
  g_main_loop_unref(program);
}
