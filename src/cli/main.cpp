#include "cli/CliCommand.h"

int main(int argc, char** argv) {
    return runCli(argc, argv);
}
