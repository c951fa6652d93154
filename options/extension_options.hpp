// The options that reach beyond the specified tool: other capture formats ("-any_format"), the
// JSON Lines report ("-json") and the conversation analysis ("-summary", "-idle_timeout"). They
// are looked up after every other option, with the same lookup rules, so that a command line
// without them keeps its meaning.
#pragma once

#include <cstdint>
#include <string>

#include "options/arg_list.hpp"
#include "options/varn_options.hpp"

namespace varn {

struct extension_options {
  bool any_format = false;   // "-any_format": pcapng, pcap variants, other link layers
  bool json = false;         // "-json": the report as JSON Lines
  bool summary = false;      // "-summary": one line or event per ICMP conversation
  uint32_t idle_timeout = 60;  // "-idle_timeout <seconds>": capture time after which an idle
                               // conversation is closed

  bool any() const noexcept { return any_format || json || summary; }
};

// Looks up the extension options in ARGS (consuming what it finds) and checks them against the
// tool's options OPTS. False with a one-line reason in ERROR when the command line cannot run
// (the driver then prints the reason and the usage and exits with -1).
bool parse_extension_options(arg_list& args, const varn_options& opts, extension_options& ext,
                             std::string& error);

// Whether ARGS (the whole command line) asks for the JSON report once every other option has
// taken its entries: "-ofile -json" names a file, it does not ask for JSON.
bool json_report_requested(const arg_list& args);

}  // namespace varn
