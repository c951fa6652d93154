// varn's metadata lines and tshark's decoding of the same frames, brought to one comparable
// form: "date , time|proto|source|destination|ttl|wire size|type name" by frame number.
#pragma once

#include <map>
#include <string>
#include <vector>

namespace varn_test {

std::vector<std::string> split(const std::string& text, const std::string& separator);
std::string trim(const std::string& s);
// Standard output of a shell command ("" when it cannot run).
std::string shell_output(const std::string& command);
// True when every named program is on the PATH.
bool have_programs(const std::vector<std::string>& names);

// The ICMP type names of the report: by type, or for IPv4 type 0 and ICMPv6 type 1 the name and
// the reason by code.
std::string report_type_name(bool v6, unsigned type, unsigned code);

// tshark's frame.time_epoch as the report's date and time ("YYYY-MM-DD , HH:MM:SS.mmm"); " , "
// for no time, seconds 0 and from 2^31 on (the report leaves them blank).
std::string epoch_text(const std::string& epoch);
// An IPv6 address in its usual text form (other texts unchanged), for comparing without the
// report's first-zero-run rule.
std::string canonical(const std::string& text);

// The metadata lines of a report by frame number, in the comparable form (the type name without
// the identifier and the randomness warning; IPv6 addresses in their usual text form).
std::map<unsigned, std::string> report_records(const std::string& report);

// tshark's reading (IP reassembly off) of the frames of CAPTURE that carry ICMP or ICMPv6 right
// behind their IP header, in the comparable form, by frame number ("*" for the type name when
// tshark gives no type or code). With ENCAPSULATED false only
// Ethernet II frames without tags or IPv6 extension headers count; with it also tagged frames,
// extension headers, first fragments, and the other link layers -any_format reads. The key of
// interface_of[frame] is filled with frame.interface_id when given.
struct tshark_reading {
  std::map<unsigned, std::string> icmp;  // frames as described above
  unsigned frames = 0;                   // all frames tshark listed
  std::map<unsigned, std::string> interface_of;
};
tshark_reading tshark_icmp_frames(const std::string& capture, bool encapsulated);

// Whether a report record and a tshark record agree; a tshark record ending in "|*" (tshark gave
// no type or code) agrees with any type name.
bool same_record(const std::string& varn, const std::string& tshark);

}  // namespace varn_test
