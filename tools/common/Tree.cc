// Members, paths, completion.
#include "tools/common/Tree.h"

#include <algorithm>
#include <utility>

#include "Mox/Exception.h"
#include "attrlog/wire/ShownText.h"
#include "values/EntityPath.h"
#include "values/ValueText.h"

namespace Tools {
namespace {

using Mox::AttributeForm;
using Mox::Entity;
using Mox::GenericIf;
using Mox::MoxAttr;
using Mox::Ptr;
using Mox::String8;
using Op = GenericIf::AttributeOp;

bool isNumber(std::string_view text) {
  if (text.starts_with('-')) text.remove_prefix(1);
  return !text.empty() && text.find_first_not_of("0123456789") == std::string_view::npos;
}

/// Numbers by value, all else by bytes.
bool keyLess(Member const& a, Member const& b) {
  if (!isNumber(a.key) || !isNumber(b.key)) return a.key < b.key;
  std::string_view left = a.key;
  std::string_view right = b.key;
  bool const isNegative = left.starts_with('-');
  if (isNegative != right.starts_with('-')) return isNegative;
  if (isNegative) std::swap(left, right);
  return left.size() != right.size() ? left.size() < right.size() : left < right;
}

Member memberOf(std::string const& key, MoxAttr const& attribute, Ptr<GenericIf> const& value) {
  if (ownsEntities(attribute)) return {key, "", Mox::entityOf(value)};
  return {key, toStd(value->strRep()), {}};
}

}  // namespace

std::string toStd(String8 const& text) { return {text.charPtr(), text.length()}; }

std::string titleOf(Entity const& entity) {
  return toStd(entity.fwkType()->qualifiedName()) + " " + toStd(Mox::textOf(entity.name()));
}

bool ownsEntities(MoxAttr const& attribute) {
  AttributeForm const form = Mox::attributeForm(attribute);
  return form == AttributeForm::child || form == AttributeForm::children;
}

Ptr<GenericIf> Node::op(MoxAttr const& attribute, Op::OpId id,
                        Ptr<GenericIf const> const& key) const {
  return generic_->attributeOp({attribute.id(), id}, key, {});
}

std::string Node::value(MoxAttr const& attribute) const {
  Ptr<GenericIf> const value = op(attribute, Op::attrGet);
  return value ? toStd(value->strRep()) : "''";
}

Ptr<Entity> Node::child(MoxAttr const& attribute) const {
  return Mox::entityOf(op(attribute, Op::attrGet));
}

std::size_t Node::count(MoxAttr const& attribute) const {
  return Mox::valueOf<unsigned int>(op(attribute, Op::attrCount));
}

std::vector<Member> Node::members(MoxAttr const& attribute) const {
  std::vector<Member> members;
  for (Mox::AttributeWalk at(generic_, attribute.id()); at; ++at) {
    members.push_back(memberOf(toStd(Mox::keyText(at.key())), attribute, at.value()));
  }
  std::sort(members.begin(), members.end(), keyLess);
  return members;
}

std::optional<Member> Node::member(MoxAttr const& attribute,
                                   Ptr<GenericIf const> const& key) const {
  if (!Mox::valueOf<bool>(op(attribute, Op::attrExists, key))) return std::nullopt;
  return memberOf(toStd(Mox::keyText(key)), attribute, op(attribute, Op::attrGet, key));
}

std::vector<Ptr<Entity>> rootsOf(Mox::Dir const& roots) {
  std::vector<Ptr<Entity>> result;
  for (auto entry = roots.entryIteratorConst(); entry; ++entry) result.push_back(entry->target());
  std::sort(result.begin(), result.end(),
            [](auto const& a, auto const& b) { return a->name() < b->name(); });
  return result;
}

Place placeOf(std::string const& path) {
  if (Ptr<Entity> const entity = Mox::EntityPath::entity(String8(path))) {
    return {entity, nullptr, {}, path};
  }
  try {
    Mox::AttributePlace const place = Mox::attributePlace(String8(path));
    Node const node(Mox::entityOf(place.object));
    MoxAttr const& attribute = *place.attribute;
    if (Mox::attributeForm(attribute) == AttributeForm::other) {
      throw CommandError("no such attribute: " + path);
    }
    if (place.key && !node.member(attribute, place.key)) {
      throw CommandError("no such member: " + path);
    }
    return {node.entity(), &attribute, place.key, toStd(node.entity()->fullName())};
  } catch (Mox::Exception const& refused) {
    throw CommandError(toStd(refused.message()));
  }
}

std::vector<std::string> completionsOf(Mox::Dir const& roots, std::string_view path) {
  std::vector<std::string> found;
  auto const offer = [&](std::string text) {
    if (text.starts_with(path)) found.push_back(std::move(text));
  };
  // The longest front of the path that names an entity, and what can follow it.
  for (std::size_t at = path.size(); at != std::string_view::npos && at != 0 && found.empty();
       at = path.find_last_of("./", at - 1)) {
    std::string const front(path.substr(0, at));
    Ptr<Entity> const entity = Mox::EntityPath::entity(String8(front));
    if (!entity) continue;
    Node const node(entity);
    for (MoxAttr const* attribute : node.attributes()) {
      std::string const text = attributePath(front, *attribute, nullptr);
      if (!isCollection(*attribute)) {
        offer(text);
      } else if (!path.starts_with(text + "[")) {
        offer(text + "[");
      } else {
        for (Member const& member : node.members(*attribute)) {
          offer(attributePath(front, *attribute, &member.key));
        }
      }
    }
  }
  for (Ptr<Entity> const& root : rootsOf(roots)) {
    if (found.empty()) offer(withoutControlBytes(toStd(root->name())));
  }
  return found;
}

std::string withoutControlBytes(std::string const& text) {
  return Mox::NboAttrLog::shownText(text);
}

std::string attributePath(std::string const& path, MoxAttr const& attribute,
                          std::string const* key) {
  std::string result = path + (ownsEntities(attribute) ? '/' : '.') + toStd(attribute.name());
  if (key) result.append("[").append(withoutControlBytes(*key)).append("]");
  return result;
}

}  // namespace Tools
