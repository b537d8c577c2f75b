// The store as JSON.
#pragma once

namespace kv {

class JsonWriter;

/// Members "collection", "instruments", "waves", "songs" and "models" of the current object.
void writeStore(JsonWriter& json);

} // namespace kv
