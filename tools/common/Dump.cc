// Walks a tree by its attribute tables.
#include "tools/common/Dump.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <string_view>

#include "registry/MoxType.h"
#include "values/ValueText.h"

namespace Tools {
namespace {

using Mox::AttributeText;
using Mox::Entity;
using Mox::MemberText;
using Mox::String8;
using Mox::TextKind;
using Form = Mox::AttributeText::Form;

/// Numbers by value, all else by bytes.
bool keyLess(std::string_view a, std::string_view b, TextKind kind) {
  if (kind != TextKind::number) return a < b;
  bool const isNegative = a.starts_with('-');
  if (isNegative != b.starts_with('-')) return isNegative;
  if (isNegative) std::swap(a, b);
  return a.size() != b.size() ? a.size() < b.size() : a < b;
}

std::string withoutControlBytes(String8 const& text) {
  std::string result;
  for (char const c : toStd(text)) {
    auto const byte = static_cast<unsigned char>(c);
    if (byte < 0x20 || byte == 0x7f) {
      constexpr char digits[] = "0123456789abcdef";
      result += {'\\', 'x', digits[byte >> 4], digits[byte & 15]};
    } else {
      result += c;
    }
  }
  return result;
}

class TextDump {
 public:
  explicit TextDump(std::ostream& to) : to_(to) {}

  void entity(Entity const& entity, std::string const& path) {
    to_ << path << ": " << entityTitle(entity) << '\n';
    if (Mox::TypeText const* const type = typeText(entity)) {
      type->forEach([&](AttributeText const& each) { attribute(entity, path, each); });
    }
  }

 private:
  void attribute(Entity const& entity, std::string const& path, AttributeText const& attribute) {
    switch (attribute.form) {
      case Form::scalar:
        to_ << attributePath(path, attribute, nullptr) << " = " << toStd(attribute.value(entity))
            << '\n';
        break;
      case Form::child:
        if (auto const child = attribute.child(entity)) {
          this->entity(**child, attributePath(path, attribute, nullptr));
        }
        break;
      case Form::values:
      case Form::children:
        for (MemberText const& member : sortedMembers(entity, attribute)) {
          std::string const at = attributePath(path, attribute, &member.key);
          if (attribute.form == Form::children) {
            this->entity(**member.child, at);
          } else {
            to_ << at << " = " << toStd(member.value) << '\n';
          }
        }
        break;
    }
  }

  std::ostream& to_;
};

class JsonDump {
 public:
  explicit JsonDump(std::ostream& to) : to_(to) {}

  void roots(Mox::Dir const& roots) {
    object([&](auto const& field) {
      for (auto const& root : sortedRoots(roots)) {
        field(toStd(root->name()));
        entity(**root);
      }
    });
    to_ << '\n';
  }

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

  void entity(Entity const& entity) {
    Mox::TypeText const* const type = typeText(entity);
    object([&](auto const& field) {
      field("type");
      to_ << jsonText(type ? type->qualifiedName : "");
      field("name");
      to_ << jsonText(toStd(entity.name()));
      field("attributes");
      object([&](auto const& attributeField) {
        if (!type) return;
        type->forEach([&](AttributeText const& attribute) {
          attributeField(attribute.name);
          value(entity, attribute);
        });
      });
    });
  }

  void value(Entity const& entity, AttributeText const& attribute) {
    switch (attribute.form) {
      case Form::scalar:
        to_ << jsonValue(attribute.value(entity), attribute.kind);
        break;
      case Form::child:
        if (auto const child = attribute.child(entity)) {
          this->entity(**child);
        } else {
          to_ << "null";
        }
        break;
      case Form::values:
      case Form::children:
        object([&](auto const& field) {
          for (MemberText const& member : sortedMembers(entity, attribute)) {
            field(plainText(member.key, attribute.keyKind));
            if (attribute.form == Form::children) {
              this->entity(**member.child);
            } else {
              to_ << jsonValue(member.value, attribute.kind);
            }
          }
        });
        break;
    }
  }

  std::ostream& to_;
  std::size_t indent_ = 0;
};

}  // namespace

std::string toStd(String8 const& text) { return {text.charPtr(), text.length()}; }

Mox::TypeText const* typeText(Entity const& entity) {
  Mox::MoxType const* const type = entity.fwkType();
  return type ? type->typeText() : nullptr;
}

std::string attributePath(std::string const& path, AttributeText const& attribute,
                          String8 const* key) {
  bool const isValue = attribute.form == Form::scalar || attribute.form == Form::values;
  std::string result = path + (isValue ? '.' : '/') + attribute.name;
  if (key) result.append("[").append(withoutControlBytes(*key)).append("]");
  return result;
}

std::string entityTitle(Entity const& entity) {
  Mox::TypeText const* const type = typeText(entity);
  return std::string(type ? type->qualifiedName : "unknown") + " " +
         toStd(Mox::textOf(entity.name()));
}

std::vector<MemberText> sortedMembers(Entity const& entity, AttributeText const& attribute) {
  std::vector<MemberText> members;
  attribute.members(entity, [&members](MemberText const& each) { members.push_back(each); });
  std::sort(members.begin(), members.end(), [&](MemberText const& a, MemberText const& b) {
    return keyLess(a.key.view(), b.key.view(), attribute.keyKind);
  });
  return members;
}

std::vector<Mox::Ptr<Entity>> sortedRoots(Mox::Dir const& roots) {
  std::vector<Mox::Ptr<Entity>> result;
  for (auto entry = roots.entryIteratorConst(); entry; ++entry) result.push_back(entry->target());
  std::sort(result.begin(), result.end(),
            [](auto const& a, auto const& b) { return a->name() < b->name(); });
  return result;
}

std::string jsonText(std::string const& text) {
  return nlohmann::json(text).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

std::string jsonValue(String8 const& text, TextKind kind) {
  std::string const plain = plainText(text, kind);
  switch (kind) {
    case TextKind::boolean:
      return plain;
    case TextKind::number:
      // JSON has no infinity and nothing that is no number.
      return nlohmann::json::accept(plain) ? plain : jsonText(plain);
    case TextKind::reference:
      return plain.empty() ? "null" : jsonText(plain);
    case TextKind::text:
    case TextKind::word:
    case TextKind::name:
      break;
  }
  return jsonText(plain);
}

std::string plainText(String8 const& text, TextKind kind) {
  bool const isQuoted = kind != TextKind::name && text.view().starts_with('\'');
  return toStd(isQuoted ? Mox::strepToValue<String8>(text) : text);
}

void writeDump(std::ostream& to, Mox::Dir const& roots, DumpForm form) {
  if (form == DumpForm::json) {
    JsonDump(to).roots(roots);
    return;
  }
  TextDump dump(to);
  for (auto const& root : sortedRoots(roots)) {
    dump.entity(**root, withoutControlBytes(root->fullName()));
  }
}

}  // namespace Tools
