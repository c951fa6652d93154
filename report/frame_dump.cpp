#include "report/frame_dump.hpp"

#include <string>
#include <vector>

#include "uni/out_stream.hpp"
#include "zq/zq_hex_view.hpp"
#include "zq/zq_strings.hpp"
#include "zq/zq_text.hpp"

namespace varn {

namespace {

constexpr uint32_t k_min_string_length = 5;

void write_ascii_region(uni::out_stream& out, const uint8_t* data, uint32_t length) {
  if (length == 0) return;
  constexpr size_t chunk = 4096;
  for (uint32_t i = 0; i < length;) {
    const uint32_t n = length - i < chunk ? length - i : static_cast<uint32_t>(chunk);
    char* p = out.reserve(n);
    for (uint32_t j = 0; j < n; ++j) {
      const uint8_t b = data[i + j];
      p[j] = zq::is_printable(b) ? static_cast<char>(b) : '.';
    }
    out.commit(p + n);
    i += n;
  }
  out.write("\n\n", 2);
}

void write_strings_region(uni::out_stream& out, const uint8_t* data, uint32_t length) {
  if (length == 0) return;
  std::vector<std::string> strings;
  std::vector<uint64_t> offsets;
  zq::extract_ascii_strings(data, length, k_min_string_length, strings, offsets, false, false);
  for (const std::string& s : strings) {
    out.write(s);
    out.put('\n');
  }
  zq::extract_unicode_strings(data, length, k_min_string_length, strings, offsets, false, false);
  for (const std::string& s : strings) {
    out.write(s);
    out.put('\n');
  }
  out.put('\n');
}

}  // namespace

void write_hex_dump(const uint8_t* data, uint32_t length, uni::out_stream& out, uint32_t start_index,
                    uint64_t display_base) {
  if (length > hex_dump_limit) {
    char msg[64] = "size to big to output: size 0x";
    char* p = zq::put_hex(msg + 30, length);
    *p++ = '\n';
    out.write(msg, static_cast<size_t>(p - msg));
    return;
  }
  const zq::binary_data view(data, length, false);
  const uint8_t* bytes = view.bytes();
  const uint32_t size = view.size();
  constexpr uint32_t lines_per_batch = 64;
  uint64_t offset = display_base;
  uint32_t index = start_index;
  while (index < size) {
    char* p = out.reserve(lines_per_batch * (zq::hex_line_max + 1));
    for (uint32_t line = 0; line < lines_per_batch && index < size; ++line) {
      const uint32_t count = size - index < 16 ? size - index : 16;
      p += zq::format_hex_line(p, bytes + index, count, offset, true);
      *p++ = '\n';
      offset += 16;
      if (count < 16 || size - index == 16) {
        index = size;  // last line (no wrap of INDEX near the top of the range)
        break;
      }
      index += 16;
    }
    out.commit(p);
  }
}

void write_frame_dumps(const frame_context& ctx, const uint8_t* header, uint32_t header_length,
                       const uint8_t* payload, uint32_t payload_length) {
  if (ctx.out == nullptr) return;
  uni::out_stream& out = *ctx.out;
  switch (ctx.output_format) {
    case 1:
      if (ctx.dump_hdr) {
        out.write("packet hdr\n", 11);
        write_hex_dump(header, header_length, out, 0, 0);
        out.put('\n');
      }
      if (ctx.dump_payload) {
        out.write("payload\n", 8);
        write_hex_dump(payload, payload_length, out, 0, header_length);
        out.put('\n');
      }
      break;
    case 3:
      if (ctx.dump_hdr) out.write(reinterpret_cast<const char*>(header), header_length);
      if (ctx.dump_payload) out.write(reinterpret_cast<const char*>(payload), payload_length);
      break;
    case 2:
    case 4: {
      const uint8_t* region = nullptr;
      uint32_t length = 0;
      if (ctx.dump_payload) {
        region = payload;
        length = payload_length;
      } else if (ctx.dump_hdr) {
        region = header;
        length = header_length;
      }
      if (ctx.output_format == 2)
        write_ascii_region(out, region, length);
      else
        write_strings_region(out, region, length);
      break;
    }
    default:
      break;
  }
}

}  // namespace varn
