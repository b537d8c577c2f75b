// The store as JSON.
#pragma once

namespace kv {

class JsonWriter;
class WaveLoudness;

/// Members "collection", "instruments", "waves", "songs" and "models" of the current object; waves with
/// their loudness if that is given.
void writeStore(JsonWriter& json, WaveLoudness* loudness);

} // namespace kv
