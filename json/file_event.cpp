#include "json/file_event.hpp"

namespace varn::json {

const char* status_name(file_outcome::status status) noexcept {
  switch (status) {
    case file_outcome::status::read:
      return "read";
    case file_outcome::status::invalid:
      return "invalid";
    case file_outcome::status::unreadable:
      return "unreadable";
    case file_outcome::status::failed:
      break;
  }
  return "failed";
}

void write_file_event(text& j, const file_outcome& outcome, bool any_format) {
  j.begin_object().member("event_type", "file").exact_string("pcap_file", outcome.name);
  j.member("status", status_name(outcome.result));
  if (outcome.result == file_outcome::status::read && !outcome.format.empty()) j.member("format", outcome.format);
  j.member("records", outcome.records).member("selected", outcome.selected);
  if (any_format) {
    j.key("link_types").begin_array();
    for (uint32_t link_type : outcome.link_types) j.number(link_type);
    j.end_array();
    j.key("skipped").begin_object();
    for (const auto& [reason, count] : outcome.skipped) j.member(reason, count);
    j.end_object();
  }
  if (!outcome.stopped.empty()) j.member("stopped", outcome.stopped);
  j.end_object().end_line();
}

}  // namespace varn::json
