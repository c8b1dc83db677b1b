// The korvex command as a function: parses argv (argv[0] is the program name), runs the
// solve and writes the outputs it names, and returns the exit code.
#pragma once

namespace korvex {

int runCommand(int argc, char** argv);

}  // namespace korvex
