#include "model/wave_data.h"
#include "model/workspace.h"
#include "shell/kelvane/command_line.h"
#include "shell/kelvane/commands.h"
#include "shell/kelvane/terminal_ui.h"

int main(int argc, char** argv) {
    kv::Workspace own;
    const kv::WorkspaceScope scope(own);
    kv::installMemoryHandlers(kv::kFailed);
    kv::catchInterrupts();
    return kv::runCommandLine(argc, argv);
}
