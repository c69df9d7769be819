#include "values/EntityPath.h"

#include <algorithm>
#include <string_view>

namespace Mox {

namespace {

EntityRoot* firstRoot = nullptr;
EntityPath::ChildStep childStep = nullptr;

/// `path` is what stands behind `parent`: empty, or a slash and the next step.
Ptr<Entity> descend(Ptr<Entity> const& parent, std::string_view path) {
  if (path.empty()) return parent;
  if (path[0] != '/' || !childStep) return {};
  path.remove_prefix(1);
  auto const attributeEnd = std::min(path.find_first_of("/["), path.size());
  String8 const attribute(path.substr(0, attributeEnd));
  if (attributeEnd == path.size() || path[attributeEnd] == '/') {
    Ptr<Entity> const child = childStep(*parent.get(), attribute, nullptr);
    return child ? descend(child, path.substr(attributeEnd)) : Ptr<Entity>();
  }
  // A key may itself hold brackets and slashes, so each bracket that could close it is tried; the
  // tree decides.
  auto const keyBegin = attributeEnd + 1;
  for (auto close = path.find(']', keyBegin); close != path.npos;
       close = path.find(']', close + 1)) {
    if (close + 1 != path.size() && path[close + 1] != '/') continue;
    String8 const key(path.substr(keyBegin, close - keyBegin));
    Ptr<Entity> const child = childStep(*parent.get(), attribute, &key);
    if (!child) continue;
    if (Ptr<Entity> found = descend(child, path.substr(close + 1))) return found;
  }
  return {};
}

}  // namespace

EntityRoot::EntityRoot(Ptr<Entity> const& root) : root_(root) {
  EntityRoot** link = &firstRoot;
  while (*link) link = &(*link)->next_;
  *link = this;
}

EntityRoot::~EntityRoot() {
  EntityRoot** link = &firstRoot;
  while (*link != this) link = &(*link)->next_;
  *link = next_;
}

void EntityPath::childStepIs(ChildStep step) { childStep = step; }

Ptr<Entity> EntityPath::entity(String8 const& path) {
  std::string_view const bytes = path.view();
  for (EntityRoot* root = firstRoot; root; root = root->next_) {
    if (!root->root_) continue;
    String8 const name = root->root_->fullName();
    if (name.empty() || !bytes.starts_with(name.view())) continue;
    if (Ptr<Entity> found = descend(root->root_, bytes.substr(name.length()))) return found;
  }
  return {};
}

std::vector<Ptr<Entity>> EntityPath::roots() {
  std::vector<Ptr<Entity>> roots;
  for (EntityRoot* root = firstRoot; root; root = root->next_) {
    if (root->root_) roots.push_back(root->root_);
  }
  return roots;
}

}  // namespace Mox
