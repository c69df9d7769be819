#include "generic/Carrier.h"

namespace Mox {
namespace {

constexpr AttributeId valueId = 1;

/// Memory of carriers that have gone, for the next ones of this thread.
class Places {
 public:
  ~Places() {
    while (count_ != 0) ::operator delete(places_[--count_]);
    // What goes later still finds no room.
    count_ = limit;
    isOver_ = true;
  }
  void* take() { return count_ != 0 && !isOver_ ? places_[--count_] : nullptr; }
  bool put(void* place) {
    if (count_ == limit) return false;
    places_[count_++] = place;
    return true;
  }

 private:
#ifdef __SANITIZE_ADDRESS__
  static constexpr unsigned limit = 0;  // A carrier that is used too late is to be found.
#else
  static constexpr unsigned limit = 8;
#endif
  void* places_[limit + 1] = {};
  unsigned count_ = 0;
  bool isOver_ = false;
};
[[gnu::tls_model("initial-exec")]] thread_local constinit Places places;

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
  if (auto const destroy = type_.ops().destroy) destroy(moxAddress());
  if (!isInline()) ::operator delete(heap_);
}

void* ValueCarrier::operator new(std::size_t size) {
  void* const place = places.take();
  return place ? place : PtrInterface::operator new(size);
}
void ValueCarrier::operator delete(void* memory, std::size_t size) {
  if (!places.put(memory)) PtrInterface::operator delete(memory, size);
}

void* ValueCarrier::voidPtrIs(Ptr<MoxType const> const& asked) const {
  if (asked.get() == &type_) [[likely]]
    return moxAddress();
  throwTypeException(type_.name().charPtr());
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
