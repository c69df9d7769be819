// What the simulation does with an entity type: its attributes with the values that each takes,
// read from the registry once. Types are immortal, and so are their outlines.
#pragma once

#include <unordered_set>
#include <vector>

#include "generic/Text.h"
#include "simulation/Values.h"

namespace Mox::Simulation {

/// A constructor argument.
struct Argument {
  MoxType const* type = nullptr;
  /// Null for a reference to an entity.
  Values const* values = nullptr;
};

struct Attribute {
  MoxAttr const* attribute = nullptr;
  AttributeForm form = AttributeForm::other;
  Values const* keys = nullptr;          ///< of a collection
  Values const* values = nullptr;        ///< of a value or a collection of values
  std::vector<Argument> arguments = {};  ///< of what makes a child, the key's first
  unsigned int weight = 1;               ///< its share of random changes

  AttributeId id() const { return attribute->id(); }
  bool isCollection() const {
    return form == AttributeForm::children || form == AttributeForm::values;
  }
  bool ownsChildren() const {
    return form == AttributeForm::children || form == AttributeForm::child;
  }
};

class Outline {
 public:
  static Outline const& of(MoxType const& type);

  std::vector<Attribute> const& attributes() const { return attributes_; }
  /// Null for an id that no attribute with a content of its own has.
  Attribute const* find(AttributeId id) const;
  /// An attribute that can be changed, each of the type and of what it owns equally likely. Null
  /// for a type that never changes.
  Attribute const* any(Chance& chance) const;
  /// The constructor's arguments, those of a root included.
  std::vector<Argument> const& arguments() const { return arguments_; }
  /// The types that entities of this one may lead to, by references or ownership; itself included.
  std::unordered_set<MoxType const*> const& reached() const;
  /// A reference from such a type to this one could close a circle, which would never be released.
  bool mayLeadTo(MoxType const& target) const { return reached().contains(&target); }

 private:
  explicit Outline(MoxType const& type) : type_(type) {}
  void fill();
  unsigned int weight(unsigned int depth) const;

  MoxType const& type_;
  std::vector<Attribute> attributes_;
  std::vector<Argument> arguments_;
  unsigned int weight_ = 0;
  mutable std::unordered_set<MoxType const*> reached_;
};

/// The root types of all models in the process; with a name, the one of that qualified name alone.
std::vector<MoxType const*> rootTypes(String8 const& qualifiedName = {});

}  // namespace Mox::Simulation
