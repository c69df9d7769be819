// Which text is which JSON value.
#include "tools/common/Json.h"

#include <nlohmann/json.hpp>

#include "values/ValueText.h"

namespace Tools {
namespace {

std::string unquoted(std::string const& text) {
  return toStd(Mox::strepToValue<Mox::String8>(Mox::String8(text)));
}

}  // namespace

std::string jsonText(std::string const& text) {
  return nlohmann::json(text).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

std::string jsonValue(std::string const& text, Mox::MoxAttr const& attribute) {
  if (text.starts_with('\'')) {
    std::string const plain = unquoted(text);
    return attribute.type()->isEntity() && plain.empty() ? "null" : jsonText(plain);
  }
  // JSON has no infinity and nothing that is no number; a bare word is no JSON either.
  return nlohmann::json::accept(text) ? text : jsonText(text);
}

std::string plainKey(std::string const& key, Mox::MoxAttr const& attribute) {
  bool const isName = attribute.keyType() == Mox::Name::_fwkType();
  return !isName && key.starts_with('\'') ? unquoted(key) : key;
}

}  // namespace Tools
