#include <cstdio>
#include <cstdlib>

#include "uplink/program.h"

int main(int argc, char** argv) {
    const int status = uplink::run_program(argc, argv);
    std::fflush(nullptr);
    // Threads of the brokers' libraries may wait for an answer still.
    std::_Exit(status);
}
