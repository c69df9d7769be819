#include "registry/IntrospectionReactor.h"

#include <cassert>
#include <cstdio>

#include "registry/Module.h"

namespace Mox {
namespace {

Ptr<IntrospectionReactor>& globalReactor() {
  static auto* const reactor =
      new Ptr<IntrospectionReactor>(static_cast<IntrospectionReactor*>(new RecordingReactor));
  return *reactor;
}

std::string nameOf(MoxType const* type) { return type ? std::string(type->name().view()) : "none"; }

std::string textOf(MoxAttr const& attribute) {
  char flags[64];
  std::snprintf(flags, sizeof flags, " 0x%x 0x%08x 0x%08x 0x%x",
                static_cast<unsigned int>(attribute.id()), attribute.flags().word0,
                attribute.flags().word1, attribute.introspectionFlags());
  std::string text = std::string(attribute.name().view()) + flags + " " + nameOf(attribute.type());
  if (attribute.keyType()) text += " [" + nameOf(attribute.keyType()) + "]";
  if (attribute.definer() != attribute.owner()) text += " of " + nameOf(attribute.definer());
  return text;
}

/// Everything that the reactor of the process hasn't seen: modules described to others, then those
/// that wait for a reactor.
void describeModules(IntrospectionReactor& reactor) {
  try {
    replayModules(reactor);
  } catch (...) {
    initWaitingModules();
    throw;
  }
  initWaitingModules();
}

}  // namespace

IntrospectionReactor::IntrospectionReactor() : readiness_(new Readiness) {}
IntrospectionReactor::~IntrospectionReactor() = default;

Ptr<IntrospectionReactor> IntrospectionReactor::global() { return globalReactor(); }
void IntrospectionReactor::globalIs(Ptr<IntrospectionReactor> const& reactor) {
  globalReactor() = reactor;
  if (reactor && reactor->isReady()) describeModules(**reactor);
}

void IntrospectionReactor::isReadyIs(bool ready) {
  readiness_->isReady_ = ready;
  if (ready && globalReactor() == Ptr<IntrospectionReactor>(this)) describeModules(*this);
}

void IntrospectionReactor::handleNameSpace(char const*) {}
void IntrospectionReactor::handleType(Ptr<MoxType const> const&, Ptr<MoxType const> const&) {}
void IntrospectionReactor::handleAttr(Ptr<MoxAttr> const&) {}
void IntrospectionReactor::handleAttrContextExit() {}
void IntrospectionReactor::handleScopeExit() {}

Ptr<MoxAttr> IntrospectionReactor::defNoninstantiatingAttr(
    Ptr<MoxType> const& owner, Name const& name, Ptr<MoxType> const& valueType,
    Ptr<MoxType> const& keyType, MoxAttr::AttrFlags const& flags,
    MoxAttr::MoxAttrIntrospectionFlags introspectionFlags, AttributeId id) {
  Ptr<MoxAttr> attribute = owner->attributes().attrIs(name, valueType, nullptr, nullptr, flags, id);
  if (keyType) attribute->attrKeyTypeIs(keyType);
  attribute->attrIntrospectionFlagsIs(introspectionFlags);
  owner->attributeQEnq(attribute);
  return attribute;
}

RecordingReactor::~RecordingReactor() = default;

void RecordingReactor::line(std::string const& text) {
  trace_.append(2 * depth_, ' ').append(text).append(1, '\n');
}

void RecordingReactor::handleNameSpace(char const* name) {
  line(std::string("namespace ") + name);
  ++depth_;
}

void RecordingReactor::handleType(Ptr<MoxType const> const& type,
                                  Ptr<MoxType const> const& parent) {
  types_.push_back(type.get());
  line("type " + std::string(type->name().view()) + " : " + nameOf(parent.get()));
  ++depth_;
}

Ptr<MoxAttr> RecordingReactor::defNoninstantiatingAttr(
    Ptr<MoxType> const& owner, Name const& name, Ptr<MoxType> const& valueType,
    Ptr<MoxType> const& keyType, MoxAttr::AttrFlags const& flags,
    MoxAttr::MoxAttrIntrospectionFlags introspectionFlags, AttributeId id) {
  Ptr<MoxAttr> attribute = IntrospectionReactor::defNoninstantiatingAttr(
      owner, name, valueType, keyType, flags, introspectionFlags, id);
  line("define " + textOf(**attribute));
  return attribute;
}

void RecordingReactor::handleAttr(Ptr<MoxAttr> const& attribute) {
  line("attribute " + textOf(**attribute));
  ++depth_;
}

void RecordingReactor::handleAttrContextExit() {
  --depth_;
  line("end of attribute");
}

void RecordingReactor::handleScopeExit() {
  assert(depth_ > 0);
  --depth_;
  line("end");
}

}  // namespace Mox
