// Deterministic capture workloads for the benchmarks: classic little-endian microsecond pcap
// files (version 2.4, snaplen 65535, link type Ethernet) whose content depends only on the kind,
// the size limit, the record limit and the seed.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace varn_bench {

enum class workload_kind {
  mixed,   // mostly TCP/UDP over IPv4/IPv6 at realistic sizes, about 5 % ICMP/ICMPv6 frames
  icmp,    // only ICMP/ICMPv6 frames, payloads of 1 to 1472 bytes
  small,   // 64-byte frames only, about 5 % ICMP/ICMPv6
  sample,  // a fixed handful of frames (under 4 KiB) showing what varn reports and skips
  sweep,   // a ping sweep: one echo request to each of a million and more addresses, 20,000 a
           // second, about 60 % answered (every target is a conversation of its own)
};

// Reads "mixed", "icmp", "small", "sample" or "sweep".
bool parse_workload_kind(std::string_view text, workload_kind& kind) noexcept;
const char* workload_kind_name(workload_kind kind) noexcept;

struct workload_spec {
  workload_kind kind = workload_kind::mixed;
  uint64_t size = 0;    // the file stays at or below this many bytes; 0 = no byte limit
  uint64_t frames = 0;  // at most this many records; 0 = no record limit
  uint64_t seed = 1;
};

struct workload_summary {
  uint64_t bytes = 0;               // file size, file header included
  uint64_t records = 0;             // records written
  uint64_t icmp_frames = 0;         // Ethernet II IPv4 protocol 1 or IPv6 next header 58 frames
  uint64_t icmp_payload_bytes = 0;  // bytes behind the 8-byte ICMP headers of those frames
  uint64_t flagged_payloads = 0;    // ICMP payloads built to pass the randomness test
};

// Where the file bytes go.
class byte_sink {
 public:
  virtual ~byte_sink() = default;
  // False when the bytes could not be taken (the generation then stops).
  virtual bool write(const uint8_t* data, size_t length) = 0;
};

// Writes the capture described by SPEC to SINK. Without any limit (size and frames both 0) the
// mixed, icmp and small kinds write nothing but the file header. False when SINK refused bytes.
bool generate_workload(const workload_spec& spec, byte_sink& sink, workload_summary& summary);

// The same into a file (created or truncated). False on any write error.
bool write_workload_file(const workload_spec& spec, const std::string& path, workload_summary& summary);

// The same into memory.
std::vector<uint8_t> workload_bytes(const workload_spec& spec, workload_summary* summary = nullptr);

}  // namespace varn_bench
