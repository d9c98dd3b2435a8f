// SPDX-License-Identifier: Apache-2.0
#include "options.h"
#include "relief.h"

#include <exception>
#include <iostream>

int main(int argc, char** argv) {
    Relief::Options options;
    if (auto const status = Relief::parseCommandLine(argc, argv, options)) {
        return *status;
    }
    try {
        Relief::run(options, std::cout);
        return 0;
    } catch (std::exception const& error) {
        std::cerr << "relief: " << error.what() << '\n';
        return 1;
    }
}
