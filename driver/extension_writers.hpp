// The report writers of the extension options, chosen once per run.
#pragma once

#include <memory>

#include "options/extension_options.hpp"
#include "options/varn_options.hpp"
#include "report/report_writer.hpp"

namespace varn {

// The writer that takes the selected frames of a run with EXT, or null for the text report.
std::unique_ptr<report_writer> make_extension_writer(const varn_options& opts, const extension_options& ext);

}  // namespace varn
