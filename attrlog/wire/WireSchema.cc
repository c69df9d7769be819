// The models of the process, found by the names of their types.
#include "attrlog/wire/WireSchema.h"

namespace Mox::NboAttrLog {
namespace {

WireTypes const*& firstModel() {
  static WireTypes const* first = nullptr;
  return first;
}

}  // namespace

WireTypes::WireTypes(WireType const* types, std::size_t count)
    : types_(types), count_(count), next_(firstModel()) {
  firstModel() = this;
}

WireType const* wireType(std::string_view qualifiedName) {
  for (WireTypes const* model = firstModel(); model != nullptr; model = model->next_) {
    for (std::size_t i = 0; i < model->count_; ++i) {
      if (qualifiedName == model->types_[i].qualifiedName) return model->types_ + i;
    }
  }
  return nullptr;
}

WireAttr const* WireType::attr(AttributeId id) const {
  for (std::size_t i = 0; i < count; ++i) {
    if (attrs[i].row.id == id) return attrs + i;
  }
  WireType const* const above = base ? wireType(base) : nullptr;
  return above ? above->attr(id) : nullptr;
}

}  // namespace Mox::NboAttrLog
