// Cross-check of the default report on the shared third-party captures against tshark's reading
// of the same frames: frame number, UTC date and time (to the millisecond), addresses, TTL or
// hop limit, wire size and the ICMP type name. Only frames that tshark also sees as Ethernet
// IPv4/ICMP or IPv6/ICMPv6 are compared; IP reassembly is off so each frame shows as captured.
#include <filesystem>
#include <gtest/gtest.h>
#include <map>

#include "e2e/e2e_expect.hpp"
#include "support/run_varn.hpp"
#include "support/tshark_fields.hpp"

namespace varn_test {
namespace {

TEST(tshark_compare_test, default_reports_agree_with_tshark) {
  const std::string dir = shared_captures_dir();
  if (dir.empty()) GTEST_SKIP() << "no shared captures folder next to the checkout";
  if (shell_output("command -v tshark && command -v mergecap").find("mergecap") == std::string::npos) GTEST_SKIP() << "tshark not installed";
  // Each capture's records by frame number as "date , time|proto|src|dst|ttl|size|type name".
  std::vector<std::string> names;
  std::vector<std::map<unsigned, std::string>> reported;
  for (const auto& entry : std::filesystem::directory_iterator(dir)) {
    if (!entry.is_regular_file() || entry.path().extension() == ".md") continue;
    const run_result r = run_varn({"-ifile", entry.path().filename().string()}, {stdin_mode::empty, "", dir});
    const std::map<unsigned, std::string> records = report_records(r.report());
    if (r.status == 0 && !records.empty()) names.push_back(entry.path().filename().string()), reported.push_back(records);
  }
  ASSERT_FALSE(names.empty()) << "varn kept no frame of any shared capture";
  // tshark starts slowly: the captures are joined into one file, one interface per capture.
  temp_dir scratch;
  std::string merge = "mergecap -I none -a -F pcapng -w '" + scratch.file("all.pcapng") + "'";
  for (const std::string& name : names) merge += " '" + dir + "/" + name + "'";
  shell_output(merge + " 2>/dev/null");
  const std::string rows = shell_output(
      "tshark -n -o ip.defragment:FALSE -o ipv6.defragment:FALSE -r '" + scratch.file("all.pcapng") +
      "' -T fields -e frame.interface_id -e frame.number -e frame.time_epoch -e ip.src -e ip.dst -e ip.ttl -e ipv6.src"
      " -e ipv6.dst -e ipv6.hlim -e frame.len -e icmp.type -e icmp.code -e icmpv6.type -e icmpv6.code"
      " -e frame.protocols 2>/dev/null");
  std::vector<unsigned> seen(names.size(), 0);
  size_t compared = 0, other = 0;
  for (const std::string& line : split_lines(rows)) {
    const std::vector<std::string> f = split(line, "\t");
    if (f.size() != 15 || f[0].empty() || std::stoul(f[0]) >= names.size()) continue;
    const size_t file = std::stoul(f[0]);
    const auto rec = reported[file].find(++seen[file]);
    if (rec == reported[file].end()) continue;
    const bool v4 = f[14].rfind("eth:ethertype:ip:icmp", 0) == 0, v6 = f[14].rfind("eth:ethertype:ipv6:icmpv6", 0) == 0;
    if (!v4 && !v6 && ++other) continue;  // tshark reads this frame as another encapsulation
    ++compared;
    auto first = [&](size_t i) { return f[i].substr(0, f[i].find(',')); };  // ICMP errors repeat the quoted fields
    const size_t at = v4 ? 3 : 6, kind = v4 ? 10 : 12;
    const std::string name = f[kind].empty() || f[kind + 1].empty() ? rec->second.substr(rec->second.rfind('|') + 1)
                                             : report_type_name(v6, std::stoul(first(kind)), std::stoul(first(kind + 1)));
    EXPECT_EQ(rec->second, epoch_text(f[2]) + (v4 ? "|icmp|" : "|icmpv6|") + canonical(first(at)) + "|" + canonical(first(at + 1)) + "|" +
                               first(at + 2) + "|" + f[9] + "|" + name)
        << names[file] << " frame " << seen[file];
  }
  for (size_t i = 0; i < names.size(); ++i) EXPECT_GE(seen[i], reported[i].rbegin()->first) << names[i] << ": frames missing";
  std::printf("[ tshark   ] %zu captures, %zu frames compared, %zu read otherwise\n", names.size(), compared, other);
  EXPECT_GT(compared, other) << "tshark read most kept frames otherwise: its reading has changed";
}

}  // namespace
}  // namespace varn_test
