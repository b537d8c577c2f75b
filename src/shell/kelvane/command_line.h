#pragma once

namespace kv {

/// Runs the program `kelvane`; answers the exit status.
int runCommandLine(int argc, char** argv);

} // namespace kv
