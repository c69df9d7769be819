// moxtypes: the types of a module. Without more it reads their names from the module's file alone;
// with --attributes it loads the module and prints what its types tell of themselves.
#include <dlfcn.h>
#include <fcntl.h>
#include <gelf.h>
#include <libelf.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <filesystem>
#include <iostream>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "registry/MoxType.h"
#include "tools/common/Endpoint.h"

namespace {

using Mox::MoxAttr;
using Mox::MoxType;
using nlohmann::ordered_json;

std::string toStd(Mox::String8 const& text) { return {text.charPtr(), text.length()}; }

/// An ELF file opened for reading.
class Module {
 public:
  explicit Module(std::string const& path) : fd_(::open(path.c_str(), O_RDONLY | O_CLOEXEC)) {
    if (fd_ < 0) throw std::runtime_error(std::strerror(errno));
    elf_version(EV_CURRENT);
    elf_ = elf_begin(fd_, ELF_C_READ, nullptr);
    if (!elf_ || elf_kind(elf_) != ELF_K_ELF) {
      close();
      throw std::runtime_error("not an object file");
    }
  }
  ~Module() { close(); }
  Module(Module const&) = delete;
  Module& operator=(Module const&) = delete;

  /// The content of a section; throws when there is none, or when the file is damaged.
  std::string section(char const* wanted) const {
    // libelf reads a file whose section headers are cut off as one without sections.
    GElf_Ehdr file;
    check(gelf_getehdr(elf_, &file));
    std::size_t names = 0, count = 0;
    check(elf_getshdrnum(elf_, &count) == 0 && (count != 0 || file.e_shoff == 0));
    check(count == 0 || elf_getshdrstrndx(elf_, &names) == 0);
    for (Elf_Scn* at = elf_nextscn(elf_, nullptr); at; at = elf_nextscn(elf_, at)) {
      GElf_Shdr header;
      check(gelf_getshdr(at, &header));
      char const* const name = elf_strptr(elf_, names, header.sh_name);
      check(name);
      if (std::string_view(name) != wanted) continue;
      Elf_Data const* const data = elf_rawdata(at, nullptr);
      check(data && data->d_buf);
      return {static_cast<char const*>(data->d_buf), data->d_size};
    }
    throw std::runtime_error("describes no types");
  }

 private:
  static void check(bool isWhole) {
    if (!isWhole) throw std::runtime_error("a damaged object file");
  }
  void close() {
    elf_end(elf_);
    ::close(fd_);
  }

