// inventoryctl: mirrors what an inventoryd serves and shows the copy or its changes; shows how the
// server is, and what it has recorded.
#include <poll.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <csignal>
#include <functional>
#include <iostream>
#include <string>

#include "attrlog/wire/ShownText.h"
#include "tools/common/Dump.h"
#include "tools/common/Endpoint.h"
#include "tools/inventoryctl/Captures.h"
#include "tools/inventoryctl/Failure.h"
#include "tools/inventoryctl/Mirror.h"
#include "tools/inventoryctl/Queries.h"
#include "tools/inventoryctl/Shell.h"
#include "tools/inventoryctl/Top.h"
#include "tools/inventoryctl/Watch.h"
#include "transport/SignalSource.h"

namespace {

using Mox::NboAttrLog::SignalSource;
using Mox::NboAttrLog::SocketAddress;

struct Options {
  Tools::Endpoint endpoint;
  double timeoutSeconds = 10;
  bool isJson = false;
  bool isOnce = false;
  bool isWithoutRetry = false;
  std::string path;
  std::vector<std::string> words;
  std::string file;
  Tools::DecodeOptions decode;
  bool isWholeText = false;
  bool isReceived = false;
  std::string statusPath;
  double intervalSeconds = 1;

  std::uint64_t timeoutMs() const { return static_cast<std::uint64_t>(timeoutSeconds * 1000); }
  Tools::DumpForm form() const { return isJson ? Tools::DumpForm::json : Tools::DumpForm::text; }
};

bool isReaderGone() {
  pollfd output{STDOUT_FILENO, POLLOUT, 0};
  return ::poll(&output, 1, 0) == 1 && (output.revents & (POLLERR | POLLHUP)) != 0;
}

/// A reader that has seen enough is no failure.
void flush() {
  std::cout.flush();
  if (std::cout) return;
  if (isReaderGone()) throw Tools::Failure(Tools::exitFine, "");
  throw Tools::Failure(Tools::exitFile, "standard output can't be written");
}

void report(std::string const& line) {
  std::cerr << "inventoryctl: " << Mox::NboAttrLog::shownText(line) << std::endl;
}

SocketAddress addressOf(Options const& options) {
  try {
    return options.endpoint.address();
  } catch (Mox::NboAttrLog::TransportError const& wrong) {
    throw Tools::Failure(Tools::exitUsage, wrong.what());
  }
}

/// A mirror that stops at a signal. `work` is called when it is in step.
void withMirror(Options const& options, bool wantsWrite,
                std::function<void(Tools::Mirror&)> const& work) {
  SignalSource signals{SIGINT, SIGTERM};
  addressOf(options);
  Tools::Mirror mirror({options.endpoint, options.timeoutMs(), wantsWrite});
  mirror.loop().descriptorIs(signals.fd(), [&] {
    if (signals.next() != 0) mirror.stop();
  });
  if (mirror.inStepWait()) work(mirror);
}

/// One command of the shell.
void once(Options const& options, std::string const& verb, bool writes = false) {
  withMirror(options, writes, [&](Tools::Mirror& mirror) {
    Tools::Shell shell(mirror, std::cout, options.isJson);
    std::vector<std::string> words = options.words;
    if (!options.path.empty()) words.insert(words.begin(), options.path);
    shell.run({verb, words});
    flush();
  });
}
void dump(Options const& options) { once(options, "dump"); }
void list(Options const& options) { once(options, "ls"); }
void get(Options const& options) { once(options, "get"); }
void set(Options const& options) { once(options, "set", true); }
void add(Options const& options) { once(options, "add", true); }
void del(Options const& options) { once(options, "del", true); }

void watch(Options const& options) {
  withMirror(options, false, [&](Tools::Mirror& mirror) {
    if (!options.isWithoutRetry) mirror.retriesAreOn(report);
    Tools::Shell shell(mirror, std::cout, options.isJson);
    shell.run(
        {"watch", options.path.empty() ? std::vector<std::string>() : std::vector{options.path}});
    mirror.follow(flush);
  });
}

void converse(Options const& options) {
  withMirror(options, true, [&](Tools::Mirror& mirror) {
    mirror.retriesAreOn(report);
    Tools::Shell shell(mirror, std::cout, options.isJson);
    if (!Tools::converse(mirror, shell, report, flush)) {
      throw Tools::Failure(Tools::exitRefused, "");
    }
  });
}

/// Types are those of this program: no server is asked.
void types(Options const& options) {
  Tools::types(std::cout, options.path, options.form());
  flush();
}

/// For the shell's completion: a server that doesn't answer gives none.
void complete(Options const& options) {
  withMirror(options, false, [&](Tools::Mirror& mirror) {
    Tools::Shell const shell(mirror, std::cout, false);
    for (std::string const& each : shell.completions(options.path, false)) {
      std::cout << each << '\n';
    }
    flush();
  });
}

void decode(Options const& options) {
  Tools::DecodeOptions decode = options.decode;
  if (options.isWholeText) decode.mostText = 0;
  Tools::decode(options.file, decode, std::cout);
  flush();
}

void replay(Options const& options) {
  Mox::Ptr<Mox::Dir> const roots(new Mox::Dir);
  Tools::replay(options.file, options.decode.connection, options.isReceived, **roots);
  Tools::writeDump(std::cout, **roots, options.form());
  flush();
}

void top(Options const& options) {
  SocketAddress address = SocketAddress::unixPath(options.statusPath);
  if (options.statusPath.empty()) {
    address = addressOf(options);
    if (!address.isUnix()) {
      throw Tools::Failure(Tools::exitUsage,
                           "top: --status PATH tells where the server's status "
                           "socket is");
    }
    address.path = Tools::statusPath(address.path);
  }
  SignalSource signals{SIGINT, SIGTERM};
  for (;;) {
    std::string const status = Tools::askStatus(options.endpoint, address, options.timeoutMs());
    std::string const shown = options.isJson ? status : Tools::statusTable(status);
    // A person's terminal is cleared, so that the table stays where it is.
    bool const clears = !options.isOnce && ::isatty(STDOUT_FILENO) == 1;
    std::cout << (clears ? "\x1b[H\x1b[2J" : "") << shown;
    flush();
    pollfd waiting{signals.fd(), POLLIN, 0};
    if (options.isOnce ||
        ::poll(&waiting, 1, static_cast<int>(options.intervalSeconds * 1000)) > 0) {
      return;
    }
  }
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  std::function<void(Options const&)> chosen;
  CLI::App app("Shows and follows what an inventoryd serves.", "inventoryctl");
  options.endpoint.optionsTo(app);
  app.add_option("--server-user", options.endpoint.serverUser,
                 "user that the server of a Unix socket may run as, beside this one and root")
      ->type_name("ID");
  app.add_option("--timeout", options.timeoutSeconds,
                 "seconds that the server may be silent before the copy is in step (default 10)")
      ->type_name("S")
      ->check(CLI::Range(0.001, 1e6));
  app.require_subcommand(0, 1);
  app.footer(
      "Without a command it reads commands from standard input, with line editing at a terminal.");
  app.add_flag("--json", options.isJson, "what those print as JSON");
  auto const command = [&](char const* name, char const* text, void (*run)(Options const&)) {
    CLI::App* const made = app.add_subcommand(name, text);
    made->callback([&chosen, run] { chosen = run; });
    return made;
  };
  auto const json = [&options](CLI::App* to) { to->add_flag("--json", options.isJson, "as JSON"); };
  auto const capture = [&options](CLI::App* to) {
    to->add_option("FILE", options.file,
                   "what inventoryd --capture has recorded, or the bytes of one direction")
        ->required()
        ->type_name("");
    to->add_option("--connection", options.decode.connection, "only the connection of this number")
        ->type_name("N")
        ->check(CLI::PositiveNumber);
  };
  auto const path = [&options](CLI::App* to, char const* text) {
    return to->add_option("PATH", options.path, text)->type_name("");
  };
  json(command("dump", "print the whole tree", dump));
  auto* const listing = command("ls", "print one level of the tree", list);
  path(listing, "an entity or a collection; without it the roots");
  json(listing);
  auto* const getting = command("get", "print a value, or all below an entity", get);
  path(getting, "as dump shows it")->required();
  json(getting);
  auto* const setting = command("set", "change a value", set);
  path(setting, "of a value, or of a member of a collection of values")->required();
  setting->add_option("VALUE", options.words, "in the text form of its type")
      ->required()
      ->type_name("");
  auto* const adding = command("add", "make a child, or a new member of a collection", add);
  path(adding, "of the attribute, with or without [KEY]")->required();
  adding->add_option("ARGUMENT", options.words, "of the constructor, or NAME=ARGUMENT")
      ->type_name("");
  path(command("del", "take a child or a member out", del), "as dump shows it")->required();
  auto* const typing = command("types", "print the types, or the attributes of one", types);
  typing->add_option("TYPE", options.path, "a name, short or qualified")->type_name("");
  json(typing);
  auto* const completing =
      command("complete", "print what may follow the beginning of a path", complete);
  path(completing, "the beginning");
  completing->group("");
  auto* const watching = command("watch", "print each change as it arrives", watch);
  path(watching, "only what lies at or below it");
  json(watching);
  watching->add_flag("--no-retry", options.isWithoutRetry,
                     "end when the connection ends, instead of connecting again");
  auto* const decoding =
      command("decode", "print recorded connections, a line for each frame", decode);
  capture(decoding);
  decoding->add_flag("--headers", options.decode.hasHeaders, "with what the headers hold");
  decoding->add_flag("--whole", options.isWholeText, "with long texts whole");
  auto* const replaying =
      command("replay", "print the tree that a recorded connection makes", replay);
  capture(replaying);
  replaying->add_flag("--received", options.isReceived,
                      "of what the recording process has received, not of what it has sent");
  json(replaying);
  auto* const topping = command("top", "show the server's connections and what it owes them", top);
  json(topping);
  topping->add_flag("--once", options.isOnce, "once, instead of again and again");
  topping->add_option("--interval", options.intervalSeconds, "seconds from one to the next")
      ->type_name("S")
      ->check(CLI::Range(0.1, 86400.0));
  topping
      ->add_option("--status", options.statusPath,
                   "the server's status socket (default: that of its Unix socket)")
      ->type_name("PATH");
  if (int const code = Tools::parseCommandLine(app, argc, argv); code >= 0) return code;
  try {
    SignalSource::ignoreBrokenPipes();
    (chosen ? chosen : converse)(options);
    return Tools::exitFine;
  } catch (Tools::CommandError const& refused) {
    report(refused.what());
    return Tools::exitRefused;
  } catch (Tools::Failure const& failure) {
    // What has arrived is shown before the reason why no more does.
    std::cout.flush();
    if (*failure.what()) report(failure.what());
    return failure.code();
  } catch (std::exception const& failure) {
    report(failure.what());
    return Tools::exitFile;
  }
}
