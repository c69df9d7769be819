// The text forms of values and keys as JSON.
#pragma once

#include <string>

#include "tools/common/Tree.h"

namespace Tools {

/// A JSON string; bytes that are no UTF-8 come as U+FFFD.
std::string jsonText(std::string const& text);
/// A value by its text form: what stands in apostrophes is a string, a number without them a
/// number, a reference to nothing null.
std::string jsonValue(std::string const& text, Mox::MoxAttr const& attribute);
/// A key without apostrophes and escapes.
std::string plainKey(std::string const& key, Mox::MoxAttr const& attribute);

}  // namespace Tools
