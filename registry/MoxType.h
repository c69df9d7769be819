// The run-time object of a type: its name, its base, and the factories that make an entity of it.
// Every entity type has one, immortal; the attribute log finds them by qualified name.
#pragma once

#include "Mox/Entity.h"
#include "Mox/Name.h"
#include "Mox/Ptr.h"

namespace Mox {

class Dir;
struct TypeText;
namespace NboAttrLog {
class In;
}

class MoxType : public Entity {
 public:
  /// `base` null: directly below nothing that is registered.
  MoxType(Name const& name, MoxType const* base);
  ~MoxType() override;

  MoxType const* baseType() const { return base_; }
  /// "Inventory::Arad::Qsgmii".
  Name const& qualifiedName() const { return qualifiedName_; }

  /// A new root named `name` in a directory; null for a type that only its owner makes.
  virtual Ptr<Entity> newEntity(Name const& name, Dir* dir) const;
  /// A new entity whose constructor arguments are read from `in`. Null for a type that is only a
  /// base. Throws what the arguments' types throw, before anything is allocated.
  virtual Ptr<Entity> newEntity(Ptr<NboAttrLog::In> const& in,
                                PtrInterface::NotifieeConst::Mox_BitSet flags, unsigned int version,
                                PtrInterface* parent) const;
  /// True for a type whose entities stand in a directory.
  virtual bool isRootType() const { return false; }
  /// The attributes as text.
  virtual TypeText const* typeText() const { return nullptr; }

  /// Records the qualified name of a type, once.
  static MoxType const* typeNodeIs(MoxType* type, Name const& qualifiedName);
  /// The type of that name; null for none.
  static MoxType const* typeNode(Name const& qualifiedName);

 private:
  MoxType const* base_;
  Name qualifiedName_;
};

}  // namespace Mox
