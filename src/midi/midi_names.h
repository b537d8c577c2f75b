// What events are called.
#pragma once

#include <span>
#include <string>
#include <string_view>

#include "base/integers.h"

namespace kv {

/// One of the kinds of event that can be made: what lists call it, what the notation of the command line
/// calls it, and the labels of its two data bytes, empty where there is none.
struct EventKind {
    u8 status;
    std::string_view name;
    std::string_view word;
    std::string_view label1, label2;
};
std::span<const EventKind, 10> eventKinds();
/// Null for a status of no name.
const EventKind* eventKind(u8 status);

struct MetaKind {
    u8 type;
    std::string_view name;
    std::string_view word; ///< of the notation
    u32 size;              ///< natural size of the payload in bytes
};
std::span<const MetaKind> metaKinds();
/// Null for a type of no name.
const MetaKind* metaKind(u8 type);
/// The name or "<id 96>".
std::string metaName(u8 type);

/// The name or "CC3".
std::string controllerName(u8 controller);

} // namespace kv
