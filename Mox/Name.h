// The string type of identities. Same representation as String8, a type of its own.
#pragma once

#include "Mox/String8.h"

namespace MOX_API Mox {

class MoxType;

class Name : public String8 {
 public:
  using String8::String8;
  Name() = default;
  Name(String8 const& text) : String8(text) {}
  Name(char const* text) : String8(text) {}

  /// Defined with the type registry.
  static MoxType* _fwkType();
};

}  // namespace Mox

namespace std {
template <>
struct hash<Mox::Name> : std::hash<Mox::String8> {};
}  // namespace std
