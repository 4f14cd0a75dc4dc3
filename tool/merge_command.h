// corvi-merge: rewrites a JPEG template with new pixels and Exif overrides.
#pragma once

namespace corvi {

// The main routine of corvi-merge: `argv` wide. Returns 0 after writing OUTPUT, 1 when reading
// or rewriting failed (OUTPUT keeps what it held), 2 after a usage error.
int RunMerge(int argc, wchar_t** argv);

}  // namespace corvi
