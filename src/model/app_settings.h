#pragma once
#include <string>
#include <vector>

#include "model/parameter_set.h"
namespace kv {
struct AppSettings {
    struct {
        std::vector<std::string> LastFilesA;
        bool bShowNoteNames = true;
        int cOctMidC = 4;
    } app;
    struct {
        bool bAutoMoveArticulation = false, bAutoSplitStereo = false, bAutoMergeStereo = false,
             bAutoAppend32 = false, bAutoBid2Fwd = true, bAutoRev2Fwd = true;
    } load;
    struct {
        int iMode = 212;
        bool bSubDirs = false;
    } sall;
    ParameterSet pset;
};
} // namespace kv
