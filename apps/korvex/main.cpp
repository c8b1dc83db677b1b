#include "korvex/command.h"

int main(int argc, char** argv) { return korvex::runCommand(argc, argv); }
