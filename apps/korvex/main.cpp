#include <cstdio>

#include "korvex/command.h"

int main(int argc, char** argv) {
    // Line by line, so that the progress of a long solve shows through a pipe (tee, a log
    // viewer) as it happens.
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    return korvex::runCommand(argc, argv);
}
