// Helpers shared by the end-to-end tests: the binary runner, temporary folders, split_lines.
#pragma once

#include "support/run_varn.hpp"
