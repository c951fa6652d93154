#include "capture/frame_handler.hpp"

#include <algorithm>

#include "capture/frame_filters.hpp"
#include "capture/frame_layout.hpp"
#include "capture/pcap_format.hpp"
#include "report/frame_dump.hpp"
#include "report/metadata_record.hpp"

namespace varn {

bool locate_icmp(const uint8_t* frame, uint32_t incl_len, icmp_regions& regions) noexcept {
  if (is_ipv4_frame(frame)) {
    if (frame[ipv4_protocol] != ip_protocol_icmp) return false;
    regions.ipv6 = false;
    regions.icmp_offset = ipv4_icmp_offset(frame);
  } else if (is_ipv6_frame(frame)) {
    if (frame[ipv6_next_header] != ip_next_header_icmpv6) return false;
    regions.ipv6 = true;
    regions.icmp_offset = ipv6_icmp;
  } else {
    return false;
  }
  regions.header_length = regions.icmp_offset + icmp_header_size;
  // The difference as a signed 32-bit value (wrapping, without overflow in the subtraction).
  const int32_t rest = static_cast<int32_t>(incl_len - regions.header_length);
  regions.payload_length = rest > 0 ? static_cast<uint32_t>(rest) : 0;
  regions.header_dump_length = std::min(regions.header_length, incl_len);
  return true;
}

namespace {

bool in_low_byte_list(const std::vector<int64_t>& list, uint8_t value) {
  for (int64_t entry : list)
    if (static_cast<uint8_t>(entry & 0xff) == value) return true;
  return false;
}

}  // namespace

bool handle_icmp_frame(uint64_t frame_number, const uint8_t* record, frame_context* ctx) {
  const uint8_t* frame = record + pcap_record_header_size;
  const uint32_t incl_len = le32_at(record, rec_incl_len);
  icmp_regions r;
  if (!locate_icmp(frame, incl_len, r)) return false;
  const uint8_t* payload = frame + r.header_length;
  if (!frame_passes_filters(frame_number, record, frame, payload, r.payload_length, ctx)) return false;

  const uint8_t* icmp = frame + r.icmp_offset;
  if (!ctx->icmp_types.empty() && !in_low_byte_list(ctx->icmp_types, icmp[icmp_type])) return false;
  if (!ctx->icmp_codes.empty() && !in_low_byte_list(ctx->icmp_codes, icmp[icmp_code])) return false;
  if (!ctx->icmp_ids.empty() && ctx->icmp_ids.find(be16_at(icmp, icmp_identifier)) == ctx->icmp_ids.end())
    return false;

  write_metadata_record(frame_number, record, frame, payload, r.payload_length, ctx);
  write_frame_dumps(*ctx, frame, r.header_dump_length, payload, r.payload_length);
  return true;
}

}  // namespace varn
