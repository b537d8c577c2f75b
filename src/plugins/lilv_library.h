// The library that knows which LV2 plug-ins there are, opened when it is needed.
#pragma once

#include <lilv/lilv.h>

#include <memory>

#include "base/shared_library.h"

namespace kv {

/// Its functions, by their names without "lilv_".
struct LilvLibrary {
    SharedLibrary library{"liblilv-0-0", {"liblilv-0.so.0"}};

// clang-format off
#define KV_LILV_FUNCTIONS(X)                                                                      \
    X(world_new) X(world_free) X(world_load_all) X(world_get_all_plugins)                         \
    X(new_uri) X(node_free) X(node_as_string) X(node_as_float) X(node_as_int)                     \
    X(node_is_float) X(node_is_int)                                                               \
    X(nodes_begin) X(nodes_get) X(nodes_next) X(nodes_is_end) X(nodes_free)                       \
    X(plugins_begin) X(plugins_get) X(plugins_next) X(plugins_is_end) X(plugins_get_by_uri)       \
    X(plugin_get_uri) X(plugin_get_name) X(plugin_get_author_name) X(plugin_get_value)            \
    X(plugin_has_feature) X(plugin_has_latency) X(plugin_get_latency_port_index)                  \
    X(plugin_get_num_ports) X(plugin_get_port_by_index) X(plugin_get_port_ranges_float)           \
    X(plugin_instantiate) X(instance_free)                                                        \
    X(port_is_a) X(port_has_property) X(port_get) X(port_get_name) X(port_get_symbol)             \
    X(port_get_scale_points)                                                                      \
    X(scale_points_begin) X(scale_points_get) X(scale_points_next) X(scale_points_is_end)         \
    X(scale_points_free) X(scale_point_get_label) X(scale_point_get_value)                        \
    X(state_new_from_world) X(state_restore) X(state_free)
// clang-format on
#define KV_LILV_MEMBER(name) decltype(lilv_##name)* name = nullptr;
#define KV_LILV_BIND(name) library.bind(name, "lilv_" #name);
    KV_LILV_FUNCTIONS(KV_LILV_MEMBER)
    LilvLibrary() {
        KV_LILV_FUNCTIONS(KV_LILV_BIND)
    }
#undef KV_LILV_BIND
#undef KV_LILV_MEMBER
#undef KV_LILV_FUNCTIONS
};

/// Stays open to the end: plug-ins may live as long.
inline const LilvLibrary& lilv() {
    static const LilvLibrary& library = *new LilvLibrary;
    return library;
}

struct LilvNodeFree {
    void operator()(LilvNode* node) const { lilv().node_free(node); }
};
using LilvNodePtr = std::unique_ptr<LilvNode, LilvNodeFree>;

struct LilvNodesFree {
    void operator()(LilvNodes* nodes) const { lilv().nodes_free(nodes); }
};
using LilvNodesPtr = std::unique_ptr<LilvNodes, LilvNodesFree>;

} // namespace kv
