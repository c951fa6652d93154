#include "capture/frame_handler.hpp"

#include "capture/frame_filters.hpp"
#include "capture/frame_layout.hpp"
#include "capture/pcap_format.hpp"
#include "report/frame_dump.hpp"
#include "report/metadata_record.hpp"
#include "report/report_writer.hpp"

namespace varn {

bool locate_icmp(const uint8_t* frame, uint32_t incl_len, icmp_frame& f) noexcept {
  if (is_ipv4_frame(frame)) {
    if (frame[ipv4_protocol] != ip_protocol_icmp) return false;
    f.ipv6 = false;
    f.icmp_offset = ipv4_icmp_offset(frame);
  } else if (is_ipv6_frame(frame)) {
    if (frame[ipv6_next_header] != ip_next_header_icmpv6) return false;
    f.ipv6 = true;
    f.icmp_offset = ipv6_icmp;
  } else {
    return false;
  }
  f.frame = frame;
  f.cap_len = incl_len;
  f.ip_offset = eth_header_size;
  set_icmp_regions(f);
  return true;
}

namespace {

bool in_low_byte_list(const std::vector<int64_t>& list, uint8_t value) {
  for (int64_t entry : list)
    if (static_cast<uint8_t>(entry & 0xff) == value) return true;
  return false;
}

}  // namespace

bool report_icmp_frame(const icmp_frame& f, frame_context* ctx) {
  if (!frame_passes_filters(f, ctx)) return false;
  if (!ctx->icmp_types.empty() && !in_low_byte_list(ctx->icmp_types, f.type())) return false;
  if (!ctx->icmp_codes.empty() && !in_low_byte_list(ctx->icmp_codes, f.code())) return false;
  if (!ctx->icmp_ids.empty() && ctx->icmp_ids.find(f.identifier()) == ctx->icmp_ids.end()) return false;

  ++ctx->selected_in_file;
  if (ctx->writer != nullptr) {
    ctx->writer->frame_selected(f, *ctx);
  } else {
    write_metadata_record(f, ctx);
    write_frame_dumps(*ctx, f.frame, f.header_dump_length, f.payload, f.payload_length);
  }
  return true;
}

bool handle_icmp_frame(uint64_t frame_number, const uint8_t* record, frame_context* ctx) {
  icmp_frame f;
  if (!locate_icmp(record + pcap_record_header_size, le32_at(record, rec_incl_len), f)) return false;
  f.number = frame_number;
  f.wire_len = le32_at(record, rec_orig_len);
  f.ts_sec = le32_at(record, rec_ts_sec);
  f.ts_frac = le32_at(record, rec_ts_usec);
  return report_icmp_frame(f, ctx);
}

}  // namespace varn
