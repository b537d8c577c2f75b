#include "model/workspace.h"

#include <utility>

namespace kv {
namespace {
thread_local Workspace* current = nullptr;
}

Workspace& workspace() {
    thread_local Workspace own;
    return current ? *current : own;
}

WorkspaceScope::WorkspaceScope(Workspace& bound)
    : previous_(std::exchange(current, &bound)), context_(bound) {}

WorkspaceScope::~WorkspaceScope() {
    current = previous_;
}

} // namespace kv
