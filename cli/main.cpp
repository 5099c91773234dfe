#include "command.h"

#include <exception>
#include <iostream>

int main(int argc, char **argv) {
    try {
        return cli::runCommand(argc, argv, std::cout, std::cerr);
    } catch (const std::exception &error) {
        std::cerr << "myrtelhaven: " << error.what() << "\n";
        return cli::exitUnusable;
    }
}
