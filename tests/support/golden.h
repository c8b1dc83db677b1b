// Golden transcripts: texts the library prints, kept whole as files under tests/golden/
// and compared byte for byte. Run a suite with KORVEX_UPDATE_GOLDEN=1 to write the files
// anew from what the code prints now; review the diff before committing it.
#pragma once

#include <string>

// Compares text with tests/golden/NAME (a failure shows the differing lines), or
// rewrites that file when KORVEX_UPDATE_GOLDEN is set.
void expectGolden(const std::string& name, const std::string& text);

// The whole text of tests/golden/NAME, for tables of scenarios kept as data; fails the
// test when the file is missing.
std::string readGolden(const std::string& name);
