#include "simulation/Values.h"

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <unordered_map>

#include "Mox/Exception.h"
#include "generic/Carrier.h"
#include "generic/Text.h"

namespace Mox::Simulation {
namespace {

constexpr std::size_t fewCount = 5;
/// Identifiers whose range begins above this number are given up.
constexpr unsigned int highestFirst = 70000;

/// Texts that value classes of many kinds accept, tried one by one.
constexpr char const* sampleTexts[] = {"0",   "1",    "2",     "3",    "2.5", "0:1", "1:4",
                                       "'a'", "'b'",  "'a b'", "none", "-1",  "17",  "a",
                                       "b",   "true", "1/2",   "1-2",  "1,2"};

}  // namespace

Values const& Values::of(MoxType const& type) {
  // Immortal, like the values that it holds.
  static auto& known = *new std::unordered_map<MoxType const*, std::unique_ptr<Values>>;
  std::unique_ptr<Values>& values = known[&type];
  if (!values) values.reset(new Values(type));
  return *values;
}

Values::Values(MoxType const& type) : type_(type) {
  if (&type == typeOf<String8>() || &type == typeOf<Name>()) {
    form_ = &type == typeOf<Name>() ? Form::name : Form::text;
    for (std::size_t at = 0; at != fewCount; ++at) few_.push_back(text(format("k%zu", at)));
    rare_ = {text(String8()), text(format("k%0400u", 1u))};
    if (form_ == Form::name) rare_.clear();
  } else if (type.isEnumType()) {
    form_ = Form::enumeration;
    findEnumerators();
  } else if (&type == typeOf<bool>()) {
    few_ = {carrier(false), carrier(true)};
  } else if (valueForm(type) == ValueForm::number) {
    findNumbers();
  } else if (dynamic_cast<PlainValueType const*>(&type)) {
    findSamples();
  }
  // Made once, and no part of any history.
  for (auto const* list : {&few_, &rare_}) {
    for (Ptr<GenericIf> const& one : *list) one->referencesLeak();
  }
}

Ptr<GenericIf> Values::read(String8 const& text) const {
  try {
    return type_.genericIf(text, false);
  } catch (Exception const&) {
    return {};
  }
}
Ptr<GenericIf> Values::text(String8 const& text) const {
  return form_ == Form::name ? carrier(Name(text)) : carrier(text);
}
bool Values::keep(String8 const& text) {
  Ptr<GenericIf> const value = read(text);
  if (!value) return false;
  for (Ptr<GenericIf> const& known : few_) {
    if (known->strRep() == value->strRep()) return false;
  }
  few_.push_back(value);
  return true;
}

void Values::findNumbers() {
  unsigned int first = 0;
  while (first != highestFirst && !keep(format("%u", first))) ++first;
  for (unsigned int next = first + 1; next != first + fewCount; ++next) keep(format("%u", next));
  if (few_.empty()) return;
  form_ = read("2000000000") ? Form::wideNumber : Form::narrowNumber;
  for (char const* const text : {"-7", "127", "255", "32767", "65535", "4294967295"}) {
    if (Ptr<GenericIf> const value = read(text)) rare_.push_back(value);
  }
}

void Values::findEnumerators() {
  for (MoxType::AttributeQ::IteratorConst at(&type_.attributeQ()); at; ++at) {
    // The last attribute is the value itself.
    if (at->name() == Name("value")) continue;
    if (few_.size() != fewCount) keep("'" + String8(at->name()) + "'");
  }
  // A newer peer may know more enumerators.
  std::int32_t const unknown = 77;
  if (Ptr<GenericIf> const value = type_.genericIf(static_cast<void const*>(&unknown), false)) {
    rare_.push_back(value);
  }
}

void Values::findSamples() {
  if (Ptr<GenericIf> const value = type_.genericIf(static_cast<void const*>(nullptr), false)) {
    few_.push_back(value);
  }
  for (char const* const text : sampleTexts) {
    if (few_.size() != fewCount) keep(text);
  }
  if (read("2000000000") && read("1999999999")->strRep() != read("2000000000")->strRep()) {
    form_ = Form::wideNumber;
  }
}

Ptr<GenericIf> Values::few(Chance& chance, unsigned int most) const {
  auto const count = static_cast<unsigned int>(few_.size());
  return few_[chance.below(std::min(most, count))];
}

Ptr<GenericIf> Values::key(Chance& chance, unsigned int most) const {
  if (isText() && chance.oneIn(25)) return rare_[chance.below(2)];
  return few(chance, most);
}

Ptr<GenericIf> Values::any(Chance& chance) const {
  if (form_ == Form::text) return text(chance.text());
  if (form_ == Form::name) return text(chance.text(60));
  if (!rare_.empty() && chance.oneIn(form_ == Form::narrowNumber ? 4 : 20)) {
    return rare_[chance.below(static_cast<unsigned int>(rare_.size()))];
  }
  if (form_ == Form::wideNumber) return read(format("%u", chance.fresh()));
  return few(chance, fewCount);
}

std::string Values::wireBytes(Chance& chance) const {
  auto const bigEndian = [](std::uint64_t number, std::size_t width) {
    std::string bytes;
    while (width-- != 0) bytes.push_back(static_cast<char>(number >> (8 * width)));
    return bytes;
  };
  if (form_ == Form::text || form_ == Form::name) {
    std::string const text = "part" + std::to_string(chance.fresh());
    return bigEndian(text.size(), 4) + text;
  }
  if (form_ == Form::enumeration) return bigEndian(0, 4);
  if (&type_ == typeOf<double>()) return bigEndian(0, 8);
  auto const* const plain = dynamic_cast<PlainValueType const*>(&type_);
  if (!plain || !plain->ops().isNumber) return {};
  return bigEndian(std::strtoull(few(chance, 2)->strRep().charPtr(), nullptr, 10),
                   plain->ops().size);
}

}  // namespace Mox::Simulation
