// One end of a connection between two versions of a schema; built once with each.
//   peer serve SOCKET     shows a tree, and changes all of it at each line of standard input
//   peer mirror SOCKET    prints what both versions know of it when in step, and after each change
#include <Greenhouse.h>

#include <cstdlib>
#include <cstring>
#include <iostream>
#include <string>

#include "transport/Dialer.h"
#include "transport/PollLoop.h"

namespace {

using namespace Mox::NboAttrLog;
using Greenhouse::House;

/// Sets everything that this version knows; `turn` makes the values differ.
void fill(House& house, unsigned int turn) {
  auto const text = Mox::format("turn %u", turn);
#ifdef IS_NEXT
  for (unsigned char id : {1, 2}) house.lampIs(id)->hoursIs(static_cast<unsigned short>(turn));
  house.doorIs(static_cast<unsigned char>(turn));
  auto const watering = turn % 2 != 0 ? Greenhouse::flood : Greenhouse::drip;
  house.remarkIs(text, "a remark");
  house.remarkIs("roof", text);
#else
  auto const watering = turn % 2 != 0 ? Greenhouse::spray : Greenhouse::drip;
  house.noteIs(text, "a remark");
  house.noteIs("roof", text);
#endif
  Mox::Ptr<Greenhouse::Bed> const bed = house.bedIs(Greenhouse::BedId(3), "tomatoes");
  bed->wateringIs(watering);
  bed->waterIs(6, static_cast<unsigned short>(turn));
#ifdef IS_NEXT
  bed->shadeIs(turn % 2 != 0);
  bed->diaryIs(text);
  bed->feedIs(static_cast<unsigned char>(turn), 7);
#endif
  house.bedIs(Greenhouse::BedId(static_cast<unsigned char>(10 + turn)), "peas");
  house.bedDel(static_cast<unsigned char>(9 + turn));
  house.stationIs("mast")->windLimitIs(static_cast<unsigned short>(50 + turn));
  house.temperatureIs(turn);  // Last: it tells the mirror that the turn is through.
}

/// What both versions know.
void print(House const& house) {
  std::cout << "turn " << house.temperature() << ", wind " << house.station()->windLimit();
  for (unsigned char id = 0; id <= 40; ++id) {
    Mox::Ptr<Greenhouse::Bed> const bed = house.bed(id);
    if (!bed) continue;
    std::cout << ", bed " << +id << " " << bed->crop().charPtr() << " "
              << static_cast<int>(bed->watering()) << " " << bed->water(6);
  }
#ifdef IS_NEXT
  std::cout << ", roof " << house.remark("roof").charPtr() << ", " << house.remarkCount();
#else
  std::cout << ", roof " << house.note("roof").charPtr() << ", " << house.noteCount();
#endif
  std::cout << std::endl;
}

class Printer : public House::Notifiee {
 public:
  void onTemperature() override { print(**notifier()); }
};

void report(std::string const& line) { std::cerr << line << std::endl; }

int serve(Session& session, PollLoop& loop, SocketAddress const& address) {
  Mox::Ptr<House> const house(new House("house1"));
  unsigned int turn = 1;
  fill(**house, turn);
  session.exportIs(house);
  session.exportsDone();
  Listener listener(address);
  loop.listenerIs(listener, session);
  loop.descriptorIs(0, [&] {
    std::string line;
    if (std::getline(std::cin, line)) {
      fill(**house, ++turn);
    } else {
      loop.stop();
    }
  });
  loop.run();
  return 0;
}

int mirror(Session& session, PollLoop& loop, SocketAddress const& address) {
  Mox::Ptr<Mox::Dir> const roots(new Mox::Dir);
  session.importDirIs(roots);
  bool isLost = false;
  Dialer dialer(loop, session, [&] { return SocketLink::connect(address, 5000); });
  dialer.onLost([&](Link const* link, std::string const& why, std::uint64_t) {
    if (link == nullptr) return;  // The server isn't there yet.
    report("closed: " + why);
    dialer.stop();
    isLost = true;
    loop.stop();
  });
  dialer.start();
  while (!isLost && !(dialer.link() && dialer.link()->demuxer().inStep())) loop.turn();
  Mox::Ptr<Mox::Dir::Entry> const entry = roots->entry("house1");
  if (!entry) return 1;
  auto const house = Mox::ptrCast<House>(entry->target());
  print(**house);
  Mox::Ptr<Printer> const printer(new Printer);
  printer->notifierIs(house);
  printer->isRegisteredNotifieeIs(true);
  loop.run();
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  LinkOptions options;
  options.schemaHash = Greenhouse::schemaHash;
  options.schemaStrict = std::getenv("STRICT") != nullptr;
  Session session("peer", options);
  session.onReport(report);
  PollLoop loop;
  loop.sessionIs(session);
  auto const address = SocketAddress::unixPath(argv[2]);
  return std::strcmp(argv[1], "serve") == 0 ? serve(session, loop, address)
                                            : mirror(session, loop, address);
}
