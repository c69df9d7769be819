// inventoryctl: mirrors what an inventoryd serves, and shows the copy or its changes.
#include <poll.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <csignal>
#include <iostream>
#include <string>

#include "tools/common/Dump.h"
#include "tools/common/Endpoint.h"
#include "tools/inventoryctl/Mirror.h"
#include "tools/inventoryctl/Watch.h"
#include "transport/SignalSource.h"

namespace {

struct Options {
  Tools::Endpoint endpoint;
  double timeoutSeconds = 10;
  bool isJson = false;
  bool isWatch = false;
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
  throw Tools::Failure(Tools::exitOutput, "standard output can't be written");
}

void run(Options const& options) {
  Mox::NboAttrLog::SocketAddress address;
  try {
    address = options.endpoint.address();
  } catch (Mox::NboAttrLog::TransportError const& wrong) {
    throw Tools::Failure(Tools::exitUsage, wrong.what());
  }
  Mox::NboAttrLog::SignalSource signals{SIGINT, SIGTERM};
  Mox::NboAttrLog::SignalSource::ignoreBrokenPipes();
  Tools::Mirror mirror(address, static_cast<std::uint64_t>(options.timeoutSeconds * 1000));
  mirror.loop().descriptorIs(signals.fd(), [&] {
    if (signals.next() != 0) mirror.stop();
  });
  if (!mirror.inStepWait()) return;
  if (!options.isWatch) {
    Tools::writeDump(std::cout, mirror.roots(),
                     options.isJson ? Tools::DumpForm::json : Tools::DumpForm::text);
    flush();
    return;
  }
  Tools::Watch watch(mirror.roots(), options.isJson,
                     [](std::string const& line) { std::cout << line << '\n'; });
  mirror.follow([&watch] {
    watch.rootsCheck();
    flush();
  });
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  CLI::App app("Mirrors what an inventoryd serves.", "inventoryctl");
  options.endpoint.optionsTo(app);
  app.add_option("--timeout", options.timeoutSeconds,
                 "seconds that the server may be silent before the copy is in step (default 10)")
      ->type_name("S")
      ->check(CLI::Range(0.001, 1e6));
  app.require_subcommand(1);
  auto* const dump = app.add_subcommand("dump", "print the whole tree");
  auto* const watch = app.add_subcommand("watch", "print each change as it arrives");
  for (auto* const command : {dump, watch}) {
    command->add_flag("--json", options.isJson, "as JSON");
  }
  if (int const code = Tools::parseCommandLine(app, argc, argv); code >= 0) return code;
  options.isWatch = watch->parsed();
  try {
    run(options);
    return Tools::exitFine;
  } catch (Tools::Failure const& failure) {
    // What has arrived is shown before the reason why no more does.
    std::cout.flush();
    if (*failure.what()) std::cerr << "inventoryctl: " << failure.what() << std::endl;
    return failure.code();
  } catch (std::exception const& failure) {
    std::cerr << "inventoryctl: " << failure.what() << std::endl;
    return Tools::exitOutput;
  }
}
