// inventoryd: builds the inventory of a board from property files and serves it to any number of
// mirrors, or prints it.
#include <InvArad.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <csignal>
#include <iostream>
#include <optional>
#include <string>
#include <vector>

#include "Mox/Dir.h"
#include "attrlog/wire/ShownText.h"
#include "tools/board/BoardLoader.h"
#include "tools/board/PropertyFile.h"
#include "tools/common/Dump.h"
#include "tools/common/Endpoint.h"
#include "tools/common/TreeCommands.h"
#include "tools/inventoryd/CommandReader.h"
#include "tools/inventoryd/Server.h"
#include "transport/SignalSource.h"

namespace {

using namespace Mox::NboAttrLog;

struct Options {
  std::vector<std::string> files;
  std::string chip;
  bool isStrict = false;
  bool isDump = false;
  bool isJson = false;
  bool readsCommands = false;
  Tools::Endpoint endpoint;
  std::vector<std::string> listens;
  Tools::ServerOptions server;
};

void report(std::string const& line) {
  std::cerr << "inventoryd: " << shownText(line) << std::endl;
}

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

/// `--listen`, or else the one place of `--unix` or `--tcp`, read-only.
Tools::ServerOptions serverOptions(Options const& options) {
  Tools::ServerOptions server = options.server;
  for (std::string const& text : options.listens) {
    server.places.push_back(Tools::ListenPlace::of(text));
  }
  if (server.places.empty()) {
    if (options.endpoint.tcp.empty() && options.endpoint.unixPath.empty()) {
      Tools::defaultDirectoryIs();
    }
    server.places.push_back({options.endpoint.address(), false});
  }
  SocketAddress const& first = server.places.front().address;
  if (server.statusPath.empty() && first.isUnix()) {
    server.statusPath = Tools::statusPath(first.path);
  }
  return server;
}

void serve(Options const& options, Mox::Dir const& roots, Mox::Ptr<Mox::Entity> const& slice) {
  SignalSource signals{SIGINT, SIGTERM, SIGHUP};
  SignalSource::ignoreBrokenPipes();
  Tools::KnownRoots const known(roots);
  Tools::Server server(serverOptions(options), slice, report);
  PollLoop& loop = server.loop();
  loop.descriptorIs(signals.fd(), [&] {
    if (signals.next() != 0) loop.stop();
  });
  std::optional<Tools::CommandReader> commands;
  if (options.readsCommands) commands.emplace(loop, report);
  loop.run();
}

int run(Options const& options) {
  Mox::Ptr<Mox::Dir> const roots(new Mox::Dir);
  Mox::Ptr<Inventory::Arad::AradSlice> const slice(new Inventory::Arad::AradSlice("slice"));
  roots->entryIs(slice->name(), slice);
  if (!load(options, slice)) return 1;
  if (!options.isDump) {
    serve(options, **roots, slice);
    return 0;
  }
  Tools::writeDump(std::cout, **roots,
                   options.isJson ? Tools::DumpForm::json : Tools::DumpForm::text);
  std::cout.flush();
  if (std::cout) return 0;
  report("standard output can't be written");
  return 1;
}

/// Reads "0660".
std::string readMode(std::string const& text, unsigned int& mode) {
  bool const isOctal = text.find_first_not_of("01234567") == std::string::npos;
  if (text.empty() || text.size() > 4 || !isOctal) return "'" + text + "' is no mode such as 0660";
  mode = static_cast<unsigned int>(std::stoul(text, nullptr, 8));
  return mode <= 0777 ? "" : "'" + text + "' is more than 0777";
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  std::string mode;
  CLI::App app("Builds a board's inventory from property files and serves it.", "inventoryd");
  app.add_option("FILE", options.files, "property files")->required()->type_name("");
  app.add_option("--chip", options.chip, "the chip whose lines count")->type_name("ID");
  app.add_flag("--strict", options.isStrict, "serve nothing if a line was refused");
  auto* const dump = app.add_flag("--dump", options.isDump, "print the tree and exit");
  app.add_flag("--json", options.isJson, "print it as JSON")->needs(dump);
  options.endpoint.optionsTo(app);
  app.add_option("--listen", options.listens,
                 "unix:PATH or tcp:HOST:PORT, with ,rw behind it if peers may write there; may be "
                 "given several times instead of --unix and --tcp")
      ->type_name("ADDRESS[,rw]")
      ->excludes(app.get_option("--unix"))
      ->excludes(app.get_option("--tcp"))
      ->excludes(dump)
      ->allow_extra_args(false);
  app.add_option("--mode", mode, "permissions of the Unix sockets (default 0600)")
      ->type_name("OCTAL")
      ->check([&options](std::string const& text) { return readMode(text, options.server.mode); })
      ->excludes(dump);
  app.add_option("--status", options.server.statusPath,
                 "Unix socket for inventoryctl top (default: the first Unix socket's path and "
                 ".status)")
      ->type_name("PATH")
      ->excludes(dump);
  app.add_option("--capture", options.server.capturePath,
                 "record every connection's bytes in a file, which is begun anew")
      ->type_name("FILE")
      ->excludes(dump);
  app.add_option("--buffer", options.server.buffer, "bytes kept for each peer")
      ->type_name("BYTES")
      ->check(CLI::Range(leastCapacity, std::size_t{1} << 30))
      ->excludes(dump);
  app.add_option("--max-connections", options.server.maxConnections,
                 "connections at a time (default 1000); when there are more, those of the user or "
                 "host that has the most make room for others")
      ->type_name("N")
      ->check(CLI::PositiveNumber)
      ->excludes(dump);
  app.add_flag("--stdin", options.readsCommands,
               "read commands: set PATH.attr VALUE, add PATH/attr ARG..., del PATH, quit")
      ->excludes(dump);
  if (int const code = Tools::parseCommandLine(app, argc, argv); code >= 0) return code;
  try {
    return run(options);
  } catch (std::exception const& failure) {
    report(failure.what());
    return 1;
  }
}
