// The display at the door, a process of its own: mirrors the greenhouse's tree and prints each new
// temperature, until the station ends.
#include <Greenhouse.h>
#include <transport/PollLoop.h>

#include <iostream>

using namespace Mox::NboAttrLog;
using Greenhouse::House;

namespace {

class Thermometer : public House::Notifiee {
 public:
  void onTemperature() override { std::cout << notifier()->temperature() << std::endl; }
};

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: display SOCKET\n";
    return 2;
  }
  LinkOptions options;
  options.schemaHash = Greenhouse::schemaHash;
  Mox::Ptr<Mox::Dir> roots(new Mox::Dir);
  Session session("display", options);
  session.importDirIs(roots);
  PollLoop loop;
  session.onClosed([&](Link&, std::string const&) { loop.stop(); });
  loop.sessionIs(session);
  Mox::Ptr<Link> link = session.linkIs(SocketLink::connect(SocketAddress::unixPath(argv[1]), 5000));
  while (!link->demuxer().inStep() && link->state() != Link::State::closed) loop.turn();

  Mox::Ptr<Mox::Dir::Entry> entry = roots->entry("house1");
  if (!entry) {
    std::cerr << "display: no house there: " << link->error() << "\n";
    return 1;
  }
  auto house = Mox::ptrCast<House>(entry->target());
  std::cout << house->bed(3)->crop().charPtr() << ", "
            << Greenhouse::stringValue(house->bed(3)->watering()).charPtr() << ", "
            << house->bed(3)->water(6) << " l at 6, "
            << valueToStrep(house->station()->humidity()).charPtr() << " % humidity\n"
            << house->temperature() << std::endl;
  Mox::Ptr<Thermometer> thermometer(new Thermometer);
  thermometer->notifierIs(house);
  thermometer->isRegisteredNotifieeIs(true);
  loop.run();
}
