#include <unistd.h>

#include <iostream>

#include "ReplayTool.h"

int main(int argc, char** argv) {
    return ttservice::replay::run(std::vector<std::string>(argv + 1, argv + argc), std::cout, std::cerr,
                                  isatty(STDERR_FILENO) != 0);
}
