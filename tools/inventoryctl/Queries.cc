// Reads the tree and the registry.
#include "tools/inventoryctl/Queries.h"

#include <map>
#include <nlohmann/json.hpp>
#include <utility>
#include <vector>

#include "tools/common/Json.h"

namespace Tools {
namespace {

using Json = nlohmann::ordered_json;
using Mox::Entity;
using Mox::MoxAttr;
using Mox::MoxType;
using Mox::Ptr;

void write(std::ostream& to, Json const& json) {
  to << json.dump(2, ' ', false, Json::error_handler_t::replace) << '\n';
}

/// One line of a list: what stands at a path, as text and as JSON.
struct Entry {
  std::string path;
  std::string text;  ///< behind the path
  Json json;
};

Json entityJson(Entity const& entity) {
  return {{"type", toStd(entity.fwkType()->qualifiedName())}, {"name", toStd(entity.name())}};
}
Entry entityEntry(std::string const& path, Entity const& entity) {
  return {path, ": " + titleOf(entity), entityJson(entity)};
}
Entry valueEntry(std::string const& path, std::string const& value, MoxAttr const& attribute) {
  return {path, " = " + value, Json::parse(jsonValue(value, attribute))};
}
Entry memberEntry(std::string const& at, MoxAttr const& attribute, Member const& member) {
  std::string const path = attributePath(at, attribute, &member.key);
  return member.child ? entityEntry(path, **member.child)
                      : valueEntry(path, member.value, attribute);
}

Entry attributeEntry(std::string const& at, Node const& node, MoxAttr const& attribute) {
  std::string const path = attributePath(at, attribute, nullptr);
  if (isCollection(attribute)) {
    std::size_t const count = node.count(attribute);
    return {path, ": collection of " + std::to_string(count), Json::object({{"count", count}})};
  }
  if (!ownsEntities(attribute)) return valueEntry(path, node.value(attribute), attribute);
  Ptr<Entity> const child = node.child(attribute);
  return child ? entityEntry(path, **child) : Entry{path, ": none", nullptr};
}

std::vector<Entry> entriesOf(Mox::Dir const& roots, std::string const& path) {
  std::vector<Entry> entries;
  if (path.empty()) {
    for (Ptr<Entity> const& root : rootsOf(roots)) {
      entries.push_back(entityEntry(withoutControlBytes(toStd(root->name())), **root));
    }
    return entries;
  }
  Place const place = placeOf(path);
  std::string const& at = place.entityPath;
  Node const node(place.entity);
  if (!place.attribute) {
    entries.push_back(entityEntry(at, **place.entity));
    for (MoxAttr const* each : node.attributes()) {
      entries.push_back(attributeEntry(at, node, *each));
    }
  } else if (place.key) {
    entries.push_back(memberEntry(at, *place.attribute, *node.member(*place.attribute, place.key)));
  } else if (isCollection(*place.attribute)) {
    for (Member const& each : node.members(*place.attribute)) {
      entries.push_back(memberEntry(at, *place.attribute, each));
    }
  } else {
    entries.push_back(attributeEntry(at, node, *place.attribute));
  }
  return entries;
}

template <class Queue, class Visit>
void forEachIn(Queue const& queue, Visit const& visit) {
  for (auto const* link = queue.head(); link != nullptr; link = link->next.get()) {
    visit(**link->member());
  }
}

void typesBelow(MoxType const& base, std::map<std::string, MoxType const*>& found) {
  forEachIn(base.derivedTypeQ(), [&](MoxType const& type) {
    // What describes types is an entity itself and holds none of a model's values.
    if (&type != MoxType::_fwkType()) found.emplace(toStd(type.qualifiedName()), &type);
    typesBelow(type, found);
  });
}

/// All types of entities, and the enumerations of their attributes.
std::map<std::string, MoxType const*> allTypes() {
  std::map<std::string, MoxType const*> entities;
  typesBelow(*Entity::_fwkType(), entities);
  std::map<std::string, MoxType const*> all = entities;
  for (auto const& [name, type] : entities) {
    for (MoxAttr const* each : Mox::contentOf(*type)) {
      for (MoxType const* used : {each->type(), each->keyType()}) {
        if (used && used->isEnumType()) all.emplace(toStd(used->qualifiedName()), used);
      }
    }
  }
  return all;
}

char const* kindOf(MoxAttr const& attribute) {
  constexpr char const* names[] = {"constant", "value",  "reference", "child",
                                   "children", "values", "other"};
  return names[static_cast<std::size_t>(Mox::attributeForm(attribute))];
}

Json argumentsJson(Mox::TypeNameQ const& names, Mox::TypeNameQ const& typeNames) {
  Json arguments = Json::array();
  forEachIn(names, [&](Mox::TypeName const& name) {
    arguments.push_back({{"name", toStd(name.name())}});
  });
  std::size_t at = 0;
  forEachIn(typeNames, [&](Mox::TypeName const& name) {
    if (at < arguments.size()) arguments[at++]["type"] = toStd(name.name());
  });
  return arguments;
}

Json typeJson(MoxType const& type) {
  Json json = Json::object();
  json["type"] = toStd(type.qualifiedName());
  if (type.isEnumType()) {
    json["enumerators"] = Json::object();
    forEachIn(type.attributeQ(), [&](MoxAttr const& each) {
      if (&each != type.valAttr()) json["enumerators"][toStd(each.name())] = each.id();
    });
    return json;
  }
  json["base"] = toStd(type.baseType()->qualifiedName());
  json["arguments"] = argumentsJson(type.constructorArgNameQ(), type.constructorArgTypeQ());
  json["attributes"] = Json::array();
  for (MoxAttr const* each : Mox::contentOf(type)) {
    Json attribute = {{"id", each->id()},
                      {"name", toStd(each->name())},
                      {"kind", kindOf(*each)},
                      {"type", toStd(each->type()->qualifiedName())}};
    if (isCollection(*each)) attribute["key"] = toStd(each->keyType()->qualifiedName());
    if (ownsEntities(*each)) {
      attribute["arguments"] =
          argumentsJson(each->constructorArgNameQ(), each->constructorArgTypeQ());
    }
    json["attributes"].push_back(attribute);
  }
  return json;
}

std::string argumentsText(Json const& arguments) {
  std::string text;
  for (auto const& each : arguments) {
    text += (text.empty() ? "" : ", ") + each["name"].get<std::string>() + " " +
            each.value("type", "?");
  }
  return "(" + text + ")";
}

std::string typeText(Json const& type) {
  std::string text = type["type"].get<std::string>();
  if (type.contains("enumerators")) {
    text += "\n";
    for (auto const& [name, value] : type["enumerators"].items()) {
      text += "  " + name + " = " + value.dump() + "\n";
    }
    return text;
  }
  text += argumentsText(type["arguments"]) + ": " + type["base"].get<std::string>() + "\n";
  for (auto const& each : type["attributes"]) {
    text += "  " + each["id"].dump() + " " + each["kind"].get<std::string>() + " " +
            each["name"].get<std::string>();
    if (each.contains("key")) text += "[" + each["key"].get<std::string>() + "]";
    text += ": " + each["type"].get<std::string>();
    if (each.contains("arguments")) text += argumentsText(each["arguments"]);
    text += "\n";
  }
  return text;
}

}  // namespace

void list(std::ostream& to, Mox::Dir const& roots, std::string const& path, DumpForm form) {
  Json json = Json::object();
  for (Entry const& entry : entriesOf(roots, path)) {
    if (form == DumpForm::json) {
      json[entry.path] = entry.json;
    } else {
      to << entry.path << entry.text << '\n';
    }
  }
  if (form == DumpForm::json) write(to, json);
}

void get(std::ostream& to, std::string const& path, DumpForm form) {
  Place const place = placeOf(path);
  if (!place.attribute || (isCollection(*place.attribute) && !place.key)) {
    writeDump(to, place, form);
    return;
  }
  if (ownsEntities(*place.attribute)) throw CommandError("no such entity: " + path);
  Node const node(place.entity);
  std::string const value =
      place.key ? node.member(*place.attribute, place.key)->value : node.value(*place.attribute);
  to << (form == DumpForm::json ? jsonValue(value, *place.attribute) : value) << '\n';
}

void types(std::ostream& to, std::string const& name, DumpForm form) {
  auto const all = allTypes();
  Json json = Json::array();
  for (auto const& [qualifiedName, type] : all) {
    if (name.empty() && form == DumpForm::text) {
      to << qualifiedName
         << (type->isEnumType() ? " enumeration" : ": " + toStd(type->baseType()->qualifiedName()))
         << '\n';
    } else if (name.empty() || name == qualifiedName || name == toStd(type->name())) {
      json.push_back(typeJson(*type));
    }
  }
  if (!name.empty() && json.empty()) throw CommandError("no such type: " + name);
  if (form == DumpForm::json) {
    write(to, json);
  } else {
    for (auto const& each : json) to << typeText(each);
  }
}

}  // namespace Tools
