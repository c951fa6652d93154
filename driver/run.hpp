// The program driver: one command line, one run.
#pragma once

#include <string>
#include <vector>

namespace varn {

// Runs varn on ARGS (ARGS[0] the program name as invoked) and returns the exit status: 0 for a
// finished run or help, -1 for every refusal.
int run(const std::vector<std::string>& args);

}  // namespace varn
