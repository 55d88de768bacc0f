#include <iostream>

#include "PersistTool.h"

int main(int argc, char** argv) {
    return persist::tool::run(std::vector<std::string>(argv + 1, argv + argc), std::cout, std::cerr);
}
