// Cross-check of the default report on the shared third-party captures against tshark's reading
// of the same frames: frame number, UTC date and time (to the millisecond), addresses, TTL or
// hop limit, wire size and the ICMP type name. Only frames that tshark also sees as Ethernet
// IPv4/ICMP or Ethernet IPv6/ICMPv6 are compared; IP reassembly is switched off so that tshark
// shows each frame as captured.
#include <arpa/inet.h>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <gtest/gtest.h>
#include <map>
#include <unistd.h>

#include "e2e/e2e_expect.hpp"
#include "support/run_varn.hpp"

namespace varn_test {
namespace {

bool tshark_installed() {
  const char* path = std::getenv("PATH");
  if (path == nullptr) return false;
  std::string dirs = path;
  size_t start = 0;
  while (start <= dirs.size()) {
    size_t end = dirs.find(':', start);
    if (end == std::string::npos) end = dirs.size();
    const std::string candidate = dirs.substr(start, end - start) + "/tshark";
    if (::access(candidate.c_str(), X_OK) == 0) return true;
    start = end + 1;
  }
  return false;
}

std::vector<std::string> split(const std::string& text, const std::string& separator) {
  std::vector<std::string> parts;
  size_t start = 0;
  while (true) {
    const size_t end = text.find(separator, start);
    parts.push_back(text.substr(start, end == std::string::npos ? std::string::npos : end - start));
    if (end == std::string::npos) return parts;
    start = end + separator.size();
  }
}

std::string trim(const std::string& s) {
  const size_t first = s.find_first_not_of(' ');
  if (first == std::string::npos) return "";
  return s.substr(first, s.find_last_not_of(' ') - first + 1);
}

// First of tshark's comma-separated values (an ICMP error repeats the fields of the quoted
// packet after the outer ones).
std::string first_value(const std::string& field) { return field.substr(0, field.find(',')); }

struct varn_record {
  unsigned frame;
  std::string date, time, proto, src, dst, ttl, tsize, type_name;
};

std::vector<varn_record> varn_records(const std::string& report) {
  std::vector<varn_record> records;
  for (const std::string& line : split_lines(report)) {
    const std::vector<std::string> f = split(line, " , ");
    if (f.size() != 11 || trim(f[0]) == "frame") continue;
    std::string comments = f[10];
    if (comments.rfind("id: 0x", 0) == 0) comments = comments.substr(comments.find(", ") + 2);
    const size_t entropy = comments.find(", payload has entropy high");
    if (entropy != std::string::npos) comments = comments.substr(0, entropy);
    records.push_back({static_cast<unsigned>(std::stoul(trim(f[0]))), f[1], f[2], trim(f[3]), trim(f[4]), trim(f[5]),
                       trim(f[6]), trim(f[7]), trim(comments)});
  }
  return records;
}

// The ICMP type names of the report (ICMPv4 type 0 takes its reason from the code).
std::string icmpv4_name(unsigned type, unsigned code) {
  static const char* const echo_reply[16] = {
      "echo reply", "echo reply [host unreachable]", "echo reply [protocol unreachable]",
      "echo reply [port unreachable]", "echo reply [frag needed]", "echo reply [src route failed]",
      "echo reply [dst network unk]", "echo reply [dst host unk]", "echo reply [src host isolated]",
      "echo reply [dst network prohibited]", "echo reply [dst host prohibited]", "echo reply [network unreachable]",
      "echo reply [host unreachable]", "echo reply [comm prohibited]", "echo reply [host precedence violation]",
      "echo reply [precedence cutoff]"};
  static const std::map<unsigned, std::string> names = {
      {3, "dst unreachable"},   {4, "src quench"},         {5, "redirect"},
      {8, "echo request"},      {9, "router advertisement"}, {10, "router solicitation"},
      {11, "time exceeded"},    {12, "param problem"},     {13, "icmp timestamp request"},
      {14, "timestamp reply"},  {15, "information request"}, {16, "information reply"},
      {17, "addr mask request"}, {18, "addr mask reply"}};
  if (type == 0) return code < 16 ? echo_reply[code] : "echo reply";
  const auto it = names.find(type);
  return it == names.end() ? "<unk type>" : it->second;
}

std::string icmpv6_name(unsigned type, unsigned code) {
  static const char* const unreachable[5] = {
      "dst unreachable [no route to dst]", "dst unreachable [administratively prohibited]",
      "dst unreachable [out of scope]", "dst unreachable [address unreachable]", "dst unreachable [port unreachable]"};
  static const std::map<unsigned, std::string> names = {
      {2, "packet too big"},
      {3, "time exceeded"},
      {4, "param problem"},
      {128, "echo request"},
      {129, "echo reply"},
      {130, "multicast listener query"},
      {131, "multicast listener report"},
      {132, "multicast listener done"},
      {133, "router solicitation"},
      {134, "router advertisement"},
      {135, "neighbor solicitation"},
      {136, "neighbor advertisement"},
      {137, "redirect"}};
  if (type == 1) return code < 5 ? unreachable[code] : "dst unreachable";
  const auto it = names.find(type);
  return it == names.end() ? "<unk type>" : it->second;
}

// frame.time_epoch as UTC date and time truncated to milliseconds; empty for seconds 0 and for
// seconds of 2^31 or more, which the report leaves blank.
void epoch_to_text(const std::string& epoch, std::string& date, std::string& time) {
  date.clear();
  time.clear();
  const size_t dot = epoch.find('.');
  const long long seconds = std::stoll(epoch.substr(0, dot));
  if (seconds <= 0 || seconds >= 2147483648LL) return;
  std::string fraction = dot == std::string::npos ? "" : epoch.substr(dot + 1);
  fraction = (fraction + "000").substr(0, 3);
  const time_t t = static_cast<time_t>(seconds);
  struct tm tm_utc;
  gmtime_r(&t, &tm_utc);
  char d[16], h[16];
  std::strftime(d, sizeof d, "%Y-%m-%d", &tm_utc);
  std::strftime(h, sizeof h, "%H:%M:%S", &tm_utc);
  date = d;
  time = std::string(h) + "." + fraction;
}

bool same_ipv6(const std::string& a, const std::string& b) {
  unsigned char x[16], y[16];
  return inet_pton(AF_INET6, a.c_str(), x) == 1 && inet_pton(AF_INET6, b.c_str(), y) == 1 &&
         std::memcmp(x, y, 16) == 0;
}

constexpr const char* k_fields =
    " -T fields -e frame.number -e frame.time_epoch -e ip.src -e ip.dst -e ip.ttl -e ipv6.src -e ipv6.dst"
    " -e ipv6.hlim -e frame.len -e icmp.type -e icmp.code -e icmpv6.type -e icmpv6.code -e frame.protocols";
constexpr size_t k_field_count = 14;

// Runs COMMAND through the shell; its standard output, and whether it exited with status 0.
std::string shell_output(const std::string& command, bool& ok) {
  std::string out;
  ok = false;
  if (FILE* p = ::popen(command.c_str(), "r")) {
    char buf[65536];
    size_t n;
    while ((n = std::fread(buf, 1, sizeof buf, p)) > 0) out.append(buf, n);
    ok = ::pclose(p) == 0;
  }
  return out;
}

std::string quoted(const std::string& path) { return "'" + path + "'"; }

std::string tshark_command(const std::string& path, const std::string& extra_fields) {
  return "tshark -n -o ip.defragment:FALSE -o ipv6.defragment:FALSE -r " + quoted(path) + extra_fields + k_fields +
         " 2>/dev/null";
}

struct capture_run {
  std::string name;
  std::vector<varn_record> records;
  std::map<unsigned, std::vector<std::string>> tshark_rows;  // by frame number
};

// tshark starts slowly, so the captures are joined into one file (one interface per input file,
// in order) and read in a single run. Should the join fail, each capture is read by itself.
void read_with_tshark(const std::string& dir, std::vector<capture_run>& runs) {
  temp_dir scratch;
  const std::string merged = scratch.file("merged.pcapng");
  std::string command = "mergecap -I none -a -F pcapng -w " + quoted(merged);
  for (const capture_run& run : runs) command += " " + quoted(dir + "/" + run.name);
  bool ok = false;
  shell_output(command + " 2>/dev/null", ok);
  if (ok) {
    const std::string out = shell_output(tshark_command(merged, " -e frame.interface_id"), ok);
    std::vector<unsigned> counts(runs.size(), 0);
    for (const std::string& line : split_lines(out)) {
      std::vector<std::string> f = split(line, "\t");
      if (f.size() != k_field_count + 1 || f[0].empty()) continue;
      const size_t file = std::stoul(f[0]);
      if (file >= runs.size()) continue;
      f.erase(f.begin());
      runs[file].tshark_rows[++counts[file]] = f;
    }
    if (ok) return;
  }
  for (capture_run& run : runs) {
    run.tshark_rows.clear();
    for (const std::string& line : split_lines(shell_output(tshark_command(dir + "/" + run.name, ""), ok))) {
      const std::vector<std::string> f = split(line, "\t");
      if (f.size() == k_field_count && !f[0].empty()) run.tshark_rows[static_cast<unsigned>(std::stoul(f[0]))] = f;
    }
  }
}

TEST(tshark_compare_test, default_reports_agree_with_tshark) {
  const std::string dir = shared_captures_dir();
  if (dir.empty()) GTEST_SKIP() << "no shared captures folder next to the checkout";
  if (!tshark_installed()) GTEST_SKIP() << "tshark not installed: apt-get install tshark";

  std::vector<capture_run> runs;
  for (const auto& entry : std::filesystem::directory_iterator(dir)) {
    if (!entry.is_regular_file() || entry.path().extension() == ".md") continue;
    const std::string name = entry.path().filename().string();
    const run_result r = run_varn({"-ifile", name}, {stdin_mode::empty, "", dir});
    if (r.status != 0) continue;  // only runs that end normally
    std::vector<varn_record> records = varn_records(r.report());
    if (!records.empty()) runs.push_back({name, std::move(records), {}});
  }
  std::sort(runs.begin(), runs.end(), [](const capture_run& a, const capture_run& b) { return a.name < b.name; });
  ASSERT_FALSE(runs.empty()) << "varn kept no frame of any shared capture";

  read_with_tshark(dir, runs);

  size_t compared = 0, skipped = 0;
  for (const capture_run& run : runs) {
    SCOPED_TRACE(run.name);
    const std::map<unsigned, std::vector<std::string>>& rows = run.tshark_rows;
    ASSERT_FALSE(rows.empty()) << "tshark printed nothing";
    for (const varn_record& rec : run.records) {
      SCOPED_TRACE("frame " + std::to_string(rec.frame));
      const auto row = rows.find(rec.frame);
      ASSERT_NE(row, rows.end()) << "tshark has no such frame";
      const std::vector<std::string>& f = row->second;
      const std::string& protocols = f[13];
      const bool v4 = protocols.rfind("eth:ethertype:ip:icmp", 0) == 0;
      const bool v6 = protocols.rfind("eth:ethertype:ipv6:icmpv6", 0) == 0;
      if (!v4 && !v6) {
        ++skipped;  // tshark reads this frame as another encapsulation
        continue;
      }
      ++compared;
      std::string date, time;
      epoch_to_text(f[1], date, time);
      EXPECT_EQ(rec.date, date);
      EXPECT_EQ(rec.time, time);
      EXPECT_EQ(rec.tsize, f[8]);
      if (v4) {
        EXPECT_EQ(rec.proto, "icmp");
        EXPECT_EQ(rec.src, first_value(f[2]));
        EXPECT_EQ(rec.dst, first_value(f[3]));
        EXPECT_EQ(rec.ttl, first_value(f[4]));
        if (!f[9].empty() && !f[10].empty()) {
          EXPECT_EQ(rec.type_name, icmpv4_name(std::stoul(first_value(f[9])), std::stoul(first_value(f[10]))));
        }
      } else {
        EXPECT_EQ(rec.proto, "icmpv6");
        EXPECT_TRUE(same_ipv6(rec.src, first_value(f[5]))) << rec.src << " vs " << f[5];
        EXPECT_TRUE(same_ipv6(rec.dst, first_value(f[6]))) << rec.dst << " vs " << f[6];
        EXPECT_EQ(rec.ttl, first_value(f[7]));
        if (!f[11].empty() && !f[12].empty()) {
          EXPECT_EQ(rec.type_name, icmpv6_name(std::stoul(first_value(f[11])), std::stoul(first_value(f[12]))));
        }
      }
    }
  }
  std::printf("[ tshark   ] %zu captures, %zu frames compared, %zu frames tshark reads otherwise\n", runs.size(),
              compared, skipped);
  EXPECT_GT(compared, skipped) << "tshark read most kept frames otherwise: its reading has changed";
}

}  // namespace
}  // namespace varn_test
