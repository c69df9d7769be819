// Reads a command, finds what it is about, and changes it.
#include "tools/common/TreeCommands.h"

#include <algorithm>
#include <list>
#include <utility>

#include "Mox/Exception.h"
#include "values/EntityPath.h"

namespace Tools {
namespace {

bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\r'; }

void skipBlanks(std::string_view& text) {
  while (!text.empty() && isBlank(text.front())) text.remove_prefix(1);
}

/// The next word; empty at the end.
std::string_view nextWord(std::string_view& rest) {
  skipBlanks(rest);
  std::size_t at = 0;
  int depth = 0;
  bool isQuoted = false;
  for (; at < rest.size(); ++at) {
    char const c = rest[at];
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
  at = std::min(at, rest.size());
  std::string_view const word = rest.substr(0, at);
  rest.remove_prefix(at);
  return word;
}

std::string joined(std::vector<std::string> const& words, std::size_t from) {
  std::string text;
  for (std::size_t i = from; i < words.size(); ++i) text += (i == from ? "" : " ") + words[i];
  return text;
}

/// The arguments of a child by name: NAME=VALUE, others in the order of those that are left.
std::vector<Mox::NamedText> argumentsOf(Mox::MoxAttr const& attribute, std::string const* key,
                                        std::vector<std::string> const& words) {
  std::vector<std::string> names;
  for (Mox::TypeNameQ::IteratorConst name(&attribute.constructorArgNameQ()); name; ++name) {
    names.push_back(toStd(name->name()));
  }
  std::vector<Mox::NamedText> arguments;
  auto const take = [&](std::string const& name, std::string const& text) {
    arguments.push_back({Mox::String8(name), Mox::String8(text)});
    std::erase(names, name);
  };
  if (key) take(toStd(attribute.keyArg()), *key);
  std::vector<std::string> inOrder;
  for (std::size_t i = 1; i < words.size(); ++i) {
    std::size_t const equals = words[i].find('=');
    std::string const name = words[i].substr(0, equals);
    if (equals != std::string::npos && std::find(names.begin(), names.end(), name) != names.end()) {
      take(name, words[i].substr(equals + 1));
    } else {
      inOrder.push_back(words[i]);
    }
  }
  for (std::string const& text : inOrder) {
    if (names.empty()) {
      throw CommandError(toStd(attribute.name()) + ": " + text + " is one argument too many");
    }
    take(std::string(names.front()), text);
  }
  return arguments;
}

void add(Mox::AttributePlace place, std::vector<std::string> const& words) {
  if (Mox::attributeForm(*place.attribute) == Mox::AttributeForm::values) {
    if (place.key &&
        Mox::valueOf<bool>(place.object->attributeOp(
            {place.attribute->id(), Mox::GenericIf::AttributeOp::attrExists}, place.key, {}))) {
      throw CommandError(words[0] + " is there already");
    }
    Mox::attributeSet(place, Mox::String8(joined(words, 1)));
    return;
  }
  // What takes no child says so before its arguments are looked at.
  if (!ownsEntities(*place.attribute)) Mox::attributeAdd(place, {});
  std::string key;
  bool const hasKey = place.key && !place.attribute->keyArg().empty();
  if (hasKey) {
    key = toStd(place.key->strRep());
    place.key = nullptr;
  }
  Mox::attributeAdd(place, argumentsOf(*place.attribute, hasKey ? &key : nullptr, words));
}

}  // namespace

Command commandOf(std::string_view line) {
  Command command;
  command.verb = nextWord(line);
  if (command.verb.starts_with('#')) return {};
  for (;;) {
    bool const isWhole = command.verb == "set" && command.words.size() == 1;
    skipBlanks(line);
    while (!line.empty() && isBlank(line.back())) line.remove_suffix(1);
    std::string_view const word = isWhole ? line : nextWord(line);
    if (word.empty()) return command;
    command.words.emplace_back(word);
    if (isWhole) return command;
  }
}

void change(Command const& command) {
  std::string const& verb = command.verb;
  std::vector<std::string> const& words = command.words;
  if (verb != "set" && verb != "add" && verb != "del") {
    throw CommandError("no such command: " + verb);
  }
  if (words.empty()) throw CommandError(verb + ": no path");
  try {
    Mox::AttributePlace const place = Mox::attributePlace(Mox::String8(words[0]));
    if (verb == "set") {
      if (words.size() == 1) throw CommandError("set: no value for " + words[0]);
      Mox::attributeSet(place, Mox::String8(joined(words, 1)));
    } else if (verb == "add") {
      add(place, words);
    } else if (words.size() > 1) {
      throw CommandError("del: " + words[1] + " is too much; expected one path");
    } else {
      Mox::attributeDel(place);
    }
  } catch (Mox::Exception const& refused) {
    throw CommandError(toStd(refused.message()));
  }
}

struct KnownRoots::Roots {
  std::list<Mox::EntityRoot> known;
};

KnownRoots::KnownRoots(Mox::Dir const& roots) : roots_(new Roots) {
  for (Mox::Ptr<Mox::Entity> const& root : rootsOf(roots)) roots_->known.emplace_back(root);
}

KnownRoots::~KnownRoots() = default;

}  // namespace Tools
