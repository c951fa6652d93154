#include "conversations/summary_text.hpp"

#include <cstddef>
#include <cstdio>

#include "conversations/indicators.hpp"
#include "conversations/sender_fillers.hpp"
#include "report/icmp_names.hpp"
#include "zq/zq_address_text.hpp"
#include "zq/zq_time.hpp"

namespace varn::conversations {

namespace {

constexpr const char* k_sep = " , ";

void pad_right(std::string& s, const std::string& field, size_t width) {
  if (field.size() < width) s.append(width - field.size(), ' ');
  s += field;
}
void pad_left(std::string& s, const std::string& field, size_t width) {
  s += field;
  if (field.size() < width) s.append(width - field.size(), ' ');
}

std::string address_text(const uint8_t* a, bool ipv6) {
  char text[48];
  char* end = ipv6 ? zq::put_ipv6_text(text, a, 16) : zq::put_ipv4_text(text, a);
  return std::string(text, end);
}

// "yyyy-mm-dd" and "hh:mm:ss.mmm" of a capture time in nanoseconds since 1970 (blank when the
// capture gave no time).
void date_time_texts(int64_t ns, std::string& date, std::string& time_of_day) {
  date.assign(10, ' ');
  time_of_day.assign(12, ' ');
  if (ns <= 0) return;
  const uint64_t seconds = static_cast<uint64_t>(ns) / 1000000000u;
  const uint32_t micros = static_cast<uint32_t>(static_cast<uint64_t>(ns) % 1000000000u / 1000u);
  if (seconds > 0x7fffffffu) return;
  const zq::time t = zq::time_from_capture_timestamp(static_cast<uint32_t>(seconds), micros);
  zq::format_date_time(t, date, time_of_day);
}

std::string kind_text(const conversation& c, bool ipv6) {
  char text[32];
  if (c.echo()) {
    const char* what = c.kind == 13 ? "timestamp" : c.kind == 15 ? "info" : c.kind == 17 ? "mask" : "echo";
    std::snprintf(text, sizeof text, "%s id 0x%04x", what, static_cast<unsigned>(c.discriminator));
  } else {
    const uint8_t type = static_cast<uint8_t>(c.discriminator);
    const char* name = ipv6 ? icmpv6_type_name(type, 0xff) : icmpv4_type_name(type, 0);
    if (name[0] == '<') {
      std::snprintf(text, sizeof text, "type %u", static_cast<unsigned>(type));
    } else {
      return name;
    }
  }
  return text;
}

std::string rtt_text(const conversation& c) {
  if (c.rtt_count == 0) return "-";
  char text[96];
  const double mean = static_cast<double>(c.rtt_sum_ns) / c.rtt_count / 1e6;
  std::snprintf(text, sizeof text, "%.3f/%.3f/%.3f", static_cast<double>(c.rtt_min_ns) / 1e6, mean,
                static_cast<double>(c.rtt_max_ns) / 1e6);
  return text;
}

std::string filler_text(uint32_t bits) {
  std::string s;
  for (unsigned i = 0; i < static_cast<unsigned>(filler::count_); ++i) {
    if ((bits & (1u << i)) == 0) continue;
    if (!s.empty()) s += '+';
    s += filler_name(static_cast<filler>(i));
  }
  return s.empty() ? "-" : s;
}

}  // namespace

std::string indicator_names(uint32_t bits, const char* separator) {
  std::string s;
  for (size_t i = 0; i < k_indicators.size(); ++i) {
    if ((bits & (1u << i)) == 0) continue;
    if (!s.empty()) s += separator;
    s += k_indicators[i].name;
  }
  return s;
}

std::string conversation_column_header() {
  return "  first , date [utc] ,  start [utc] ,    end [utc] , proto  ,         initiator         ,"
         "        responder         ,        message         , frames ,   req ,   rep , unans , orphn ,"
         "  mism ,   dup ,   rtt min/mean/max [ms]  , bytes out ,  bytes in , fillers , verdict\n\n";
}

std::string conversation_line(const closed_conversation& cc) {
  const conversation& c = cc.c;
  const bool v6 = cc.pair.ipv6;
  std::string s;
  s.reserve(256);
  std::string first = std::to_string(c.first_frame);
  pad_right(s, first, 7);
  if (cc.flagged) s.replace(0, 2, "**");
  s += k_sep;
  std::string date, start, end_date, end;
  date_time_texts(c.first_ns, date, start);
  date_time_texts(c.last_ns, end_date, end);
  s += date + k_sep + start + k_sep + end + k_sep;
  pad_left(s, v6 ? "icmpv6" : "icmp", 6);
  s += k_sep;
  pad_left(s, address_text(cc.initiator, v6), 25);
  s += k_sep;
  pad_left(s, address_text(cc.responder, v6), 24);
  s += k_sep;
  pad_left(s, kind_text(c, v6), 22);
  s += k_sep;
  pad_right(s, std::to_string(c.frames), 6);
  auto count = [&](uint32_t v, bool echo_only) {
    s += k_sep;
    pad_right(s, echo_only && !c.echo() ? "-" : std::to_string(v), 5);
  };
  count(c.requests, true);
  count(c.replies, true);
  count(c.unanswered, true);
  count(c.orphans, true);
  count(c.mismatched, true);
  count(c.duplicates, true);
  s += k_sep;
  pad_right(s, rtt_text(c), 24);
  s += k_sep;
  pad_right(s, std::to_string(c.bytes_out), 9);
  s += k_sep;
  pad_right(s, c.echo() ? std::to_string(c.bytes_in) : "-", 9);
  s += k_sep;
  s += c.echo() ? filler_text(c.fillers) : "-";
  s += k_sep;
  if (cc.flagged) {
    s += "FLAGGED: " + indicator_names(cc.indicators, ", ");
  } else if (cc.indicators != 0) {
    s += "- (" + indicator_names(cc.indicators, ", ") + ")";
  } else {
    s += "-";
  }
  s += '\n';
  return s;
}

}  // namespace varn::conversations
