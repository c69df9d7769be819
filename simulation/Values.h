// Random values of a value type, found through the registry alone: a few that collide and come
// back, for keys and constructor arguments, and many that differ, for what is stored. One instance
// for each type, immortal.
#pragma once

#include <string>
#include <vector>

#include "generic/GenericIf.h"
#include "registry/MoxType.h"
#include "simulation/Chance.h"

namespace Mox::Simulation {

class Values {
 public:
  static Values const& of(MoxType const& type);

  /// False for a type that nothing could be drawn for: its attributes are left alone.
  bool hasSome() const { return !few_.empty(); }
  /// One of the first `most` values of the type's small set.
  Ptr<GenericIf> few(Chance& chance, unsigned int most) const;
  /// One of the small set, or for a text key an unusual one: empty, or long.
  Ptr<GenericIf> key(Chance& chance, unsigned int most) const;
  /// Any value; a new text, and a new number where the type's range has room for it.
  Ptr<GenericIf> any(Chance& chance) const;

  /// The small set by number, from its beginning again behind its end. Requires: hasSome().
  Ptr<GenericIf> at(std::size_t number) const { return few_[number % few_.size()]; }
  Ptr<GenericIf> first() const { return at(0); }
  Ptr<GenericIf> second() const { return at(1); }

  bool isText() const { return form_ == Form::text; }
  /// True when `any` draws numbers, each larger than all before.
  bool isIncreasing() const { return form_ == Form::wideNumber; }

  /// The bytes of one of the small set as a message carries them; empty for a value class, whose
  /// bytes the registry doesn't know.
  std::string wireBytes(Chance& chance) const;

 private:
  enum class Form : unsigned char { text, name, wideNumber, narrowNumber, enumeration, sampled };

  explicit Values(MoxType const& type);
  void findNumbers();
  void findEnumerators();
  void findSamples();
  Ptr<GenericIf> read(String8 const& text) const;
  Ptr<GenericIf> text(String8 const& text) const;
  bool keep(String8 const& text);

  MoxType const& type_;
  Form form_ = Form::sampled;
  std::vector<Ptr<GenericIf>> few_;
  std::vector<Ptr<GenericIf>> rare_;
};

}  // namespace Mox::Simulation
