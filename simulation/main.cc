// The model comes with the library that this program is linked to.
#include "simulation/Program.h"

int main(int argc, char** argv) { return Mox::Simulation::program(argc, argv); }
