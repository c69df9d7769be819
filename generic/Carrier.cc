#include "generic/Carrier.h"

namespace Mox {
namespace {

constexpr AttributeId valueId = 1;

}  // namespace

void* GenericIfValue::voidPtrIs(Ptr<MoxType const> const& asked) const {
  Ptr<MoxType const> const own = type();
  if (own != asked) throwTypeException(own->name().charPtr());
  return moxAddress();
}

String8 GenericIfValue::attributeString(AttributeId attribute) const {
  return attribute == valueId ? String8("value") : GenericIf::attributeString(attribute);
}

AttributeId GenericIfValue::attributeId(String8 name) const {
  Ptr<MoxType const> const own = type();
  if (Ptr<MoxAttr const> const attribute = own->attributes().attr(Name(name))) {
    return attribute->id();
  }
  return name == "value" ? valueId : GenericIf::attributeId(name);
}

Ptr<GenericIf> GenericIfValue::attributeOp(AttributeOp const& op, Ptr<GenericIf const> const&,
                                           Ptr<GenericIf> const&) {
  Ptr<MoxType const> const own = type();
  if (op.attributeId != valueId) throwUnknownAttrException(own->name().charPtr());
  return own->genericIf(static_cast<void const*>(moxAddress()), false);
}

ValueCarrier::ValueCarrier(PlainValueType const& type, void const* value, bool isConst)
    : GenericIfValue(isConst), type_(type) {
  type_.ops().copy(room(), value);
}

ValueCarrier::ValueCarrier(PlainValueType const& type, String8 const& text, bool isConst)
    : GenericIfValue(isConst), type_(type) {
  try {
    type_.ops().read(room(), text);
  } catch (...) {
    if (!isInline()) ::operator delete(heap_);
    throw;
  }
}

ValueCarrier::~ValueCarrier() {
  type_.ops().destroy(moxAddress());
  if (!isInline()) ::operator delete(heap_);
}

void* ValueCarrier::room() {
  if (!isInline()) heap_ = ::operator new(type_.ops().size);
  return moxAddress();
}

void* ValueCarrier::moxAddress() const { return isInline() ? bytes_ : heap_; }

Ptr<GenericIf> PlainValueType::genericIf(void const* value, bool isConst) const {
  return new ValueCarrier(*this, value, isConst);
}
Ptr<GenericIf> PlainValueType::genericIf(String8 const& text, bool isConst) const {
  return new ValueCarrier(*this, text, isConst);
}

}  // namespace Mox
