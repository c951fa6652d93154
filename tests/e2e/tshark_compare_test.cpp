// Cross-check of the default report on the shared third-party captures against tshark's reading
// of the same frames: frame number, UTC date and time (to the millisecond), addresses, TTL or
// hop limit, wire size and the ICMP type name. Only frames that tshark also sees as Ethernet
// IPv4/ICMP or IPv6/ICMPv6 are compared; IP reassembly is off so each frame shows as captured.
#include <arpa/inet.h>
#include <ctime>
#include <filesystem>
#include <gtest/gtest.h>
#include <map>

#include "e2e/e2e_expect.hpp"
#include "support/run_varn.hpp"

namespace varn_test {
namespace {

std::vector<std::string> split(const std::string& text, const std::string& separator) {
  std::vector<std::string> parts;
  for (size_t start = 0, end = 0; end != std::string::npos; start = end + separator.size()) {
    end = text.find(separator, start);
    parts.push_back(text.substr(start, end == std::string::npos ? std::string::npos : end - start));
  }
  return parts;
}

std::string trim(const std::string& s) {
  const size_t first = s.find_first_not_of(' ');
  return first == std::string::npos ? "" : s.substr(first, s.find_last_not_of(' ') - first + 1);
}

// The report's ICMP type names: the name by type, or for IPv4 type 0 and ICMPv6 type 1 the name
// and the reason by code.
std::string type_name(bool v6, unsigned type, unsigned code) {
  static const std::vector<std::string> v4_names = split(
      "|<unk type>|<unk type>|dst unreachable|src quench|redirect|<unk type>|<unk type>|echo request|router advertisement|"
      "router solicitation|time exceeded|param problem|icmp timestamp request|timestamp reply|information request|information reply|"
      "addr mask request|addr mask reply", "|");
  static const std::vector<std::string> v4_reasons = split(
      "|host unreachable|protocol unreachable|port unreachable|frag needed|src route failed|dst network unk|dst host unk|src host isolated|"
      "dst network prohibited|dst host prohibited|network unreachable|host unreachable|comm prohibited|host precedence violation|"
      "precedence cutoff", "|");
  static const std::vector<std::string> v6_names = split(
      "echo request|echo reply|multicast listener query|multicast listener report|multicast listener done|router solicitation|"
      "router advertisement|neighbor solicitation|neighbor advertisement|redirect", "|");
  static const std::vector<std::string> v6_reasons = split(
      "no route to dst|administratively prohibited|out of scope|address unreachable|port unreachable", "|");
  if (!v6 && type == 0) return "echo reply" + (code < 16 && code > 0 ? " [" + v4_reasons[code] + "]" : "");
  if (v6 && type == 1) return "dst unreachable" + (code < 5 ? " [" + v6_reasons[code] + "]" : "");
  if (!v6) return type < 19 ? v4_names[type] : "<unk type>";
  const char* errors[] = {"<unk type>", "", "packet too big", "time exceeded", "param problem"};
  return type < 5 ? errors[type] : type >= 128 && type <= 137 ? v6_names[type - 128] : "<unk type>";
}

// frame.time_epoch as the report's date and time; empty for seconds 0 and from 2^31 on.
std::string epoch_text(const std::string& epoch) {
  const long long seconds = std::stoll(epoch);
  if (seconds <= 0 || seconds >= 2147483648LL) return " , ";
  const time_t t = static_cast<time_t>(seconds);
  struct tm utc;
  char text[32];
  std::strftime(text, sizeof text, "%Y-%m-%d , %H:%M:%S.", gmtime_r(&t, &utc));
  return text + (epoch.substr(epoch.find('.') + 1) + "000").substr(0, 3);
}

// An IPv6 address in its usual form (other texts unchanged), for comparing without the report's
// first-zero-run rule.
std::string canonical(const std::string& text) {
  unsigned char a[16];
  char out[INET6_ADDRSTRLEN];
  return inet_pton(AF_INET6, text.c_str(), a) == 1 ? inet_ntop(AF_INET6, a, out, sizeof out) : text;
}

std::string shell_output(const std::string& command) {
  std::string out;
  if (FILE* p = ::popen(command.c_str(), "r")) {
    char buf[65536];
    for (size_t n; (n = std::fread(buf, 1, sizeof buf, p)) > 0;) out.append(buf, n);
    ::pclose(p);
  }
  return out;
}

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
    std::map<unsigned, std::string> records;
    for (const std::string& line : split_lines(r.report())) {
      const std::vector<std::string> f = split(line, " , ");
      if (f.size() != 11 || trim(f[0]) == "frame") continue;
      std::string name = f[10].rfind("id: 0x", 0) == 0 ? f[10].substr(12) : f[10];
      name = trim(name.substr(0, name.find(", payload has entropy high")));
      records[std::stoul(trim(f[0]))] = f[1] + " , " + f[2] + "|" + trim(f[3]) + "|" + canonical(trim(f[4])) + "|" +
                                        canonical(trim(f[5])) + "|" + trim(f[6]) + "|" + trim(f[7]) + "|" + name;
    }
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
                                             : type_name(v6, std::stoul(first(kind)), std::stoul(first(kind + 1)));
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