  int fd_;
  Elf* elf_ = nullptr;
};

/// The names in a module's section, as they stand there.
std::vector<std::string> typeNames(std::string const& path) {
  std::vector<std::string> names;
  std::string const content = Module(path).section(".mox.type");
  for (std::size_t at = 0; at < content.size();) {
    auto const end = std::min(content.find('\0', at), content.size());
    if (end != at) names.push_back(content.substr(at, end - at));
    at = end + 1;
  }
  return names;
}

/// The loaded types, in the order of their declaration.
std::vector<MoxType const*> loadedTypes(std::string const& path) {
  std::vector<std::string> const names = typeNames(path);
  std::string const file = std::filesystem::absolute(path).string();
  if (!::dlopen(file.c_str(), RTLD_NOW | RTLD_GLOBAL)) throw std::runtime_error(::dlerror());
  std::vector<MoxType const*> types;
  for (auto name = names.rbegin(); name != names.rend(); ++name) {
    MoxType const* const type = MoxType::typeNode(Mox::Name(name->c_str()));
    if (!type) throw std::runtime_error("doesn't make its type " + *name);
    types.push_back(type);
  }
  return types;
}

std::string typeName(MoxType const* type) { return type ? toStd(type->qualifiedName()) : ""; }

std::string hex(std::uint32_t number, int digits = 1) {
  char text[16];
  std::snprintf(text, sizeof text, "0x%0*x", digits, number);
  return text;
}

struct Argument {
  std::string name;
  std::string type;
};

std::vector<Argument> arguments(Mox::TypeNameQ const& names, Mox::TypeNameQ const& types) {
  std::vector<Argument> out;
  Mox::TypeNameQ::IteratorConst type(&types);
  for (Mox::TypeNameQ::IteratorConst name(&names); name; ++name, ++type)
    out.push_back({toStd(name->name()), toStd(type->name())});
  return out;
}

std::string argumentText(std::vector<Argument> const& list) {
  std::string text;
  for (Argument const& argument : list)
    text += (text.empty() ? "" : ", ") + argument.name + " (" + argument.type + ")";
  return text;
}

using Row = std::vector<std::string>;
Row const header = {"Id",
                    "Attribute",
                    "Type",
                    "Key type",
                    "Kind",
                    "Flags",
                    "Introspection",
                    "Member key",
                    "Member constructor arguments",
                    "Default",
                    "Description"};

std::string oneLine(std::string text) {
  std::replace(text.begin(), text.end(), '\n', ' ');
  return text;
}

/// "0 to 96 (none)" of an identifier, empty for all else.
std::string rangeText(MoxType const* type) {
  Mox::ValueRange const* const range = type ? type->range() : nullptr;
  if (!range) return "";
  return std::to_string(range->least) + " to " + std::to_string(range->largest) +
         (range->hasNull ? " (none)" : "");
}

/// The type of a value, with the numbers that an identifier accepts.
std::string valueTypeName(MoxType const* type) {
  std::string const range = rangeText(type);
  return typeName(type) + (range.empty() ? "" : ", " + range);
}

Row rowOf(MoxAttr const& attribute) {
  return {hex(static_cast<std::uint32_t>(attribute.id())),
          toStd(attribute.name()),
          valueTypeName(attribute.type()),
          valueTypeName(attribute.keyType()),
          attribute.kindName(),
          hex(attribute.flags().word0, 8) + " " + hex(attribute.flags().word1, 8),
          hex(attribute.introspectionFlags()),
          attribute.keyAttr() ? toStd(attribute.keyAttr()->name()) : "",
          argumentText(arguments(attribute.constructorArgNameQ(), attribute.constructorArgTypeQ())),
          attribute.row() ? attribute.row()->defaultText : "",
          oneLine(attribute.doc())};
}

class Printer {
 public:
  Printer(std::ostream& out, bool isOwnOnly) : out_(out), isOwnOnly_(isOwnOnly) {}

  void text(std::vector<MoxType const*> const& types) {
    for (MoxType const* type : types) {
      out_ << (type == types.front() ? "" : "\n") << heading(*type) << "\n";
      if (*type->doc()) out_ << "  " << oneLine(type->doc()) << "\n";
      std::vector<Row> rows = rowsOf(*type);
      rows.insert(rows.begin(), header);
      std::vector<std::size_t> widths(header.size());
      for (Row const& row : rows) {
        for (std::size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], row[i].size());
      }
      for (Row const& row : rows) {
        std::string line = " ";
        for (std::size_t i = 0; i < row.size(); ++i)
          line += " " + row[i] + std::string(widths[i] - row[i].size() + 1, ' ');
        out_ << line.substr(0, line.find_last_not_of(' ') + 1) << "\n";
      }
    }
  }

  void markdown(std::string const& module, std::vector<MoxType const*> const& types) {
    out_ << "# The types of " << module << "\n\nMade by `moxtypes --attributes --markdown"
         << (isOwnOnly_ ? " --own" : "") << " " << module << "`.\n";
    for (MoxType const* type : types) {
      out_ << "\n## `" << typeName(type) << "`\n\n" << about(*type) << "\n\n";
      if (*type->doc()) out_ << oneLine(type->doc()) << "\n\n";
      line(header, false);
      line(Row(header.size(), "---"), false);
      for (Row const& row : rowsOf(*type)) line(row, true);
    }
  }

