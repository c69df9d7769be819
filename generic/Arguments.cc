#include "generic/Arguments.h"

namespace Mox {
namespace {

GenericIf::List const& queueOf(GenericIf const* list) {
  if (!dynamic_cast<GenericIf::List_ const*>(list)) {
    GenericIf::throwTypeException("Mox::GenericIf::List_");
  }
  Ptr<MoxType const> const type(GenericIf::List::_fwkType());
  return *static_cast<GenericIf::List const*>(list->voidPtrIs(type));
}

}  // namespace

GenericArguments::GenericArguments(char const* subject, Table<ArgumentRow> const& arguments,
                                   GenericArgumentType const* types, GenericIf const* list)
    : list_(queueOf(list)), values_(arguments.count) {
  GenericIfListLink const* link = list_.head();
  for (std::size_t i = 0; i < arguments.count; ++i, link = link->next.get()) {
    GenericIf const* const element = link ? link->member().get() : nullptr;
    if (!link || (!element && !types[i].isEntity))
      GenericIf::throwTypeException(arguments.rows[i].name);
    if (element) values_[i] = element->voidPtrIs(Ptr<MoxType const>(types[i].type()));
  }
  if (link) GenericIf::throwUnknownArgException(subject);
}

}  // namespace Mox
