// The roots of a connection, both ways: the trees that this end exports, the entities without a
// parent that the peer brings, and when all of them are here.
#pragma once

#include <memory>

#include "Mox/Dir.h"
#include "Mox/Entity.h"
#include "Mox/Ptr.h"
#include "attrlog/adapter/AdapterHost.h"
#include "attrlog/link/Imports.h"
#include "attrlog/wire/FrameParser.h"

namespace MOX_API Mox {

class MoxType;

namespace NboAttrLog {

class Roots {
 public:
  explicit Roots(AdapterHost& host) : host_(host) {}

  // Export.

  void exportIs(Ptr<Entity> const& root);
  void exportDel(Ptr<Entity> const& root);
  /// No further root will be exported at first: the peer is told behind the last one.
  void exportsDone();
  /// Announces what waits, as far as there is room.
  void sendWaiting();

  // Import.

  /// Where imported roots are entered by name; null: roots are refused.
  void importDirIs(Ptr<Dir> const& dir) { dir_ = dir; }
  /// Where this end remembers what peers brought; a connection by itself has its own.
  void importsIs(std::shared_ptr<Imports> const& imports) { imports_ = imports; }
  /// The peer's greeting was accepted.
  void greeted() { imports_->peerIs(peer(), host_.peer().nonce); }
  /// A frame that announces or withdraws an entity without a parent. Throws StreamException.
  void orphan(Frame const& frame);
  /// The peer's roots are announced.
  void complete(Frame const& frame);
  bool isPeerDone() const { return isPeerDone_; }
  /// True once the peer's roots are announced and every full transfer has ended.
  bool inStep() const {
    return host_.isRunning() && isPeerDone_ && host_.scheduler.heldCount() == 0;
  }
  /// Drops, once in step, what no reference in the peer's trees leads to.
  void dropStale();
  /// The connection ends: what came over it may come back over another. Before adapters retire.
  void close();

 private:
  void withdrawal(Frame const& frame);
  bool isOwn(EntityId id, Frame const& frame, bool isAccepted, bool isRoot);
  Ptr<Entity> root(Ptr<Entity> const& made, Ptr<Dir::Entry> entry, EntityId id);
  Ptr<Entity> other(Ptr<Entity> const& made, EntityId id, std::string const& arguments);
  bool isMounted(Entity& root) const;
  void takeOverElsewhere(Entity& entity);
  /// What the peer is known by: its name counts only together with where it comes from.
  std::string peer() const { return host_.options.origin + "/" + host_.peer().peerName; }

  AdapterHost& host_;
  Ptr<Dir> dir_;
  std::shared_ptr<Imports> imports_ = std::make_shared<Imports>();
  bool isDoneOwed_ = false;
  bool isPeerDone_ = false;
  bool isShelfSwept_ = false;
};

}  // namespace NboAttrLog
}  // namespace Mox
