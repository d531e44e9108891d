#pragma once

namespace store {

int run_program(int argc, const char* const* argv);

}  // namespace store
