// Two processes' worth of attribute log in one: a tree on one end, its copy on the other, joined in
// memory with chosen pieces. Tests change the one and compare both as text.
#pragma once

#include <InvArad.h>

#include <memory>
#include <string>
#include <vector>

#include "attrlog/link/Link.h"
#include "attrlog/link/Session.h"
#include "simulation/TreeText.h"
#include "transport/MemoryLink.h"

namespace Mox::NboAttrLog::test {

using Simulation::treeText;

/// With 0, every turn acknowledges what came in it: no clock has to move.
inline LinkOptions prompt(LinkOptions options = {}, std::uint64_t ackDelayMs = 0) {
  options.ackDelayMs = ackDelayMs;
  return options;
}

/// Two sessions and the pipe between them. The exporter's tree is mirrored into `dir`.
class Mirror {
 public:
  explicit Mirror(Ptr<Entity> const& root, LinkOptions const& options = {},
                  std::uint64_t ackDelayMs = 0)
      : root_(root),
        exporter_("exporter", prompt(options, ackDelayMs)),
        importer_("importer", prompt(options, ackDelayMs)),
        dir(new Dir(Name("import"))) {
    exporter_.exportIs(root);
    exporter_.exportsDone();
    importer_.importDirIs(dir);
    exporter_.onClosed([this](Link&, std::string const& why) { exporterClosed = why; });
    importer_.onClosed([this](Link&, std::string const& why) { importerClosed = why; });
    importer_.onReport([this](std::string const& line) { importerReports.push_back(line); });
  }

  void connect(std::size_t piece = MemoryPipe::unlimited, std::size_t capacity = 65536) {
    auto ends = MemoryLink::pair(capacity, piece);
    toImporter = ends.first->out();
    toExporter = ends.first->in();
    exporterLink = exporter_.linkIs(std::move(ends.first));
    importerLink = importer_.linkIs(std::move(ends.second));
  }
  void cut() {
    toImporter->isCut = toExporter->isCut = true;
    turn();
    turn();
  }
  void turn() {
    exporter_.service(now_);
    importer_.service(now_);
  }
  /// Turns until nothing moves any more.
  void settle(int mostTurns = 1000000) {
    for (int still = 0; still < 3 && mostTurns > 0; --mostTurns) {
      std::uint64_t const before = moved();
      turn();
      still = moved() == before ? still + 1 : 0;
    }
  }

  Ptr<Entity> root() const { return root_; }
  Ptr<Entity> copy() const {
    Ptr<Dir::Entry> const entry = dir->entry(root_->name());
    return entry ? entry->target() : Ptr<Entity>();
  }
  Session& exporter() { return exporter_; }
  Session& importer() { return importer_; }
  Demuxer& out() { return exporterLink->demuxer(); }
  Demuxer& in() { return importerLink->demuxer(); }

 private:
  std::uint64_t moved() const {
    std::uint64_t sum = 0;
    for (LinkStats const& stats : {exporterLink->stats(), importerLink->stats()}) {
      sum += stats.bytesSent + stats.bytesReceived + stats.framesReceived;
    }
    return sum;
  }

  Ptr<Entity> root_;
  Session exporter_;
  Session importer_;
  std::uint64_t now_ = 1;

 public:
  Ptr<Dir> dir;
  Ptr<Link> exporterLink;
  Ptr<Link> importerLink;
  std::shared_ptr<MemoryPipe> toImporter;
  std::shared_ptr<MemoryPipe> toExporter;
  std::string exporterClosed;
  std::string importerClosed;
  std::vector<std::string> importerReports;
};

}  // namespace Mox::NboAttrLog::test
