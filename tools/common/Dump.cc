// Walks a tree by its attributes.
#include "tools/common/Dump.h"

#include "tools/common/Json.h"

namespace Tools {
namespace {

using Mox::Entity;
using Mox::MoxAttr;
using Mox::Ptr;

class TextDump {
 public:
  explicit TextDump(std::ostream& to) : to_(to) {}

  void entity(Ptr<Entity> const& entity, std::string const& path) {
    Node const node(entity);
    to_ << path << ": " << titleOf(**entity) << '\n';
    for (MoxAttr const* each : node.attributes()) attribute(node, path, *each);
  }
  void attribute(Node const& node, std::string const& path, MoxAttr const& attribute) {
    if (isCollection(attribute)) {
      for (Member const& each : node.members(attribute)) member(path, attribute, each);
    } else if (!ownsEntities(attribute)) {
      to_ << attributePath(path, attribute, nullptr) << " = " << node.value(attribute) << '\n';
    } else if (auto const child = node.child(attribute)) {
      entity(child, attributePath(path, attribute, nullptr));
    }
  }
  void member(std::string const& path, MoxAttr const& attribute, Member const& member) {
    std::string const at = attributePath(path, attribute, &member.key);
    if (member.child) {
      entity(member.child, at);
    } else {
      to_ << at << " = " << member.value << '\n';
    }
  }

 private:
  std::ostream& to_;
};

class JsonDump {
 public:
  explicit JsonDump(std::ostream& to) : to_(to) {}

  void roots(Mox::Dir const& roots) {
    object([&](auto const& field) {
      for (auto const& root : rootsOf(roots)) {
        field(toStd(root->name()));
        entity(root);
      }
    });
  }
  void entity(Ptr<Entity> const& entity) {
    Node const node(entity);
    object([&](auto const& field) {
      field("type");
      to_ << jsonText(toStd(entity->fwkType()->qualifiedName()));
      field("name");
      to_ << jsonText(toStd(entity->name()));
      field("attributes");
      object([&](auto const& attributeField) {
        for (MoxAttr const* each : node.attributes()) {
          attributeField(toStd(each->name()));
          attribute(node, *each);
        }
      });
    });
  }
  void attribute(Node const& node, MoxAttr const& attribute) {
    if (isCollection(attribute)) {
      object([&](auto const& field) {
        for (Member const& each : node.members(attribute)) {
          field(plainKey(each.key, attribute));
          member(attribute, each);
        }
      });
    } else if (!ownsEntities(attribute)) {
      to_ << jsonValue(node.value(attribute), attribute);
    } else if (auto const child = node.child(attribute)) {
      entity(child);
    } else {
      none();
    }
  }
  void member(MoxAttr const& attribute, Member const& member) {
    if (member.child) {
      entity(member.child);
    } else {
      to_ << jsonValue(member.value, attribute);
    }
  }
  void none() { to_ << "null"; }

 private:
  /// An object over lines of its own; `fill` announces each field by name and then writes it.
  template <class Fill>
  void object(Fill const& fill) {
    to_ << '{';
    indent_ += 2;
    bool isEmpty = true;
    fill([&](std::string const& name) {
      to_ << (isEmpty ? "\n" : ",\n") << std::string(indent_, ' ') << jsonText(name) << ": ";
      isEmpty = false;
    });
    indent_ -= 2;
    if (!isEmpty) to_ << '\n' << std::string(indent_, ' ');
    to_ << '}';
  }

  std::ostream& to_;
  std::size_t indent_ = 0;
};

}  // namespace

void writeDump(std::ostream& to, Mox::Dir const& roots, DumpForm form) {
  if (form == DumpForm::json) {
    JsonDump(to).roots(roots);
    to << '\n';
    return;
  }
  TextDump dump(to);
  for (auto const& root : rootsOf(roots)) {
    dump.entity(root, withoutControlBytes(toStd(root->name())));
  }
}

void writeDump(std::ostream& to, Place const& place, DumpForm form) {
  TextDump text(to);
  JsonDump json(to);
  bool const isJson = form == DumpForm::json;
  if (!place.attribute) {
    isJson ? json.entity(place.entity) : text.entity(place.entity, place.entityPath);
  } else {
    Node const node(place.entity);
    isJson ? json.attribute(node, *place.attribute)
           : text.attribute(node, place.entityPath, *place.attribute);
  }
  if (isJson) to << '\n';
}

}  // namespace Tools
