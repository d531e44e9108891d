#include "core/entry/startup.h"

int main(int argc, char** argv) {
    return run_process(argc, argv);
}