  void json(std::vector<MoxType const*> const& types) {
    ordered_json out = ordered_json::array();
    for (MoxType const* type : types) {
      ordered_json attributes = ordered_json::array();
      forEach(*type, [&](MoxAttr const& attribute) {
        ordered_json row = {{"id", attribute.id()},
                            {"name", toStd(attribute.name())},
                            {"type", typeName(attribute.type())},
                            {"kind", attribute.kindName()},
                            {"flags", {attribute.flags().word0, attribute.flags().word1}},
                            {"introspection", attribute.introspectionFlags()}};
        if (attribute.keyType()) row["keyType"] = typeName(attribute.keyType());
        if (attribute.keyAttr()) row["memberKey"] = toStd(attribute.keyAttr()->name());
        if (attribute.definer() != attribute.owner()) row["of"] = typeName(attribute.definer());
        auto const made =
            arguments(attribute.constructorArgNameQ(), attribute.constructorArgTypeQ());
        if (!made.empty()) row["arguments"] = argumentJson(made);
        if (Mox::ValueRange const* const range = attribute.type()->range()) {
          row["least"] = range->least;
          row["largest"] = range->largest;
        }
        if (attribute.row() && *attribute.row()->defaultText)
          row["default"] = attribute.row()->defaultText;
        if (*attribute.doc()) row["doc"] = attribute.doc();
        attributes.push_back(row);
      });
      ordered_json row = {{"name", typeName(type)}, {"size", type->size()}};
      if (*type->doc()) row["doc"] = type->doc();
      if (type->isEntity()) {
        row["base"] = typeName(type->baseType());
        row["arguments"] =
            argumentJson(arguments(type->constructorArgNameQ(), type->constructorArgTypeQ()));
      }
      row["attributes"] = attributes;
      out.push_back(row);
    }
    out_ << out.dump(2) << "\n";
  }

 private:
  template <class Visit>
  void forEach(MoxType const& type, Visit const& visit) const {
    for (MoxType::AttributeQ::IteratorConst it(&type.attributeQ()); it; ++it) {
      if (!isOwnOnly_ || it->definer() == it->owner()) visit(**it);
    }
  }
  std::vector<Row> rowsOf(MoxType const& type) const {
    std::vector<Row> rows;
    forEach(type, [&](MoxAttr const& attribute) { rows.push_back(rowOf(attribute)); });
    return rows;
  }
  static ordered_json argumentJson(std::vector<Argument> const& list) {
    ordered_json out = ordered_json::array();
    for (Argument const& argument : list)
      out.push_back({{"name", argument.name}, {"type", argument.type}});
    return out;
  }
  static std::string heading(MoxType const& type) {
    if (!type.isEntity()) return typeName(&type) + ", an enumeration";
    return typeName(&type) + " : " + typeName(type.baseType()) + " (" +
           argumentText(arguments(type.constructorArgNameQ(), type.constructorArgTypeQ())) + ")";
  }
  static std::string about(MoxType const& type) {
    if (!type.isEntity()) return "Enumeration.";
    std::string const made =
        argumentText(arguments(type.constructorArgNameQ(), type.constructorArgTypeQ()));
    return "Parent: `" + typeName(type.baseType()) +
           "`. Constructor arguments: " + (made.empty() ? "none" : made) + ".";
  }
  void line(Row const& row, bool isData) {
    for (std::size_t i = 0; i < row.size(); ++i) {
      bool const isCode = isData && !row[i].empty() && i != 4 && i != 8 && i != 10;
      out_ << "| " << (isCode ? "`" + row[i] + "`" : row[i]) << (row[i].empty() ? "" : " ");
    }
    out_ << "|\n";
  }

  std::ostream& out_;
  bool isOwnOnly_;
};

}  // namespace

int main(int argc, char** argv) {
  CLI::App app("Lists the types of a module.", "moxtypes");
  std::string file;
  bool isAttributes = false, isOwnOnly = false, isJson = false, isMarkdown = false;
  app.add_option("FILE", file, "the module, a shared library")->required()->type_name("");
  auto* const attributes =
      app.add_flag("--attributes", isAttributes, "load the module and print the attributes");
  app.add_flag("--own", isOwnOnly, "leave inherited attributes out")->needs(attributes);
  auto* const json = app.add_flag("--json", isJson, "print JSON")->needs(attributes);
  app.add_flag("--markdown", isMarkdown, "print Markdown")->needs(attributes)->excludes(json);
  if (int const code = Tools::parseCommandLine(app, argc, argv); code >= 0) return code;
  try {
    if (!isAttributes) {
      for (std::string const& name : typeNames(file)) std::cout << name << "\n";
    } else {
      auto const types = loadedTypes(file);
      Printer printer(std::cout, isOwnOnly);
      if (isJson) {
        printer.json(types);
      } else if (isMarkdown) {
        printer.markdown(std::filesystem::path(file).filename().string(), types);
      } else {
        printer.text(types);
      }
    }
    std::cout.flush();
    if (std::cout) return 0;
    std::cerr << "moxtypes: standard output can't be written\n";
  } catch (std::exception const& failure) {
    std::cerr << "moxtypes: " << file << ": " << failure.what() << "\n";
  }
  return 1;
}
