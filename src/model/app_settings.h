// All of the user's preferences and remembered choices, named as they are stored: `load.bConfirm` is the
// value "load.bConfirm". The member initialisers are the defaults.
#pragma once

#include <array>
#include <string>
#include <vector>

#include "model/parameter_set.h"

namespace kv {

struct AppSettings {
    struct App {
        std::vector<std::string> LastFilesA; ///< most recent first, at most 16
        std::vector<std::string> LastPathsA; ///< folders, most recent first, at most 10
        std::array<i32, 5> aiLastExp{};      ///< last export row by kind of item
        std::array<i32, 2> ptLastPos{};
        std::array<i32, 2> ptLastSize{}; ///< 0: the default size
        i32 iPaneSplit = 221;
        std::array<u16, 6> awColWidths{160, 62, 50, 50, 50, 120};
        bool bAutoProp = false;
        bool bDispBankPrgs = true;
        bool bDispLoBank = false;
        bool bAutoSelWaveforms = true;
        bool bAutoSelCollItems = true;
        bool bPersistentState = false;
        bool bShowNoteNames = true;
        i8 cOctMidC = 4;                       ///< octave number of key 60 in note names
        std::string wszWave, wszMidi, wszKeyb; ///< outside programs
        std::string szVSTPaths;
    } app;
    struct Load {
        bool bConfirm = false;
        bool bAutoSplitStereo = false;
        bool bAutoMergeStereo = false;
        bool bAutoMoveArticulation = false;
        bool bAutoAppend32 = false;
        bool bAutoBid2Fwd = true;
        bool bAutoRev2Fwd = true;
        bool bAutoSortColl = true;
        bool bAutoSortWaves = true;
        bool bTakeGain = false; ///< gains in tags (ReplayGain, R128) become the volume of waves
    } load;
    struct Auditioning {
        bool bEnable = false;
        i32 iInDev = -1; ///< -1 none
        i32 iOutDev = 0;
        i32 dwSampleRate = 48000; ///< Hz
        i32 dwmsLatency = 100;    ///< ms
        bool bVKeyb = true;
        std::string acVKeys = "ZSXDCVGBHNJMQ2W3ER5T6Y7UI9O0P"; ///< computer keys in rising pitch
    } mt;
    struct AudioPlayer {
        i32 iOutDev = 0;
        i32 iOscType = 1;
        std::array<i32, 2> ptLastPos{64, 48};
        bool bOpenNew = false;
        i32 iInDev = 0;
        i32 iInRate = 48000; ///< Hz
        i32 iInChannels = 2;
        i32 iInBits = 16;
        bool bTrackInEditor = true;
    } ap;
    struct SampleDump {
        i32 iOutDev = 0;
        i32 iInDev = 0;
        i32 iChannel = 0;
        i32 iBaseSample = 0;
        i32 iSCSIDev = 0;
        i32 iOutBits = 16;
    } sds;
    struct RawMedia {
        i32 iCDDev = 0;
        i32 iFDDev = 0;
        bool bDelayedLoad = true;
        bool bReplaceColl = true;
    } rawio;
    ParameterSet pset;
    struct SaveAll {
        i32 iMode = 212; ///< a `NameMode`
        bool bSubDirs = false;
    } sall;
    struct Misc {
        i32 iAutoRegionMaxDown = 36; ///< keys
        i32 iAutoRegionMaxUp = 11;   ///< keys
    } misc;
    struct ModelToWave {
        i32 dwSampleRate = 48000; ///< Hz
        i32 dwmsMaxLength = 3500; ///< ms
        i32 dwmsMinLength = 250;  ///< ms
        i32 iNumWaves = 1;
    } fm2wt;
    struct MidiToWave {
        i32 dwSampleRate = 48000; ///< Hz
        bool bStereo = true;
        bool bReverb = true;
        bool bHiFi = false;
        bool bDeleteSrc = false;
        bool bNormalizePeak = true;
        bool bDeleteSilence = true;
        std::string wszGMBank;
        i32 iMaxPolyphony = 128; ///< voices
    } mid2wav;
    struct Formats {
        struct Mp3 {
            bool bWriteID3 = true, bWriteAPE = false, bWriteJS = true;
        } mp3;
        struct Mp2 {
            bool bWriteID3 = false, bWriteJS = true;
        } mp2;
        struct Aac {
            bool bWriteID3 = false, bWriteAPE = false, bWriteMS = true;
        } aac;
        struct Vox {
            i32 dwDataFormat = 0x8002000; ///< data format word
        } vox;
        struct Sd2 {
            i32 dwSampleRate = 44100; ///< Hz
            i32 iChannels = 2;
            i32 iBits = 16;
        } sd2;
    } fmt;
};

} // namespace kv
