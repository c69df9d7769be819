#include "registry/MoxType.h"

#include "Mox/Hooks.h"

#include <map>

namespace Mox {
namespace {

/// The types of the process by qualified name; immortal, for they are asked until the end.
std::map<Name, MoxType const*>& nodesByName() {
  static auto* const nodes = new std::map<Name, MoxType const*>;
  return *nodes;
}

// Queues of a type are keyed by the order of entry. Types have no subscribers, so that the
// notifying operations of the queues tell nobody.

template <class Queue, class Member>
void enqueue(Queue& queue, Ptr<Member> const& member) {
  unsigned int key = 0;
  for (auto const* link = queue.head(); link; link = link->next.get()) key = link->key() + 1;
  queue.enq(key, member);
}

/// The member under `key`, in place of one that stands there.
template <class Queue, class Member>
void place(Queue& queue, unsigned int key, Ptr<Member> const& member) {
  queue.del(key);
  queue.enq(key, member);
}

Ptr<TypeName> typeName(Name const& name) { return Ptr<TypeName>(new TypeName(name)); }

MoxAttr const* attributeOf(Entity const& entity, AttributeId attribute) {
  MoxType const* const type = entity.fwkType();
  return type ? type->attr(attribute) : nullptr;
}

/// `serdes[5]`, or without a key for what is no collection.
String8 pathStep(Entity const& child) {
  Entity const& parent = *child.moxRawParent();
  String8 const name = parent.attributeString(child.parentAttrId());
  MoxAttr const* const attribute = attributeOf(parent, child.parentAttrId());
  if (attribute && !attribute->keyType()) return name;
  MoxType const* const type = child.fwkType();
  return name + "[" + (type && type->keyText() ? type->keyText()(child) : child.name()) + "]";
}

[[maybe_unused]] bool const hooksAreSet = [] {
  hooks.attribute = &attributeOf;
  hooks.pathStep = &pathStep;
  return true;
}();

}  // namespace

MoxType::MoxType(Name const& name, MoxType* parent, MoxType* base, MoxTypeFlags const& flags)
    : Entity(name), base_(base), flags_(flags), attributes_(new MoxAttr(this)) {
  if (parent) parentIs(Ptr<Entity>(parent));
}
MoxType::~MoxType() = default;

Ptr<Entity> MoxType::newEntity(Name const&, Dir*) const { return {}; }
Ptr<Entity> MoxType::newEntity(Ptr<NboAttrLog::In> const&, PtrInterface::NotifieeConst::Mox_BitSet,
                               unsigned int, PtrInterface*) const {
  return {};
}
void MoxType::childAttrLogIs(Ptr<MoxAttr const> const& attr, Ptr<PtrInterface> const& child,
                             Ptr<NboAttrLog::Out> const& out) const {
  if (base_) base_->childAttrLogIs(attr, child, out);
}
void MoxType::typeFlagsDoEmbeddedWriteConstraints() {}

Ptr<MoxType> MoxType::nestedTypeDel(Name const& name) {
  Ptr<MoxNestedType> const member = nestedTypes_[name];
  if (!member) return {};
  nestedTypes_.deleteMember(member);
  return member->value();
}
Ptr<MoxType> MoxType::nestedTypeDel(NestedTypes::Iterator const& at) {
  return at ? nestedTypeDel(at.key()) : Ptr<MoxType>();
}
void MoxType::nestedTypeNotify(Name const&) {}
void MoxType::nestedTypeIs(Name const& name, Ptr<MoxType> const& type) {
  nestedTypeDel(name);
  nestedTypes_.newMember(Ptr<MoxNestedType>(new MoxNestedType(name, type)));
}
void MoxType::type_AttrIs(Ptr<MoxAttr> const& attribute) { attributes_->attrIs(attribute); }

Ptr<MoxAttr> MoxType::referringAttrQDel(unsigned int key) { return referringAttrQ_.del(key); }
Ptr<MoxAttr> MoxType::referringAttrQDel(ReferringAttrQ::IteratorConst const& at) {
  return at ? referringAttrQ_.del(at.key()) : Ptr<MoxAttr>();
}
void MoxType::referringAttrQNotify(unsigned int) {}
void MoxType::referringAttrQEnq(Ptr<MoxAttr> const& attribute) {
  enqueue(referringAttrQ_, attribute);
}
Ptr<MoxAttr> MoxType::referringAttrQDeq() { return referringAttrQ_.deq(); }
void MoxType::referringAttrQIs(unsigned int key, Ptr<MoxAttr> const& attribute) {
  place(referringAttrQ_, key, attribute);
}

Ptr<MoxType> MoxType::derivedTypeQDel(unsigned int key) { return derivedTypeQ_.del(key); }
Ptr<MoxType> MoxType::derivedTypeQDel(DerivedTypeQ::IteratorConst const& at) {
  return at ? derivedTypeQ_.del(at.key()) : Ptr<MoxType>();
}
void MoxType::derivedTypeQNotify(unsigned int) {}
void MoxType::derivedTypeQEnq(Ptr<MoxType> const& type) { enqueue(derivedTypeQ_, type); }
Ptr<MoxType> MoxType::derivedTypeQDeq() { return derivedTypeQ_.deq(); }
void MoxType::derivedTypeQIs(unsigned int key, Ptr<MoxType> const& type) {
  place(derivedTypeQ_, key, type);
}

void MoxType::typeFlagsIs(MoxTypeFlags const& flags) { flags_ = flags; }
void MoxType::sizeIs(unsigned int size) { size_ = size; }
void MoxType::valAttrIs(MoxAttr* attribute) const { valAttr_ = attribute; }
void MoxType::defaultCollectionIs(Ptr<MoxAttr> const& attribute) { defaultCollection_ = attribute; }

Ptr<MoxAttr> MoxType::attributeQDel(unsigned int key) {
  Ptr<MoxAttr> const attribute = attributeQ_.del(key);
  if (!attribute) return {};
  attributeQIdxDel(attribute->name());
  attributes_->attrDel(attribute->name());
  return attribute;
}
Ptr<MoxAttr> MoxType::attributeQDel(AttributeQ::IteratorConst const& at) {
  return at ? attributeQDel(at.key()) : Ptr<MoxAttr>();
}
void MoxType::attributeQNotify(unsigned int) {}
void MoxType::attributeQEnq(Ptr<MoxAttr> const& attribute) {
  attributeQIs(nextAttributeKey_, attribute);
}
Ptr<MoxAttr> MoxType::attributeQDeq() {
  MoxAttributeQ const* const first = attributeQ_.head();
  return first ? attributeQDel(first->key()) : Ptr<MoxAttr>();
}
void MoxType::attributeQIs(unsigned int key, Ptr<MoxAttr> const& attribute) {
  Ptr<MoxAttr> const hold = attribute;
  if (MoxAttributeQIdx const* const older = attributeQIdx_[hold->name()])
    attributeQDel(older->value());
  attributeQDel(key);
  attributeQ_.enq(key, hold);
  if (key >= nextAttributeKey_) nextAttributeKey_ = key + 1;
  attributeQIdxIs(hold->name(), key);
  attributes_->attrIs(hold);
}

bool MoxType::attributeQIdxDel(Name const& name) {
  Ptr<MoxAttributeQIdx> const member = attributeQIdx_[name];
  if (!member) return false;
  attributeQIdx_.deleteMember(member);
  return true;
}
bool MoxType::attributeQIdxDel(AttributeQIdx::Iterator const& at) {
  return at && attributeQIdxDel(at.key());
}
void MoxType::attributeQIdxNotify(Name const&) {}
void MoxType::attributeQIdxIs(Name const& name, unsigned int key) {
  attributeQIdxDel(name);
  attributeQIdx_.newMember(Ptr<MoxAttributeQIdx>(new MoxAttributeQIdx(name, key)));
}

Ptr<TypeName> MoxType::constructorArgNameQDel(unsigned int key) {
  return constructorArgNameQ_.del(key);
}
Ptr<TypeName> MoxType::constructorArgNameQDel(TypeNameQ::IteratorConst const& at) {
  return at ? constructorArgNameQ_.del(at.key()) : Ptr<TypeName>();
}
void MoxType::constructorArgNameQNotify(unsigned int) {}
void MoxType::constructorArgNameQEnq(Name const& name) {
  enqueue(constructorArgNameQ_, typeName(name));
}
Ptr<TypeName> MoxType::constructorArgNameQDeq() { return constructorArgNameQ_.deq(); }
void MoxType::constructorArgNameQIs(unsigned int key, Name const& name) {
  place(constructorArgNameQ_, key, typeName(name));
}

Ptr<TypeName> MoxType::constructorArgTypeQDel(unsigned int key) {
  return constructorArgTypeQ_.del(key);
}
Ptr<TypeName> MoxType::constructorArgTypeQDel(TypeNameQ::IteratorConst const& at) {
  return at ? constructorArgTypeQ_.del(at.key()) : Ptr<TypeName>();
}
void MoxType::constructorArgTypeQNotify(unsigned int) {}
void MoxType::constructorArgTypeQEnq(Name const& name) {
  enqueue(constructorArgTypeQ_, typeName(name));
}
Ptr<TypeName> MoxType::constructorArgTypeQDeq() { return constructorArgTypeQ_.deq(); }
void MoxType::constructorArgTypeQIs(unsigned int key, Name const& name) {
  place(constructorArgTypeQ_, key, typeName(name));
}

MoxAttr const* MoxType::attr(AttributeId id) const {
  for (AttributeQ::IteratorConst it(&attributeQ_); it; ++it) {
    if (it->id() == id) return *it;
  }
  return nullptr;
}

Name MoxType::qualifiedName() const { return qualifiedName_.empty() ? name() : qualifiedName_; }

void MoxType::typeNodeIs(MoxType const* type, Name const& qualifiedName) {
  nodesByName()[qualifiedName] = type;
  type->qualifiedName_ = qualifiedName;
}

MoxType const* MoxType::typeNode(Name const& qualifiedName) {
  auto const node = nodesByName().find(qualifiedName);
  return node == nodesByName().end() ? nullptr : node->second;
}

std::vector<MoxType const*> MoxType::typeNodes() {
  std::vector<MoxType const*> types;
  for (auto const& [name, type] : nodesByName()) types.push_back(type);
  return types;
}

}  // namespace Mox
