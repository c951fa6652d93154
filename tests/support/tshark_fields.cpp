#include "support/tshark_fields.hpp"

#include <arpa/inet.h>
#include <cstdio>
#include <ctime>

#include "support/run_varn.hpp"

namespace varn_test {

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

std::string shell_output(const std::string& command) {
  std::string out;
  if (FILE* p = ::popen(command.c_str(), "r")) {
    char buf[65536];
    for (size_t n; (n = std::fread(buf, 1, sizeof buf, p)) > 0;) out.append(buf, n);
    ::pclose(p);
  }
  return out;
}

bool have_programs(const std::vector<std::string>& names) {
  std::string command = "true";
  for (const std::string& name : names) command += " && command -v " + name + " >/dev/null";
  return shell_output(command + " && echo yes") == "yes\n";
}

std::string report_type_name(bool v6, unsigned type, unsigned code) {
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

std::string epoch_text(const std::string& epoch) {
  const long long seconds = epoch.empty() ? 0 : std::stoll(epoch);
  if (seconds <= 0 || seconds >= 2147483648LL) return " , ";
  const time_t t = static_cast<time_t>(seconds);
  struct tm utc;
  char text[32];
  std::strftime(text, sizeof text, "%Y-%m-%d , %H:%M:%S.", gmtime_r(&t, &utc));
  return text + (epoch.substr(epoch.find('.') + 1) + "000").substr(0, 3);
}

std::string canonical(const std::string& text) {
  unsigned char a[16];
  char out[INET6_ADDRSTRLEN];
  return inet_pton(AF_INET6, text.c_str(), a) == 1 ? inet_ntop(AF_INET6, a, out, sizeof out) : text;
}

std::map<unsigned, std::string> report_records(const std::string& report) {
  std::map<unsigned, std::string> records;
  for (const std::string& line : split_lines(report)) {
    const std::vector<std::string> f = split(line, " , ");
    if (f.size() != 11 || trim(f[0]) == "frame") continue;
    std::string name = f[10].rfind("id: 0x", 0) == 0 ? f[10].substr(12) : f[10];
    name = trim(name.substr(0, name.find(", payload has entropy high")));
    records[std::stoul(trim(f[0]))] = f[1] + " , " + f[2] + "|" + trim(f[3]) + "|" + canonical(trim(f[4])) + "|" +
                                      canonical(trim(f[5])) + "|" + trim(f[6]) + "|" + trim(f[7]) + "|" + name;
  }
  return records;
}

bool same_record(const std::string& varn, const std::string& tshark) {
  if (tshark.size() < 2 || tshark.compare(tshark.size() - 2, 2, "|*") != 0) return varn == tshark;
  return varn.compare(0, varn.rfind('|') + 1, tshark, 0, tshark.size() - 1) == 0;
}

namespace {

// Whether tshark's protocol chain (frame.protocols, "eth:ethertype:ip:icmp:data") reaches an
// ICMP or ICMPv6 message through the layers varn reads: Ethernet alone, or with ENCAPSULATED
// also Linux cooked, BSD loopback and raw IP links, 802.1Q and 802.1ad tags and IPv6 extension
// headers. V6 tells which of the two.
bool icmp_chain(const std::string& protocols, bool encapsulated, bool& v6) {
  const std::vector<std::string> p = split(protocols, ":");
  size_t i = 0;
  auto at = [&](size_t k, const char* name) { return k < p.size() && p[k] == name; };
  if ((at(i, "eth") || (encapsulated && at(i, "sll"))) && at(i + 1, "ethertype"))
    i += 2;
  else if (!encapsulated)
    return false;
  else if (at(i, "null") || at(i, "loop") || at(i, "raw"))
    ++i;
  while (encapsulated && (at(i, "vlan") || at(i, "ieee8021ad")) && at(i + 1, "ethertype")) i += 2;
  if (at(i, "ip")) {
    v6 = false;
    return at(i + 1, "icmp");
  }
  if (!at(i, "ipv6")) return false;
  ++i;
  while (encapsulated && (at(i, "ipv6.hopopts") || at(i, "ipv6.routing") || at(i, "ipv6.dstopts") ||
                          at(i, "ipv6.fraghdr")))
    ++i;
  v6 = true;
  return at(i, "icmpv6");
}

}  // namespace

tshark_reading tshark_icmp_frames(const std::string& capture, bool encapsulated) {
  const std::string rows = shell_output(
      "tshark -n -o ip.defragment:FALSE -o ipv6.defragment:FALSE -r '" + capture +
      "' -T fields -e frame.number -e frame.time_epoch -e ip.src -e ip.dst -e ip.ttl -e ipv6.src"
      " -e ipv6.dst -e ipv6.hlim -e frame.len -e icmp.type -e icmp.code -e icmpv6.type -e icmpv6.code"
      " -e frame.protocols -e frame.interface_id 2>/dev/null");
  tshark_reading reading;
  for (const std::string& line : split_lines(rows)) {
    const std::vector<std::string> f = split(line, "\t");
    if (f.size() != 15 || f[0].empty()) continue;
    const unsigned number = std::stoul(f[0]);
    ++reading.frames;
    reading.interface_of[number] = f[14];
    bool v6 = false;
    if (!icmp_chain(f[13], encapsulated, v6)) continue;
    auto first = [&](size_t i) { return f[i].substr(0, f[i].find(',')); };  // ICMP errors repeat the quoted fields
    const size_t at = v6 ? 5 : 2, kind = v6 ? 11 : 9;
    const std::string name = f[kind].empty() || f[kind + 1].empty()
                                 ? "*"
                                 : report_type_name(v6, std::stoul(first(kind)), std::stoul(first(kind + 1)));
    reading.icmp[number] = epoch_text(f[1]) + (v6 ? "|icmpv6|" : "|icmp|") + canonical(first(at)) + "|" +
                           canonical(first(at + 1)) + "|" + first(at + 2) + "|" + f[8] + "|" + name;
  }
  return reading;
}

}  // namespace varn_test
