// Carriers: generic objects that hold a value. `carrier(v)` makes one, `valueOf<T>(g)` looks into
// one. One class carries the values of all plain types; enumerations have a class each, which
// generated code derives from EnumCarrier.
#pragma once

#include <cstddef>
#include <type_traits>

#include "generic/GenericIf.h"
#include "registry/ValueType.h"
#include "values/EnumSupport.h"

namespace MOX_API Mox {

/// What all carriers of one value answer: the attribute `value`, id 1, and the value's address for
/// its own type.
class GenericIfValue : public GenericIf {
 public:
  void* voidPtrIs(Ptr<MoxType const> const& type) const override;
  String8 attributeString(AttributeId attribute) const override;
  AttributeId attributeId(String8 name) const override;
  /// Knows the attribute 1 alone, whatever the operation: another carrier of the value.
  Ptr<GenericIf> attributeOp(AttributeOp const& op, Ptr<GenericIf const> const& index,
                             Ptr<GenericIf> const& value) override;

 protected:
  explicit GenericIfValue(bool isConst) : GenericIf(isConst) { moxRegisteredIs(true); }
  virtual void* moxAddress() const = 0;
};

/// Carries a value of any plain type.
class ValueCarrier final : public GenericIfValue {
 public:
  /// `value` null: the type's default.
  ValueCarrier(PlainValueType const& type, void const* value, bool isConst);
  /// Throws what the reading of the text throws.
  ValueCarrier(PlainValueType const& type, String8 const& text, bool isConst);
  ~ValueCarrier() override;

  // Carriers come and go with every read and write: a few places of each thread are used again.
  static void* operator new(std::size_t size);
  static void operator delete(void* memory, std::size_t size);

  Ptr<MoxType const> type() const override { return &type_; }
  void* voidPtrIs(Ptr<MoxType const> const& type) const override;
  String8 strRep() const override { return type_.ops().text(moxAddress()); }
  Ptr<GenericIf> clone() override { return new ValueCarrier(type_, moxAddress(), isConst()); }
  using GenericIf::clone;

 private:
  static constexpr std::size_t inlineSize = 16;
  bool isInline() const { return type_.ops().size <= inlineSize; }
  void* room();
  void* moxAddress() const override;

  PlainValueType const& type_;
  union {
    alignas(std::max_align_t) mutable std::byte bytes_[inlineSize];
    void* heap_;
  };
};

/// The base of the carrier of an enumeration `E`. `Self`: the class that derives from it.
template <class Self, class E>
class EnumCarrier : public GenericIfValue {
 public:
  EnumCarrier(E value, bool isConst) : GenericIfValue(isConst), enumValue_(value) {}

  E enumValue() const { return enumValue_; }
  void valIs(E value) { enumValue_ = value; }

  Ptr<MoxType const> type() const override { return typeOf<E>(); }
  String8 strRep() const override { return textOf(enumValue_); }
  Ptr<GenericIf> clone() override { return new Self(enumValue_, isConst()); }
  using GenericIf::clone;

 private:
  void* moxAddress() const override { return &enumValue_; }

  mutable E enumValue_;
};

/// A carrier of `value`.
template <class T>
Ptr<GenericIf> carrier(T const& value, bool isConst = false) {
  return typeOf<T>()->genericIf(static_cast<void const*>(&value), isConst);
}

/// What `carrier` carries; TypeException unless that is a `T`. Lives as long as the carrier, and
/// until its value is changed.
template <class T>
T const& valueOf(Ptr<GenericIf> const& carrier) {
  if (!carrier) GenericIf::throwTypeException(typeOf<T>()->name().charPtr());
  return *static_cast<T const*>(carrier->voidPtrIs(Ptr<MoxType const>(typeOf<T>())));
}

}  // namespace Mox
