// The walk over names and directories, the per-file pipeline and its decode stage.
#pragma once

#include <cstdint>

namespace corvi {

struct MarkerList;

// The two options, set by the option parser and never cleared.
extern bool quiet;   // -q: leave out the segment dump
extern bool decode;  // -d: decode and print size and properties

// Processes every JPEG file that `pattern` reaches; returns how many were handed to ProcessFile.
int32_t WalkPattern(const wchar_t* pattern);

// Maps, scans, dumps and reports one file; never lets a RawLayerException out.
void ProcessFile(const wchar_t* path);

// Decodes the scanned file and prints its size and properties.
void DecodeStage(const MarkerList& markers);

// The main routine: `argv` wide; returns the exit status.
int RunTool(int argc, wchar_t** argv);

}  // namespace corvi
