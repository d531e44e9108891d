#include "view/program.h"

int main(int argc, char** argv) {
    return view::run_program(argc, argv);
}
