// A client that knows no class of the model: it makes, reads, changes, walks and watches by names
// and ids alone. See docs/generic-interface.md.
#include <InvArad.h>

#include <iostream>

#include "generic/Text.h"
#include "values/EntityPath.h"

using Mox::AttributeWalk;
using Mox::AttributeWatch;
using Mox::GenericIf;
using Mox::Ptr;
using Op = GenericIf::AttributeOp;

int main() {
  // A root is made of a list of constructor arguments; its type is found by name.
  Mox::MoxType const* const type = Mox::MoxType::typeNode("Inventory::Arad::AradSlice");
  Ptr<GenericIf const> const arguments(new GenericIf::List_({Mox::carrier(Mox::Name("slice"))}));
  Ptr<GenericIf> const slice = type->genericIf(arguments.get(), false);
  Mox::EntityRoot const root(entityOf(slice));

  // By id: the key and the other arguments of a new child travel in a list.
  Mox::AttributeId const fap = slice->attributeId("fap");
  Ptr<GenericIf> const chip =
      slice->attributeOp({fap, Op::attrSet}, nullptr,
                         new GenericIf::List_({Mox::carrier(Mox::Name("fap0")), Mox::carrier(7u)}));
  std::cout << chip->strRep() << " is a " << chip->type()->qualifiedName() << "\n";

  // By path and text, as a tool does it.
  Mox::NamedText const port[] = {{"ethPortId", "17"}};
  attributeAdd(Mox::attributePlace("slice/fap[fap0]/port"), port);
  AttributeWatch const watch(
      chip, [](GenericIf& of, Mox::AttributeId id, Ptr<GenericIf const> const& key) {
        std::cout << "changed: " << of.attributeString(id);
        if (key) std::cout << "[" << key->strRep() << "]";
        std::cout << "\n";
      });
  attributeSet(Mox::attributePlace("slice/fap[fap0].description"), "'first chip'");
  attributeSet(Mox::attributePlace("slice/fap[fap0].ddrTuneSetting['rate']"), "'2400'");

  // Everything that the chip has, without knowing what that is.
  for (Mox::MoxAttr const* attribute : Mox::contentOf(**chip->type())) {
    if (attribute->keyType()) {
      for (AttributeWalk at(chip, attribute->id()); at; ++at) {
        std::cout << attribute->name() << "[" << keyText(at.key()) << "] " << at.value()->strRep()
                  << "\n";
      }
    } else if (attribute->name() == "description" || attribute->name() == "fapType") {
      std::cout << attribute->name() << " "
                << chip->attributeOp({attribute->id(), Op::attrGet}, nullptr, nullptr)->strRep()
                << "\n";
    }
  }

  // What is refused is told, and nothing has changed.
  Ptr<GenericIf> const view = Mox::genericOf(entityOf(chip), true);
  auto const refused = [](auto const& action) {
    try {
      action();
    } catch (Mox::Exception const& failure) {
      std::cout << "refused: " << failure.what() << "\n";
    }
  };
  refused([&] { view->attributeOp({258, Op::attrSet}, nullptr, nullptr); });
  refused([&] { chip->attributeOp({386, Op::attrSet}, nullptr, Mox::carrier(8u)); });
  refused([&] { attributeSet(Mox::attributePlace("slice/fap[fap0]/port[17].xlgeId"), "99"); });
}
