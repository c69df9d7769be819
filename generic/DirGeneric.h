// The generic face of Mox::Dir, written by hand in the form of the generated ones.
#pragma once

#include "Mox/Dir.h"
#include "generic/GenericIfOf.h"

namespace MOX_API Mox {

/// A client that wants to be notified derives from it and overrides `onAttribute`. A new entry is
/// made of the arguments name and target.
class Dir::GenericIf_ : public GenericIfOf<Dir> {
 public:
  class GenericIf_Adapter_;

  GenericIf_(Ptr<Dir> const& entity, bool isConst);
  ~GenericIf_() override;

  static Ptr<GenericIf_Adapter_> GenericIf_Adapter_Is(Ptr<Dir> const& entity,
                                                      Ptr<GenericIf_> const& reactor);
  static GenericRows const& moxRows();

  // Called by the adapter.
  void onEntry(Name key) { moxKeyIs(entryId, key); }
  void onEntry() { onAttribute(entryId); }
};

/// Subscribes to the directory for its generic object.
class Dir::GenericIf_::GenericIf_Adapter_ : public GenericIfAdapter<Dir> {
 public:
  GenericIf_Adapter_(Ptr<Dir> const& entity, Ptr<GenericIf_> const& reactor);
  ~GenericIf_Adapter_() override;

  static GenericRows const& moxRows();

  void onEntry(Name key) override;
  void onEntry() override;
};

}  // namespace Mox
