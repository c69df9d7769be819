#include "simulation/TreeText.h"

#include <map>

#include "generic/AttributeWalk.h"
#include "generic/Text.h"

namespace Mox::Simulation {
namespace {

void add(std::string& text, Ptr<GenericIf> const& object, std::string const& path);

/// A value, a reference or an owned entity; nothing for a child that isn't there.
void addContent(std::string& text, MoxAttr const& attribute, Ptr<GenericIf> const& content,
                std::string const& place) {
  AttributeForm const form = attributeForm(attribute);
  if (form != AttributeForm::child && form != AttributeForm::children) {
    text += place + "=" + std::string(content->strRep().view()) + "\n";
  } else if (Ptr<Entity> const child = entityOf(content)) {
    text += place + " name " + std::string(child->name().view()) + "\n";
    add(text, content, place);
  }
}

void add(std::string& text, Ptr<GenericIf> const& object, std::string const& path) {
  text += path + "\n";
  for (MoxAttr const* attribute : contentOf(**object->type())) {
    std::string const place = path + "." + std::string(attribute->name().view());
    if (!attribute->keyType()) {
      addContent(
          text, *attribute,
          object->attributeOp({attribute->id(), GenericIf::AttributeOp::attrGet}, nullptr, nullptr),
          place);
      continue;
    }
    std::map<std::string, Ptr<GenericIf>> members;
    for (AttributeWalk at(object, attribute->id()); at; ++at) {
      members.emplace(keyText(at.key()).view(), at.value());
    }
    for (auto const& [key, member] : members) {
      addContent(text, *attribute, member, memberPlace(place, key));
    }
  }
}

}  // namespace

std::string memberPlace(std::string const& place, std::string const& key) {
  return place + "[" + key + "]";
}

std::string treeText(Ptr<Entity> const& root) {
  std::string text;
  if (root) add(text, genericOf(root, true), "root");
  return text;
}

}  // namespace Mox::Simulation
