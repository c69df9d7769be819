// Reads a command, finds what it is about, and calls the attribute table.
#include "tools/common/TreeCommands.h"

#include <optional>
#include <string_view>
#include <vector>

#include "Mox/Exception.h"
#include "tools/common/Dump.h"
#include "values/EntityPath.h"

namespace Tools {
namespace {

using Mox::AttributeText;
using Mox::Entity;
using Mox::Ptr;
using Mox::String8;
using Form = Mox::AttributeText::Form;

AttributeText const* attributeByName(Entity const& entity, std::string_view name) {
  AttributeText const* found = nullptr;
  if (Mox::TypeText const* const type = typeText(entity)) {
    type->forEach([&](AttributeText const& each) {
      if (each.name == name) found = &each;
    });
  }
  return found;
}

Ptr<Entity> childStep(Entity& parent, String8 const& name, String8 const* key) {
  AttributeText const* const attribute = attributeByName(parent, name.view());
  if (!attribute) return {};
  if (attribute->form == Form::child) return key ? Ptr<Entity>() : attribute->child(parent);
  if (attribute->form != Form::children || !key) return {};
  try {
    Mox::MemberText found;
    return attribute->member(parent, *key, found) ? found.child : Ptr<Entity>();
  } catch (Mox::Exception const&) {
    // Not a key of that type: the path names nothing.
    return {};
  }
}

/// Splits a line at blanks outside of brackets and apostrophes.
class Words {
 public:
  explicit Words(std::string_view line) : rest_(line) {}

  /// Empty at the end.
  std::string_view next() {
    skipBlanks();
    std::size_t at = 0;
    int depth = 0;
    bool isQuoted = false;
    for (; at < rest_.size(); ++at) {
      char const c = rest_[at];
      if (isQuoted) {
        if (c == '\\') ++at;
        isQuoted = c != '\'';
      } else if (c == '\'') {
        isQuoted = true;
      } else if (c == '[') {
        ++depth;
      } else if (c == ']' && depth > 0) {
        --depth;
      } else if (depth == 0 && isBlank(c)) {
        break;
      }
    }
    at = std::min(at, rest_.size());
    std::string_view const word = rest_.substr(0, at);
    rest_.remove_prefix(at);
    return word;
  }
  std::string_view rest() {
    skipBlanks();
    while (!rest_.empty() && isBlank(rest_.back())) rest_.remove_suffix(1);
    return rest_;
  }

 private:
  static bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\r'; }
  void skipBlanks() {
    while (!rest_.empty() && isBlank(rest_.front())) rest_.remove_prefix(1);
  }

  std::string_view rest_;
};

struct Target {
  Ptr<Entity> entity;
  AttributeText const* attribute;
  std::optional<String8> key;

  String8 keyOrEmpty() const { return key ? *key : String8(); }
};

/// Takes `PATH.attribute[KEY]` apart. A key may hold any character, so every place that could
/// divide is tried from the right; the tree decides.
Target targetOf(std::string_view text) {
  bool isEntityKnown = false;
  for (std::size_t at = text.find_last_of("./"); at != text.npos && at != 0;
       at = text.find_last_of("./", at - 1)) {
    Ptr<Entity> const entity = Mox::EntityPath::entity(String8(text.substr(0, at)));
    if (!entity) continue;
    isEntityKnown = true;
    std::string_view name = text.substr(at + 1);
    std::optional<String8> key;
    if (auto const bracket = name.find('['); bracket != name.npos && name.ends_with(']')) {
      key = String8(name.substr(bracket + 1, name.size() - bracket - 2));
      name = name.substr(0, bracket);
    }
    if (AttributeText const* const attribute = attributeByName(**entity, name)) {
      return {entity, attribute, key};
    }
  }
  throw CommandError((isEntityKnown ? "no such attribute: " : "no such entity: ") +
                     std::string(text));
}

void set(Target const& target, std::string_view value) {
  AttributeText const& attribute = *target.attribute;
  if (!attribute.set) throw CommandError(std::string(attribute.name) + " can't be set");
  if (attribute.isCollection() != target.key.has_value()) {
    throw CommandError(std::string(attribute.name) +
                       (target.key ? " is no collection" : " is a collection: [KEY] is missing"));
  }
  if (value.empty()) throw CommandError("set: no value");
  attribute.set(**target.entity, target.keyOrEmpty(), String8(value));
}

void add(Target const& target, Words& words) {
  AttributeText const& attribute = *target.attribute;
  if (!attribute.add || target.key) {
    throw CommandError("add: " + std::string(attribute.name) + " takes no child");
  }
  std::vector<String8> arguments;
  for (std::string_view word = words.next(); !word.empty(); word = words.next()) {
    arguments.emplace_back(word);
  }
  if (arguments.size() != attribute.addCount) {
    throw CommandError("add: " + std::string(attribute.name) + " takes " +
                       std::to_string(attribute.addCount) + " arguments");
  }
  attribute.add(**target.entity, arguments);
}

void del(Target const& target) {
  AttributeText const& attribute = *target.attribute;
  if (!attribute.del || attribute.isCollection() != target.key.has_value()) {
    throw CommandError("del: " + std::string(attribute.name) + " is nothing to delete");
  }
  attribute.del(**target.entity, target.keyOrEmpty());
}

}  // namespace

void entityPathsAreByTable() { Mox::EntityPath::childStepIs(childStep); }

void runCommand(std::string const& line) {
  Words words(line);
  std::string_view const verb = words.next();
  if (verb.empty() || verb.front() == '#') return;
  if (verb != "set" && verb != "add" && verb != "del") {
    throw CommandError("no such command: " + std::string(verb));
  }
  std::string_view const path = words.next();
  if (path.empty()) throw CommandError(std::string(verb) + ": no path");
  Target const target = targetOf(path);
  try {
    if (verb == "set") {
      set(target, words.rest());
    } else if (verb == "add") {
      add(target, words);
    } else {
      del(target);
    }
  } catch (Mox::Exception const& refused) {
    throw CommandError(toStd(refused.message()));
  }
}

}  // namespace Tools
