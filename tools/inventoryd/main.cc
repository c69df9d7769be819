// inventoryd: builds the inventory of a board from property files and serves it to any number of
// mirrors, or prints it.
#include <InvArad.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <csignal>
#include <iostream>
#include <string>
#include <vector>

#include "Mox/Dir.h"
#include "attrlog/Session.h"
#include "tools/board/BoardLoader.h"
#include "tools/board/PropertyFile.h"
#include "tools/common/Dump.h"
#include "tools/common/Endpoint.h"
#include "tools/common/TreeCommands.h"
#include "transport/PollLoop.h"
#include "transport/SignalSource.h"
#include "transport/SocketLink.h"
#include "values/EntityPath.h"

namespace {

using namespace Mox::NboAttrLog;

struct Options {
  std::vector<std::string> files;
  std::string chip;
  bool isStrict = false;
  bool isDump = false;
  bool isJson = false;
  bool readsCommands = false;
  std::size_t buffer = defaultCapacity;
  Tools::Endpoint endpoint;
};

void report(std::string const& line) { std::cerr << "inventoryd: " << line << std::endl; }

/// Reads the files into `slice`; false when they may not be served.
bool load(Options const& options, Mox::Ptr<Inventory::Arad::AradSlice> const& slice) {
  std::vector<Board::PropertyFile> files;
  for (std::string const& path : options.files) files.push_back(Board::readPropertyFile(path));
  Board::BoardSummary const summary = Board::loadBoard(files, options.chip, slice);
  std::cerr << Board::summaryText(summary) << std::flush;
  if (!options.isStrict || summary.refusals.empty()) return true;
  report(std::to_string(summary.refusals.size()) + " lines refused, nothing served");
  return false;
}

/// Commands from standard input, line by line as they come.
class CommandReader {
 public:
  static constexpr std::size_t maxLine = 1u << 20;

  explicit CommandReader(PollLoop& loop) : loop_(loop) {
    loop_.descriptorIs(STDIN_FILENO, [this] { readSome(); });
  }
  ~CommandReader() { loop_.descriptorDel(STDIN_FILENO); }

 private:
  void readSome() {
    char bytes[65536];
    ssize_t const count = ::read(STDIN_FILENO, bytes, sizeof bytes);
    if (count < 0 && errno == EINTR) return;
    if (count <= 0) {
      loop_.descriptorDel(STDIN_FILENO);
      if (!line_.empty()) run();
      return;
    }
    for (char const c : std::string_view(bytes, static_cast<std::size_t>(count))) {
      if (c == '\n') {
        if (!run()) return;
      } else if (line_.size() <= maxLine) {
        line_ += c;
      }
    }
  }
  /// False when nothing more is to be read.
  bool run() {
    ++number_;
    std::string const line = std::exchange(line_, {});
    if (line == "quit" || line == "quit\r") {
      loop_.stop();
      return false;
    }
    try {
      if (line.size() > maxLine) throw Tools::CommandError("the line is too long");
      Tools::runCommand(line);
    } catch (Tools::CommandError const& refused) {
      report("standard input, line " + std::to_string(number_) + ": " + refused.what());
    }
    return true;
  }

  PollLoop& loop_;
  std::string line_;
  unsigned long number_ = 0;
};

void serve(Options const& options, Mox::Ptr<Inventory::Arad::AradSlice> const& slice) {
  SignalSource signals{SIGINT, SIGTERM, SIGHUP};
  SignalSource::ignoreBrokenPipes();
  Listener listener(options.endpoint.address());

  LinkOptions link;
  link.schemaHash = InvArad::schemaHash;
  link.outCapacity = options.buffer;
  Session session("inventoryd", link);
  session.onReport(report);
  session.exportIs(slice);
  session.exportsDone();

  PollLoop loop;
  loop.onReport(report);
  loop.sessionIs(session);
  loop.listenerIs(listener, session);
  loop.descriptorIs(signals.fd(), [&] {
    if (signals.next() != 0) loop.stop();
  });
  Mox::EntityRoot const root(slice);
  Tools::entityPathsAreByTable();
  std::optional<CommandReader> commands;
  if (options.readsCommands) commands.emplace(loop);

  report("listening on " + listener.address().text());
  loop.run();
  session.onReport(nullptr);
  session.closeIs("the server ends");
  session.service(loop.nowMs());
}

int run(Options const& options) {
  Mox::Ptr<Mox::Dir> const roots(new Mox::Dir);
  Mox::Ptr<Inventory::Arad::AradSlice> const slice(new Inventory::Arad::AradSlice("slice"));
  roots->entryIs(slice->name(), slice);
  if (!load(options, slice)) return 1;
  if (!options.isDump) {
    serve(options, slice);
    return 0;
  }
  Tools::writeDump(std::cout, **roots,
                   options.isJson ? Tools::DumpForm::json : Tools::DumpForm::text);
  std::cout.flush();
  if (std::cout) return 0;
  report("standard output can't be written");
  return 1;
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  CLI::App app("Builds a board's inventory from property files and serves it.", "inventoryd");
  app.add_option("FILE", options.files, "property files")->required()->type_name("");
  app.add_option("--chip", options.chip, "the chip whose lines count")->type_name("ID");
  app.add_flag("--strict", options.isStrict, "serve nothing if a line was refused");
  auto* const dump = app.add_flag("--dump", options.isDump, "print the tree and exit");
  app.add_flag("--json", options.isJson, "print it as JSON")->needs(dump);
  app.add_option("--buffer", options.buffer, "bytes kept for each peer")
      ->type_name("BYTES")
      ->check(CLI::Range(leastCapacity, std::size_t{1} << 30))
      ->excludes(dump);
  app.add_flag("--stdin", options.readsCommands,
               "read commands: set PATH.attr VALUE, add PATH/attr ARG..., del PATH, quit")
      ->excludes(dump);
  options.endpoint.optionsTo(app);
  if (int const code = Tools::parseCommandLine(app, argc, argv); code >= 0) return code;
  try {
    return run(options);
  } catch (std::exception const& failure) {
    report(failure.what());
    return 1;
  }
}
