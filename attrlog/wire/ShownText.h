// What a peer has named, as logs and terminals may have it.
#pragma once

#include <string>
#include <string_view>

#include "Mox/Api.h"

namespace MOX_API Mox {
namespace NboAttrLog {

/// `text` with "\xHH" for each byte that could forge a line, command a terminal or turn the
/// direction of writing: control characters, bytes that are no UTF-8, line and direction marks. A
/// text that has been through it stays as it is.
std::string shownText(std::string_view text);

}  // namespace NboAttrLog
}  // namespace Mox
