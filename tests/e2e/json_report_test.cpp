// The JSON report (-json) read back with a real parser: every event of the shared captures and of
// generated ones is valid JSON Lines that the events schema accepts, and every "icmp" event agrees
// field by field with the text report of the same command line (its metadata line and its
// dumps), for every filter, list and input option; file names round-trip whatever their bytes.
#include <arpa/inet.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <map>
#include <nlohmann/json.hpp>
#include <random>

#include "support/capture_text.hpp"
#include "support/run_varn.hpp"
#include "zq/zq_address_text.hpp"

namespace varn_test {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;

const std::string k_source_dir = VARN_SOURCE_DIR;

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

std::string base64_decode(const std::string& text) {
  static const std::string alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string out;
  uint32_t bits = 0;
  int count = 0;
  for (char c : text) {
    if (c == '=') break;
    bits = bits << 6 | static_cast<uint32_t>(alphabet.find(c));
    if ((count += 6) >= 8) out += static_cast<char>(bits >> (count -= 8) & 0xff);
  }
  return out;
}

// One frame of the text report: its metadata line split into columns, and the dump lines after it.
struct text_frame {
  std::string file;                 // the "Processing file:" name it follows
  std::vector<std::string> columns;  // the 11 columns of the metadata line
  std::vector<std::string> dump;     // the lines up to the next metadata line
};

bool is_metadata_line(const std::vector<std::string>& columns) {
  const std::string number = trim(columns[0]);
  return columns.size() >= 11 && !number.empty() && number.find_first_not_of("0123456789") == std::string::npos;
}

// In list mode (LISTED) an empty line follows the report of each file read.
std::vector<text_frame> text_frames(const std::string& out, bool listed) {
  std::vector<text_frame> frames;
  std::string file;
  auto end_file = [&] {
    if (listed && !frames.empty() && frames.back().file == file && !frames.back().dump.empty() && frames.back().dump.back().empty())
      frames.back().dump.pop_back();
  };
  for (const std::string& line : split_lines(out)) {
    if (line.rfind("Processing file: ", 0) == 0) {
      end_file();
      file = line.substr(17);
      continue;
    }
    std::vector<std::string> columns = split(line, " , ");
    if (is_metadata_line(columns)) {
      // The comments column is the rest of the line, whatever it holds.
      for (size_t i = 11; i < columns.size(); ++i) columns[10] += " , " + columns[i];
      columns.resize(11);
      frames.push_back({file, columns, {}});
    } else if (!frames.empty() && line.rfind("  frame , ", 0) != 0) {
      frames.back().dump.push_back(line);
    }
  }
  end_file();
  return frames;
}

// The report's IPv6 text of the address in JSON's text, for comparing the two forms.
std::string report_form(const std::string& address) {
  unsigned char bytes[16];
  if (inet_pton(AF_INET6, address.c_str(), bytes) != 1) return "not IPv6: " + address;
  std::string text;
  zq::format_ipv6_groups(bytes, 16, text);
  return text;
}

// Whether ADDRESS is in the RFC 5952 form: as inet_ntop writes it, except that inet_ntop writes
// the deprecated IPv4-compatible addresses (::/96) with a dotted tail, which RFC 5952 does not.
bool rfc5952_form(const std::string& address) {
  unsigned char bytes[16];
  char text[INET6_ADDRSTRLEN];
  if (inet_pton(AF_INET6, address.c_str(), bytes) != 1 || inet_ntop(AF_INET6, bytes, text, sizeof text) == nullptr) return false;
  const bool compatible = std::all_of(bytes, bytes + 12, [](unsigned char b) { return b == 0; });
  return compatible ? address.find('.') == std::string::npos && address.find("::") == 0 : address == text;
}

// Compares EVENT with the text report's FRAME: metadata line and, as ARGS ask, the dumps.
void expect_agreement(const json& event, const text_frame& frame, const std::vector<std::string>& args) {
  const std::vector<std::string>& c = frame.columns;
  SCOPED_TRACE(event.dump());
  EXPECT_EQ(event["event_type"], "icmp");
  EXPECT_EQ(event["pcap_file"], frame.file);
  EXPECT_EQ(event["frame"].get<uint64_t>(), std::stoull(trim(c[0])));
  const std::string timestamp = event["timestamp"];
  if (c[1].empty()) {  // seconds 0, or 2^31 and on
    EXPECT_TRUE(timestamp < "1970-01-01T00:00:01" || timestamp >= "2038-01-19T03:14:08") << timestamp;
  } else {
    EXPECT_EQ(timestamp.substr(0, 23), c[1] + "T" + c[2]);
  }
  const bool v6 = trim(c[3]) == "icmpv6";
  EXPECT_EQ(event["proto"], v6 ? "IPv6-ICMP" : "ICMP");
  for (const auto& [key, column] : {std::pair{"src_ip", 4}, std::pair{"dest_ip", 5}}) {
    const std::string address = event[key];
    if (v6) {
      EXPECT_EQ(report_form(address), trim(c[column]));
      EXPECT_TRUE(rfc5952_form(address)) << address;
    } else {
      EXPECT_EQ(address, trim(c[column]));
    }
  }
  EXPECT_EQ(event["ttl"].get<int>(), std::stoi(c[6]));
  EXPECT_EQ(event["wire_len"].get<uint64_t>(), std::stoull(c[7]));
  EXPECT_EQ(event["payload_len"].get<uint64_t>(), std::stoull(c[8]));
  EXPECT_EQ(event["payload_md5"], c[9].empty() ? json(nullptr) : json(c[9]));
  std::string comments = c[10];
  const std::string warning = "payload has entropy high";
  const bool high = comments.ends_with(warning);
  comments = high ? comments.substr(0, comments.size() - warning.size()) : comments.substr(0, comments.size() - 1);
  if (high && comments.ends_with(", ")) comments.resize(comments.size() - 2);
  EXPECT_EQ(event["entropy_high"], high);
  if (comments.rfind("id: 0x", 0) == 0) {
    EXPECT_EQ(event["icmp_id"].get<unsigned>(), std::stoul(comments.substr(6, 4), nullptr, 16));
    EXPECT_TRUE(event.contains("icmp_seq"));
    comments = comments.substr(12);
  } else {
    // Information request and reply carry them too, though the comments show no identifier.
    const bool information = !v6 && (event["icmp_type"] == 15 || event["icmp_type"] == 16);
    EXPECT_EQ(event.contains("icmp_id"), information);
    EXPECT_EQ(event.contains("icmp_seq"), information);
  }
  EXPECT_EQ(event["type_name"], comments);

  const auto has = [&](const char* option) { return std::find(args.begin(), args.end(), option) != args.end(); };
  const std::string payload = event.contains("payload") ? base64_decode(event["payload"]) : "";
  EXPECT_EQ(payload.size(), has("-dump_payload") ? event["payload_len"].get<size_t>() : 0);
  if (has("-ascii")) {
    // The payload's printable form, then an empty line; nothing for an empty payload.
    const std::vector<std::string> expected = payload.empty() ? std::vector<std::string>{}
                                                              : std::vector<std::string>{event["payload_printable"], ""};
    EXPECT_EQ(frame.dump, expected);
    std::string printable;
    for (char b : payload) printable += b >= 32 && b <= 126 ? b : '.';
    EXPECT_EQ(event["payload_printable"], printable);
  } else if (has("-strings")) {
    std::vector<std::string> expected;
    for (const char* list : {"payload_ascii_strings", "payload_utf16_strings"})
      for (const json& s : event[list]) expected.push_back(s);
    if (!payload.empty()) expected.push_back("");
    EXPECT_EQ(frame.dump, expected);
  } else if (has("-dump_hdr") || has("-dump_payload")) {
    // The hex view's bytes, region by region.
    std::map<std::string, std::string> regions;
    std::string region;
    for (const std::string& line : frame.dump) {
      if (line == "packet hdr" || line == "payload") region = line == "payload" ? "payload" : "packet";
      else if (line.size() > 12 && line[9] == ':')
        for (const std::string& token : split(trim(line.substr(12, 49)), " "))
          if (!token.empty()) regions[region] += static_cast<char>(std::stoi(token, nullptr, 16));
    }
    if (has("-dump_hdr")) {
      EXPECT_EQ(base64_decode(event["packet"]), regions["packet"]);
    }
    if (has("-dump_payload")) {
      EXPECT_EQ(payload, regions["payload"]);
    }
  }
}

// The events of a JSON report, each line parsed.
std::vector<json> events_of(const std::string& out) {
  std::vector<json> events;
  EXPECT_TRUE(out.empty() || out.back() == '\n') << "the report does not end with a line end";
  for (const std::string& line : split_lines(out)) {
    try {
      events.push_back(json::parse(line));
    } catch (const json::exception& e) {
      ADD_FAILURE() << e.what() << "\n" << line;
    }
  }
  return events;
}

// Runs ARGS without and with -json and compares the two reports. Returns the JSON report.
std::string compare_runs(const std::vector<std::string>& args, const run_options& options = {}) {
  std::string trace;
  for (const std::string& a : args) trace += a + " ";
  SCOPED_TRACE(trace);
  const run_result text = run_varn(args, options);
  std::vector<std::string> json_args = args;
  json_args.push_back("-json");
  const run_result report = run_varn(json_args, options);
  EXPECT_EQ(report.status, text.status);

  const bool listed = std::find(args.begin(), args.end(), "-pipe") != args.end() ||
                      std::find(args.begin(), args.end(), "-enumdir") != args.end();
  const std::vector<text_frame> frames = text_frames(text.report(), listed);
  const std::vector<json> events = events_of(report.out);
  size_t at = 0;
  std::map<std::string, uint64_t> per_file;
  for (const json& event : events) {
    if (event["event_type"] == "file") {
      EXPECT_EQ(event["selected"].get<uint64_t>(), per_file[event["pcap_file"]]) << event.dump();
      per_file[event["pcap_file"]] = 0;
      continue;
    }
    ++per_file[event["pcap_file"]];
    if (at < frames.size()) expect_agreement(event, frames[at], args);
    ++at;
  }
  EXPECT_EQ(at, frames.size()) << "icmp events against metadata lines";
  return report.out;
}

// Checks REPORTS against the schema with python3-jsonschema; the reports are written to DIR.
void expect_schema_accepts(const std::vector<std::string>& reports, const temp_dir& dir) {
  std::string command = "/usr/bin/python3 '" + k_source_dir + "/tests/support/validate_events.py' '" + k_source_dir +
                        "/schema/varn-events.schema.json'";
  for (size_t i = 0; i < reports.size(); ++i) {
    const std::string path = dir.file("report-" + std::to_string(i) + ".json");
    write_file(path, reports[i]);
    command += " '" + path + "'";
  }
  std::string out;
  FILE* p = ::popen((command + " 2>&1").c_str(), "r");
  ASSERT_NE(p, nullptr);
  char buf[4096];
  for (size_t n; (n = std::fread(buf, 1, sizeof buf, p)) > 0;) out.append(buf, n);
  const int status = ::pclose(p);
  if (WIFEXITED(status) && WEXITSTATUS(status) == 2) GTEST_SKIP() << out;
  EXPECT_EQ(status, 0) << out.substr(0, 4000);
}

std::vector<std::string> capture_files(const std::string& dir) {
  std::vector<std::string> names;
  if (dir.empty() || !fs::exists(dir)) return names;
  for (const auto& entry : fs::directory_iterator(dir))
    if (entry.is_regular_file() && entry.path().extension() != ".md") names.push_back(entry.path().filename().string());
  std::sort(names.begin(), names.end());
  return names;
}

// The text options the comparisons run with (-dump_meta keeps the metadata lines beside dumps).
const std::vector<std::vector<std::string>> k_dump_sets = {
    {},
    {"-dump_meta", "-dump_hdr", "-dump_payload"},
    {"-dump_meta", "-dump_payload", "-ascii"},
    {"-dump_meta", "-dump_payload", "-strings"},
};

TEST(json_report_test, shared_captures_give_valid_events_that_agree_with_the_text_report) {
  const std::string captures = shared_captures_dir();
  if (captures.empty()) GTEST_SKIP() << "no shared captures folder next to the checkout";
  std::vector<std::string> reports;
  size_t icmp_events = 0;
  for (const std::string& dir : {captures, captures + "/../tunnels"}) {
    for (const std::string& name : capture_files(dir)) {
      for (const std::vector<std::string>& set : k_dump_sets) {
        std::vector<std::string> args = {"-ifile", name};
        args.insert(args.end(), set.begin(), set.end());
        reports.push_back(compare_runs(args, {stdin_mode::empty, "", dir}));
        icmp_events += static_cast<size_t>(std::count(reports.back().begin(), reports.back().end(), '\n'));
      }
    }
  }
  EXPECT_GT(icmp_events, 1000u);
  temp_dir scratch;
  expect_schema_accepts(reports, scratch);
}

// Random frames: both families, every type, zero runs in IPv6 addresses, timestamps the text
// leaves blank, IPv4 options, captures cut inside the headers, random and patterned payloads.
std::string random_capture_text(uint32_t seed, size_t records) {
  std::mt19937 rng(seed);
  auto pick = [&](uint32_t n) { return static_cast<uint32_t>(rng() % n); };
  std::string text;
  for (size_t i = 0; i < records; ++i) {
    const uint32_t ts = pick(10) == 0 ? (pick(2) ? 0u : 2147483648u + pick(1000)) : 1600000000u + pick(100000000);
    const bool v6 = pick(2) == 1;
    const uint32_t payload = pick(4) == 0 ? 0 : pick(3) == 0 ? 256 + pick(1200) : pick(100);
    const uint32_t frame = (v6 ? 62 : 42) + payload;
    text += "record ts=" + std::to_string(ts) + " usec=" + std::to_string(pick(1000000));
    if (pick(8) == 0) {
      const uint32_t keep = 30 + pick(frame - 29);
      text += " keep=" + std::to_string(keep) + " incl=" + std::to_string(keep) + " orig=" + std::to_string(frame);
    }
    text += "\n";
    const uint32_t type = pick(3) == 0 ? pick(256) : v6 ? (pick(2) ? 128 + pick(10) : 1 + pick(4)) : pick(19);
    if (v6) {
      std::string address[2];
      for (std::string& a : address) {
        for (int g = 0; g < 8; ++g) {
          char group[8];
          std::snprintf(group, sizeof group, "%x", pick(2) ? 0 : pick(0x10000));
          a += (g ? ":" : "") + std::string(group);
        }
      }
      text += "icmp6 src=" + address[0] + " dst=" + address[1] + " hlim=" + std::to_string(pick(256));
    } else {
      text += "icmp4 src=" + std::to_string(pick(256)) + ".0." + std::to_string(pick(256)) + ".1 dst=10." +
              std::to_string(pick(256)) + ".0.0 ttl=" + std::to_string(pick(256)) + " ihl=" + std::to_string(5 + (pick(4) == 0 ? pick(3) : 0));
    }
    text += " type=" + std::to_string(type) + " code=" + std::to_string(pick(6)) + " id=" + std::to_string(pick(65536)) +
            " seq=" + std::to_string(pick(65536)) + "\n";
    if (payload > 0) {
      switch (pick(3)) {
        case 0: text += "random " + std::to_string(payload) + " seed=" + std::to_string(i) + "\n"; break;
        case 1: text += "values " + std::to_string(1 + payload / 256) + " seed=" + std::to_string(i) + "\n"; break;
        default: text += "count " + std::to_string(payload) + " from=" + std::to_string(pick(256)) + "\n"; break;
      }
    }
    if (pick(12) == 0) text += "record ts=1600000000\neth type=0x0806\nfill 28 1\n";
  }
  return text;
}

// Every filter, list and input option selects the same frames for -json as for the text report.
TEST(json_report_test, generated_captures_agree_with_the_text_report_under_every_selection_option) {
  temp_dir dir;
  const std::vector<std::string> texts = {"mixed.txt", "filters.txt", "ipv6-sources.txt", "text.txt", "formats-ihl6.txt"};
  for (const std::string& name : texts) write_file(dir.file(name + ".pcap"), capture(read_file(k_source_dir + "/tests/cases/captures/" + name)));
  write_file(dir.file("random.pcap"), capture(random_capture_text(20261123, 400)));
  fs::create_directory(dir.file("sub"));
  write_file(dir.file("sub/inner.pcap"), capture(random_capture_text(7, 60)));
  fs::copy_file(k_source_dir + "/examples/sample.pcap", dir.file("sample.pcap"));
  for (const auto& entry : fs::directory_iterator(k_source_dir + "/tests/regress"))
    fs::copy_file(entry.path(), dir.file(entry.path().filename().string()));

  std::vector<std::string> reports;
  const run_options in_dir{stdin_mode::empty, "", dir.path()};
  for (const std::string& file : capture_files(dir.path()))
    for (const std::vector<std::string>& set : k_dump_sets) {
      std::vector<std::string> args = {"-ifile", file};
      args.insert(args.end(), set.begin(), set.end());
      reports.push_back(compare_runs(args, in_dir));
    }
  const std::vector<std::vector<std::string>> selections = {
      {"-frame", "1 3 5 7 9 11 13 200 201 202"},
      {"-srcip", "0x0201a8c0"},
      {"-dstip", "0x0101a8c0", "-srcip", "0x0201a8c0", "-track_replies"},
      {"-srcipv6", "fe80:0:0:0:0:0:0:1", "-dstipv6", "fe80:0:0:0:0:0:0:2", "-track_replies"},
      {"-icmp_type", "0,8;128|129 3"},
      {"-icmp_code", "3 4"},
      {"-icmp_id", "0x1a2b 0x0100 7"},
      {"-min_size", "300"},
      {"-start_time", "01/15/21 10:00:02", "-stop_time", "01/15/21 10:00:08"},
      {"-start_time", "1/1/2035"},
      {"-find_pattern", "0x45 ? ? 0x54"},
      {"-find_pattern_h", "50 49 4e 47"},
  };
  for (const std::string file : {"mixed.txt.pcap", "filters.txt.pcap", "random.pcap", "ipv6-sources.txt.pcap"})
    for (const std::vector<std::string>& selection : selections) {
      std::vector<std::string> args = {"-ifile", file};
      args.insert(args.end(), selection.begin(), selection.end());
      reports.push_back(compare_runs(args, in_dir));
    }
  // List input: names on standard input narrowed by -filter, and a directory walk.
  const run_options list{stdin_mode::text, "random.pcap\nmissing.pcap\nmixed.txt.pcap\nfilters.txt.pcap\nsub/inner.pcap\n", dir.path()};
  reports.push_back(compare_runs({"-pipe", "-dump_meta"}, list));
  reports.push_back(compare_runs({"-pipe", "-filter", "*i*.pcap", "-icmp_type", "8"}, list));
  reports.push_back(compare_runs({"-enumdir", "sub", "-dump_meta", "-dump_payload", "-ascii"}, in_dir));
  EXPECT_NE(reports.back().find("\"pcap_file\":\"sub/inner.pcap\""), std::string::npos) << reports.back();
  expect_schema_accepts(reports, dir);
}

// File names are written as UTF-8 text, with their exact bytes beside when they are not UTF-8.
TEST(json_report_test, file_names_round_trip_whatever_their_bytes) {
  temp_dir dir;
  const std::string capture_bytes = capture(read_file(k_source_dir + "/tests/cases/captures/abc.txt"));
  const std::vector<std::string> names = {
      "plain.pcap", "quote\"back\\slash.pcap", "tab\tbell\x07" "esc\x1b.pcap", "caf\xc3\xa9 \xe2\x80\xa8.pcap",
      "latin1 \xe9t\xe9.pcap", "cut \xe2\x82.pcap", "\xff\xfe.pcap", "surrogate \xed\xa0\x80.pcap"};
  std::string list;
  for (const std::string& name : names) {
    write_file(dir.file(name), capture_bytes);
    list += name + "\n";
  }
  const run_result single = run_varn({"-ifile", names[3], "-json"}, {stdin_mode::empty, "", dir.path()});
  const run_result listed = run_varn({"-pipe", "-json"}, {stdin_mode::text, list, dir.path()});
  std::vector<std::string> seen;
  for (const run_result* r : {&single, &listed}) {
    EXPECT_EQ(r->status, 0);
    for (const json& event : events_of(r->out)) {
      const std::string text = event["pcap_file"];
      const bool exact = !event.contains("pcap_file_base64");
      seen.push_back(exact ? text : base64_decode(event["pcap_file_base64"]));
      if (!exact) {
        EXPECT_NE(text.find("\xef\xbf\xbd"), std::string::npos) << text;  // U+FFFD in the text
      }
    }
  }
  std::vector<std::string> expected(2, names[3]);
  for (const std::string& name : names) expected.insert(expected.end(), 2, name);
  EXPECT_EQ(seen, expected);
  expect_schema_accepts({single.out, listed.out}, dir);
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

// The timestamp as tshark's frame.time_epoch writes it (seconds, a point, nine digits).
std::string epoch_of(const std::string& timestamp) {
  struct tm t = {};
  if (strptime(timestamp.c_str(), "%Y-%m-%dT%H:%M:%S", &t) == nullptr) return "bad timestamp " + timestamp;
  const size_t point = timestamp.find('.'), plus = timestamp.find('+');
  return std::to_string(timegm(&t)) + "." + (timestamp.substr(point + 1, plus - point - 1) + "000").substr(0, 9);
}

// The events of the shared captures against tshark's decoding of the same frames: capture time
// to the nanosecond, addresses (tshark writes IPv6 in the RFC 5952 form too), TTL or hop limit,
// wire and captured length, type, code, identifier and sequence number. Only the frames tshark
// also reads as Ethernet IPv4/ICMP or IPv6/ICMPv6 are compared.
TEST(json_report_test, events_agree_with_tshark) {
  const std::string captures = shared_captures_dir();
  if (captures.empty()) GTEST_SKIP() << "no shared captures folder next to the checkout";
  if (shell_output("command -v tshark && command -v mergecap").find("mergecap") == std::string::npos)
    GTEST_SKIP() << "tshark not installed";
  // Each capture's events by frame number; tshark starts slowly, so the captures are joined
  // into one file, one interface per capture.
  std::vector<std::map<uint64_t, json>> events;
  temp_dir scratch;
  std::string merge = "mergecap -I none -a -F pcapng -w '" + scratch.file("all.pcapng") + "'";
  for (const std::string& dir : {captures, captures + "/../tunnels"}) {
    for (const std::string& name : capture_files(dir)) {
      const run_result r = run_varn({"-ifile", name, "-json"}, {stdin_mode::empty, "", dir});
      std::map<uint64_t, json> by_frame;
      for (const json& event : events_of(r.out))
        if (event["event_type"] == "icmp") by_frame[event["frame"]] = event;
      if (by_frame.empty()) continue;
      events.push_back(by_frame);
      merge += " '" + dir + "/" + name + "'";
    }
  }
  shell_output(merge + " 2>/dev/null");
  const std::string rows = shell_output(
      "tshark -n -o ip.defragment:FALSE -o ipv6.defragment:FALSE -r '" + scratch.file("all.pcapng") +
      "' -T fields -e frame.interface_id -e frame.time_epoch -e ip.src -e ip.dst -e ip.ttl -e ipv6.src -e ipv6.dst"
      " -e ipv6.hlim -e frame.len -e frame.cap_len -e icmp.type -e icmp.code -e icmp.ident -e icmp.seq -e icmpv6.type"
      " -e icmpv6.code -e icmpv6.echo.identifier -e icmpv6.echo.sequence_number -e frame.protocols 2>/dev/null");
  std::vector<uint64_t> seen(events.size(), 0);
  size_t compared = 0;
  for (const std::string& line : split_lines(rows)) {
    const std::vector<std::string> f = split(line, "\t");
    if (f.size() != 19 || f[0].empty() || std::stoul(f[0]) >= events.size()) continue;
    const size_t file = std::stoul(f[0]);
    const auto found = events[file].find(++seen[file]);
    if (found == events[file].end()) continue;
    const bool v4 = f[18].rfind("eth:ethertype:ip:icmp", 0) == 0, v6 = f[18].rfind("eth:ethertype:ipv6:icmpv6", 0) == 0;
    if (!v4 && !v6) continue;  // tshark reads this frame as another encapsulation
    const json& e = found->second;
    SCOPED_TRACE(e.dump() + "\n" + line);
    auto first = [&](size_t i) { return f[i].substr(0, f[i].find(',')); };  // errors repeat quoted fields
    const size_t at = v4 ? 2 : 5, kind = v4 ? 10 : 14;
    EXPECT_EQ(epoch_of(e["timestamp"]), f[1]);
    EXPECT_EQ(e["src_ip"], first(at));
    EXPECT_EQ(e["dest_ip"], first(at + 1));
    EXPECT_EQ(std::to_string(e["ttl"].get<int>()), first(at + 2));
    EXPECT_EQ(std::to_string(e["wire_len"].get<uint64_t>()), f[8]);
    EXPECT_EQ(std::to_string(e["cap_len"].get<uint64_t>()), f[9]);
    if (!f[kind].empty()) {
      EXPECT_EQ(std::to_string(e["icmp_type"].get<int>()), first(kind));
      EXPECT_EQ(std::to_string(e["icmp_code"].get<int>()), first(kind + 1));
    }
    if (e.contains("icmp_id") && !f[kind + 2].empty() && !f[kind + 3].empty()) {
      EXPECT_EQ(e["icmp_id"].get<unsigned long>(), std::stoul(first(kind + 2), nullptr, 0));
      EXPECT_EQ(e["icmp_seq"].get<unsigned long>(), std::stoul(first(kind + 3), nullptr, 0));
    }
    ++compared;
  }
  std::printf("[ tshark   ] %zu captures, %zu icmp events compared\n", events.size(), compared);
  EXPECT_GT(compared, 1000u);
}

// The schema is no formality: events with a wrong member are refused.
TEST(json_report_test, schema_refuses_malformed_events) {
  const run_result r = run_varn({"-ifile", k_source_dir + "/examples/sample.pcap", "-json"});
  const std::string line = split_lines(r.out).at(0);
  const std::vector<std::pair<std::string, std::string>> breaks = {
      {"\"ttl\":64", "\"ttl\":256"},
      {"\"src_ip\":\"192.168.16.23\"", "\"src_ip\":\"192.168.16\""},
      {"\"payload_md5\":\"12d96ed542720e60d371650ee0abb885\"", "\"payload_md5\":null"},
      {"\"timestamp\":\"2024-05-06T07:08:09.126200+0000\"", "\"timestamp\":\"2024-05-06 07:08:09.126200\""},
      {"\"icmp_seq\":1,", ""},
      {"\"entropy_high\":false", "\"entropy_high\":false,\"extra\":1"},
  };
  temp_dir dir;
  for (const auto& [from, to] : breaks) {
    const size_t at = line.find(from);
    ASSERT_NE(at, std::string::npos) << from;
    std::string broken = line;
    broken.replace(at, from.size(), to);
    write_file(dir.file("broken.json"), broken + "\n");
    const std::string command = "/usr/bin/python3 '" + k_source_dir + "/tests/support/validate_events.py' '" + k_source_dir +
                                "/schema/varn-events.schema.json' '" + dir.file("broken.json") + "' >/dev/null 2>&1";
    const int status = std::system(command.c_str());
    if (WIFEXITED(status) && WEXITSTATUS(status) == 2) GTEST_SKIP() << "python3-jsonschema is not installed";
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 1) << to;
  }
}

}  // namespace
}  // namespace varn_test
