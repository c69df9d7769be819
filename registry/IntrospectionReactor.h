// Receives every type as its module describes it: name spaces, types and attributes, strictly
// nested. One reactor serves the process; the one that it starts with records the whole graph.
#pragma once

#include <string>
#include <vector>

#include "Mox/Name.h"
#include "Mox/Ptr.h"
#include "Mox/PtrInterface.h"
#include "registry/MoxType.h"

namespace MOX_API Mox {

struct Module;

class IntrospectionReactor : public PtrInterface {
 public:
  /// Whether the framework is ready for descriptions of types. Modules that are loaded before that
  /// are described when it is.
  class Readiness : public PtrInterface {
   public:
    bool isReady() const { return isReady_; }

   private:
    friend class IntrospectionReactor;
    bool isReady_ = true;
  };

  IntrospectionReactor();
  ~IntrospectionReactor() override;

  /// The reactor of the process.
  static Ptr<IntrospectionReactor> global();
  /// Puts another one in its place, and describes to it what it hasn't seen. An exception of the
  /// reactor passes through once every module has been described.
  static void globalIs(Ptr<IntrospectionReactor> const& reactor);

  virtual void handleNameSpace(char const* name);
  virtual void handleType(Ptr<MoxType const> const& type, Ptr<MoxType const> const& parent);
  /// Makes an attribute of `owner` that owns no entity, and appends it.
  virtual Ptr<MoxAttr> defNoninstantiatingAttr(
      Ptr<MoxType> const& owner, Name const& name, Ptr<MoxType> const& valueType,
      Ptr<MoxType> const& keyType, MoxAttr::AttrFlags const& flags,
      MoxAttr::MoxAttrIntrospectionFlags introspectionFlags, AttributeId id);
  /// An attribute made by other means: it owns entities, is inherited, or was defined before this
  /// reactor was the one of the process.
  virtual void handleAttr(Ptr<MoxAttr> const& attribute);
  virtual void handleAttrContextExit();
  /// The end of the latest type or name space.
  virtual void handleScopeExit();

  /// Null: not ready.
  Ptr<Readiness> const& readiness() const { return readiness_; }
  bool isReady() const { return readiness_ && readiness_->isReady(); }
  /// When the reactor of the process becomes ready, modules that wait are described to it.
  void isReadyIs(bool ready);

  /// The module that was described to this reactor last; null for none.
  Module const* moxLatestModule() const { return latestModule_; }
  void moxLatestModuleIs(Module const* module) { latestModule_ = module; }

 private:
  Module const* latestModule_ = nullptr;
  Ptr<Readiness> readiness_;
};

/// Keeps the types in the order in which they were described, and the events as text.
class RecordingReactor : public IntrospectionReactor {
 public:
  ~RecordingReactor() override;

  void handleNameSpace(char const* name) override;
  void handleType(Ptr<MoxType const> const& type, Ptr<MoxType const> const& parent) override;
  Ptr<MoxAttr> defNoninstantiatingAttr(Ptr<MoxType> const& owner, Name const& name,
                                       Ptr<MoxType> const& valueType, Ptr<MoxType> const& keyType,
                                       MoxAttr::AttrFlags const& flags,
                                       MoxAttr::MoxAttrIntrospectionFlags introspectionFlags,
                                       AttributeId id) override;
  void handleAttr(Ptr<MoxAttr> const& attribute) override;
  void handleAttrContextExit() override;
  void handleScopeExit() override;

  /// Every type that was described.
  std::vector<MoxType const*> const& types() const { return types_; }
  /// One line for each event, indented by scope.
  std::string const& trace() const { return trace_; }

 private:
  void line(std::string const& text);

  std::vector<MoxType const*> types_;
  std::string trace_;
  std::size_t depth_ = 0;
};

}  // namespace Mox
