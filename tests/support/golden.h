// Golden text files: whole outputs pinned in tests/golden/.
#pragma once

#include <string>

namespace corvi::test {

// Compares `text` with the golden file `name` (".txt" added to a name without a dot). With
// CORVI_UPDATE_GOLDEN=1 in the environment the file is written instead: review its diff.
void ExpectGolden(const std::string& name, const std::string& text);

}  // namespace corvi::test
