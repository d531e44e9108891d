#include "ctl/program.h"

int main(int argc, char** argv) {
    return ctl::run_program(argc, argv);
}
