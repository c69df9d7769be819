// Writes what the fuzzers start from: `fuzz_corpus DIR` makes DIR/frames, DIR/greeting, DIR/stream
// and DIR/property_file.
#include <InvArad.h>

#include <filesystem>
#include <fstream>
#include <iostream>

#include "simulation/HostilePeer.h"

namespace {

namespace Log = Mox::NboAttrLog;

void write(std::filesystem::path const& directory, std::string const& name,
           std::string const& bytes) {
  std::filesystem::create_directories(directory);
  std::ofstream(directory / name, std::ios::binary) << bytes;
}

}  // namespace

int main(int count, char** arguments) {
  if (count != 2) {
    std::cerr << "usage: fuzz_corpus DIR\n";
    return 2;
  }
  std::filesystem::path const to = arguments[1];
  for (unsigned char role : {0, 2, 3}) {
    for (unsigned int seed = 1; seed <= 8; ++seed) {
      std::string const stream = Mox::Simulation::recording(*Inventory::Arad::AradSlice::_fwkType(),
                                                            role, seed, seed * 4, 200);
      auto const* const bytes = reinterpret_cast<unsigned char const*>(stream.data());
      std::size_t const greeting = 1 + Log::getBytes(bytes + 9, 2);
      std::string const name = std::to_string(role) + "_" + std::to_string(seed);
      write(to / "stream", name, stream);
      write(to / "frames", name, stream.substr(greeting));
      write(to / "greeting", name, stream.substr(0, greeting + 60));
    }
  }
  write(
      to / "property_file", "forms",
      "# a comment\nname=value\r\nname.0=1 # behind\n a_b.Chip1 = x y \n\n=\nx\n.=\nname.1.2=3\n");
}
