#include "store/program.h"

int main(int argc, char** argv) {
    return store::run_program(argc, argv);
}
