// Commands by name.
#include "tools/inventoryctl/Shell.h"

#include "tools/inventoryctl/Queries.h"

namespace Tools {
namespace {

constexpr char const* verbs[] = {"add", "del",  "dump", "get",   "help",
                                 "ls",  "quit", "set",  "types", "watch"};

/// The one path that a command takes, or "".
std::string onlyWord(Command const& command, bool isNeeded) {
  if (command.words.size() > 1) {
    throw CommandError(command.verb + ": " + command.words[1] + " is too much; expected one word");
  }
  if (command.words.empty() && isNeeded) throw CommandError(command.verb + ": no path");
  return command.words.empty() ? "" : command.words[0];
}

}  // namespace

Shell::Shell(Mirror& mirror, std::ostream& to, bool isJson)
    : mirror_(mirror), to_(to), form_(isJson ? DumpForm::json : DumpForm::text) {}

Shell::~Shell() = default;

char const* Shell::helpText() {
  return "ls [PATH]            one level of the tree\n"
         "get PATH             a value, or all below\n"
         "set PATH VALUE       changes a value\n"
         "add PATH ARGUMENT…   makes a member, with the arguments of its constructor or as "
         "NAME=VALUE\n"
         "del PATH             takes a member out\n"
         "watch [PATH | off]   tells changes as they arrive\n"
         "types [TYPE]         types, or the attributes of one\n"
         "dump                 the whole tree\n"
         "quit\n";
}

void Shell::run(Command const& command) {
  Mox::Dir const& roots = mirror_.roots();
  std::string const& verb = command.verb;
  if (verb.empty()) return;
  KnownRoots const known(roots);
  if (verb == "ls") {
    list(to_, roots, onlyWord(command, false), form_);
  } else if (verb == "get") {
    get(to_, onlyWord(command, true), form_);
  } else if (verb == "types") {
    types(to_, onlyWord(command, false), form_);
  } else if (verb == "dump") {
    writeDump(to_, roots, form_);
  } else if (verb == "watch") {
    watch(command.words);
  } else if (verb == "help") {
    to_ << helpText();
  } else if (verb == "quit" || verb == "exit") {
    isEnded_ = true;
  } else {
    changeThere(command);
  }
}

void Shell::changeThere(Command const& command) {
  bool const isChange = command.verb == "set" || command.verb == "add" || command.verb == "del";
  if (isChange && !mirror_.mayWrite()) {
    throw CommandError(command.verb + ": the server takes no changes from this connection");
  }
  change(command);
  mirror_.deliver();
}

void Shell::watch(std::vector<std::string> const& words) {
  watch_ = nullptr;
  if (words.size() == 1 && words[0] == "off") return;
  std::string const path = onlyWord({"watch", words}, false);
  if (!path.empty()) placeOf(path);
  watch_ = std::make_unique<Watch>(mirror_.roots(), form_ == DumpForm::json,
                                   [this](std::string const& line) { to_ << line << '\n'; });
  watch_->onlyIs(path);
}

std::vector<std::string> Shell::completions(std::string const& word, bool isFirst) const {
  KnownRoots const known(mirror_.roots());
  if (!isFirst) return completionsOf(mirror_.roots(), word);
  std::vector<std::string> found;
  for (char const* verb : verbs) {
    if (std::string_view(verb).starts_with(word)) found.emplace_back(verb);
  }
  return found;
}

}  // namespace Tools
