// The greenhouse's own process: has the tree, shows it on a socket, and reads the thermometer (here
// from standard input, one number a line).
#include <Greenhouse.h>
#include <transport/PollLoop.h>
#include <unistd.h>

#include <iostream>

using namespace Mox::NboAttrLog;

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: station SOCKET\n";
    return 2;
  }
  Mox::Ptr<Greenhouse::House> house(new Greenhouse::House("house1"));
  house->bedIs(Greenhouse::BedId(3), "tomatoes")->wateringIs(Greenhouse::drip);
  house->bed(3)->waterIs(6, 40);
  house->stationIs("roof")->humidityIs(Greenhouse::Humidity(615));
  house->noteIs("roof", "closed in winter");

  LinkOptions options;
  options.schemaHash = Greenhouse::schemaHash;
  Session session("station", options);
  session.exportIs(house);
  session.exportsDone();

  Listener listener(SocketAddress::unixPath(argv[1]));
  PollLoop loop;
  loop.sessionIs(session);
  loop.listenerIs(listener, session);
  loop.descriptorIs(STDIN_FILENO, [&] {
    double degrees = 0;
    if (std::cin >> degrees) {
      house->temperatureIs(degrees);
    } else {
      loop.stop();
    }
  });
  loop.run();
}
