// corvi: the walk over the names given and the directories among them, each file through the
// pipeline.
#pragma once

namespace corvi {

// The main routine: `argv` wide; returns the exit status.
int RunTool(int argc, wchar_t** argv);

}  // namespace corvi
