// What of an instrument an SFZ bank has no place for.
#pragma once

namespace kv {

class Instrument;

/// Notes as lost, once for each field, what the writer leaves out.
void reportSfzLosses(const Instrument& instrument);

} // namespace kv
