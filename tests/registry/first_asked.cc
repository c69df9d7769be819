// Asks for the type that FIRST_TYPE names before any library of the model has been initialised, and
// then prints the reactor's trace. With REACTOR=late the reactor isn't ready at first.
#include <cstring>
#include <iostream>

#include "InvArad.h"
#include "registry/IntrospectionReactor.h"

namespace {

using namespace Inventory::Arad;
using Mox::IntrospectionReactor;

struct Type {
  char const* name;
  Mox::MoxType* (*access)();
};
constexpr Type types[] = {
    {"SerdesCoreType", &_fwkType_SerdesCoreType},
    {"Qsgmii", &Qsgmii::_fwkType},
    {"Arad", &Arad::_fwkType},
    {"AradSlice", &AradSlice::_fwkType},
};

bool isLate = false;
Mox::MoxType* first = nullptr;

void askFirst(int, char**, char** environment) {
  // The C library doesn't know its environment yet.
  char const* wanted = "";
  for (; *environment; ++environment) {
    if (std::strcmp(*environment, "REACTOR=late") == 0) isLate = true;
    if (std::strncmp(*environment, "FIRST_TYPE=", 11) == 0) wanted = *environment + 11;
  }
  if (isLate) IntrospectionReactor::global()->isReadyIs(false);
  for (Type const& type : types) {
    if (std::strcmp(type.name, wanted) == 0) first = type.access();
  }
}
// Runs before the initialisers of every library.
[[gnu::section(".preinit_array"), gnu::used]] void (*const atFirst)(int, char**, char**) = askFirst;

}  // namespace

int main() {
  auto* const reactor = dynamic_cast<Mox::RecordingReactor*>(IntrospectionReactor::global().get());
  if (!first || !reactor) return 1;
  if (isLate) {
    if (!reactor->types().empty()) return 2;
    reactor->isReadyIs(true);
  }
  unsigned int attributes = 0;
  for (Type const& type : types) {
    if (type.access() == first) std::cout << "first " << type.name << "\n";
  }
  for (Mox::MoxType const* type : Mox::MoxType::typeNodes())
    attributes += type->attributeQ().size();
  std::cout << attributes << " attributes\n" << reactor->trace();
}
