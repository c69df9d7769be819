// An argument list unpacked for the parameters of a constructor.
#pragma once

#include <vector>

#include "generic/GenericIf.h"
#include "generic/Rows.h"

namespace MOX_API Mox {

class GenericArguments {
 public:
  /// Throws unless `list` is a list that fits. `subject`: what is to be made, for the messages.
  GenericArguments(char const* subject, Table<ArgumentRow> const& arguments,
                   GenericArgumentType const* types, GenericIf const* list);
  GenericArguments(GenericRow const& row, GenericIf const* list)
      : GenericArguments(row.name(), row.attribute->arguments, row.argumentTypes, list) {}

  /// An address for each parameter; null for a reference to nothing.
  void* const* values() const { return values_.data(); }

 private:
  /// A copy: neither consumed, nor changed by whoever is called meanwhile.
  GenericIf::List list_;
  std::vector<void*> values_;
};

}  // namespace Mox
