// The banner, the run header and the usage text.
#pragma once

#include <string>
#include <vector>

namespace varn {

// "varn - limited ver: 0.40; " and the build notice, without a line end.
std::string banner_text();

// The usage text for the program named by PROGRAM_PATH (its base name is shown).
std::string usage_text(const std::string& program_path);

// The run header: the banner line, the invocation line (prefixed by "<filelist> ... | " when
// "-pipe" is among ARGS), then an empty line. ARGS[0] is the program name as invoked.
std::string run_header(const std::vector<std::string>& args);

}  // namespace varn
