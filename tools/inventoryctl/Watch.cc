// The lines.
#include "tools/inventoryctl/Watch.h"

#include <string_view>
#include <utility>

#include "tools/common/Json.h"
#include "tools/common/Tree.h"

namespace Tools {
namespace {

std::string pathOf(Mox::TreeWatch::Node const& node) {
  return withoutControlBytes(toStd(node.path()));
}

}  // namespace

Watch::Watch(Mox::Dir& roots, bool isJson, Write write)
    : isJson_(isJson), write_(std::move(write)), tree_(Mox::Ptr<Mox::Entity>(&roots), *this) {}

void Watch::handleEntity(Node const& node) {
  writeEntity("created", node);
  for (Mox::MoxAttr const* attribute : Mox::contentOf(*node.entity()->fwkType())) {
    if (Mox::attributeForm(*attribute) != Mox::AttributeForm::constant) continue;
    Mox::String8 const value(Tools::Node(node.entity()).value(*attribute));
    writeValue(node, *attribute, nullptr, nullptr, &value);
  }
}

void Watch::handleEntityDel(Node const& node) {
  if (!node.parent() || !node.parent()->isGone()) writeEntity("deleted", node);
}

void Watch::handleChange(Node const& node, Mox::TreeChange const& change) {
  std::string const key = toStd(change.keyText);
  writeValue(node, change.attribute, change.key ? &key : nullptr, change.before, change.now);
}

bool Watch::isWanted(std::string const& path) const {
  if (!path.starts_with(only_)) return false;
  constexpr std::string_view separators = "/.[";
  return only_.empty() || path.size() == only_.size() ||
         separators.find(path[only_.size()]) != std::string_view::npos;
}

void Watch::writeEntity(char const* event, Node const& node) {
  std::string const path = pathOf(node);
  if (!isWanted(path)) return;
  bool const isCreated = std::string_view(event) == "created";
  if (!isJson_) {
    write_(std::string(event) + " " + path + (isCreated ? ": " + titleOf(**node.entity()) : ""));
    return;
  }
  std::string line = "{\"event\": " + jsonText(event) + ", \"entity\": " + jsonText(path);
  if (isCreated) {
    line += ", \"type\": " + jsonText(toStd(node.entity()->fwkType()->qualifiedName())) +
            ", \"name\": " + jsonText(toStd(node.entity()->name()));
  }
  write_(line + "}");
}

void Watch::writeValue(Node const& node, Mox::MoxAttr const& attribute, std::string const* key,
                       Mox::String8 const* before, Mox::String8 const* now) {
  std::string const path = attributePath(pathOf(node), attribute, key);
  if (!isWanted(path)) return;
  char const* const event = before && now ? "changed" : now ? "added" : "removed";
  if (!isJson_) {
    write_(std::string(event) + " " + path + ": " + (before ? toStd(*before) : "") +
           (before && now ? " -> " : "") + (now ? toStd(*now) : ""));
    return;
  }
  std::string line = "{\"event\": " + jsonText(event) + ", \"entity\": " + jsonText(pathOf(node)) +
                     ", \"attribute\": " + jsonText(toStd(attribute.name()));
  if (key) line += ", \"key\": " + jsonText(plainKey(*key, attribute));
  if (before) line += ", \"old\": " + jsonValue(toStd(*before), attribute);
  if (now) line += ", \"new\": " + jsonValue(toStd(*now), attribute);
  write_(line + "}");
}

}  // namespace Tools
