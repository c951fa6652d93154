// The report writers of "-summary": every selected frame feeds the conversation analysis, and the
// conversations are written as they close, as text lines or (with -json) as events. Frames get
// their own report only when a dump option was given: their metadata line and dumps, or their
// "icmp" event with the pairing added.
#pragma once

#include <memory>

#include "options/extension_options.hpp"
#include "options/varn_options.hpp"
#include "report/report_writer.hpp"

namespace varn::conversations {

// The writer of a -summary run with OPTS and EXT: text, or JSON Lines with -json.
std::unique_ptr<report_writer> make_summary_writer(const varn_options& opts, const extension_options& ext);

}  // namespace varn::conversations
