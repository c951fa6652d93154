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
#include <sstream>

#include "support/capture_text.hpp"
#include "support/run_varn.hpp"
#include "support/tshark_fields.hpp"

namespace varn_test {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;

const std::string k_source_dir = VARN_SOURCE_DIR;

std::string base64_decode(const std::string& text) {
  static const std::string alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string out;
  uint32_t bits = 0;
  int count = 0;
  for (size_t i = 0; i < text.size() && text[i] != '='; ++i) {
    bits = bits << 6 | static_cast<uint32_t>(alphabet.find(text[i]));
    if ((count += 6) >= 8) out += static_cast<char>(bits >> (count -= 8) & 0xff);
  }
  return out;
}

bool has(const std::vector<std::string>& args, const char* option) { return std::find(args.begin(), args.end(), option) != args.end(); }

// One frame of the text report: "file|frame|date|time|proto|source|destination|ttl|Tsize|Psize|
// md5|comments" (IPv6 addresses in their usual form), and the non-empty dump lines after it.
struct text_frame {
  std::string record;
  std::vector<std::string> dump;
};

std::vector<text_frame> text_frames(const std::string& report) {
  std::vector<text_frame> frames;
  std::string file;
  for (const std::string& line : split_lines(report)) {
    const std::vector<std::string> c = split(line, " , ");
    if (line.rfind("Processing file: ", 0) == 0) {
      file = line.substr(17);
    } else if (c.size() < 11) {
      if (!frames.empty() && !line.empty()) frames.back().dump.push_back(line);
    } else if (trim(c[0]).find_first_not_of("0123456789") == std::string::npos) {
      std::string record = file;
      for (size_t i = 0; i < 10; ++i) record.append("|").append(i == 4 || i == 5 ? canonical(trim(c[i])) : trim(c[i]));
      for (size_t i = 10; i < c.size(); ++i) record.append(i == 10 ? "|" : " , ").append(c[i]);  // the comments, whatever they hold
      frames.push_back({record, {}});
    }
  }
  return frames;
}

// The same record built from an "icmp" event.
std::string event_record(const json& e) {
  const std::string ts = e["timestamp"];
  const bool blank = ts < "1970-01-01T00:00:01" || ts >= "2038-01-19T03:14:08";  // seconds 0, or 2^31 and on
  const bool v6 = e["proto"] == "IPv6-ICMP", information = !v6 && (e["icmp_type"] == 15 || e["icmp_type"] == 16);
  std::string comments = e["type_name"];
  if (e.contains("icmp_id") && !information) {  // information request and reply carry one the text does not show
    char id[16];
    std::snprintf(id, sizeof id, "id: 0x%04x, ", e["icmp_id"].get<unsigned>());
    comments = id + comments;
  }
  comments += e["entropy_high"] != true ? " " : comments.empty() ? "payload has entropy high" : ", payload has entropy high";
  return e["pcap_file"].get<std::string>() + "|" + e["frame"].dump() + "|" + (blank ? "|" : ts.substr(0, 10) + "|" + ts.substr(11, 12)) +
         "|" + (v6 ? "icmpv6" : e["proto"] == "ICMP" ? "icmp" : e["proto"].dump()) + "|" + canonical(e["src_ip"]) + "|" +
         canonical(e["dest_ip"]) + "|" + e["ttl"].dump() + "|" + e["wire_len"].dump() + "|" + e["payload_len"].dump() + "|" +
         (e["payload_md5"].is_null() ? "" : e["payload_md5"].get<std::string>()) + "|" + comments;
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
void expect_agreement(const json& e, const text_frame& frame, const std::vector<std::string>& args) {
  SCOPED_TRACE(e.dump());
  EXPECT_EQ(e["event_type"], "icmp");
  EXPECT_EQ(event_record(e), frame.record);
  EXPECT_EQ(e.contains("icmp_seq"), e.contains("icmp_id"));
  if (e["proto"] == "IPv6-ICMP") {
    EXPECT_TRUE(rfc5952_form(e["src_ip"]) && rfc5952_form(e["dest_ip"]));
  } else if (e["icmp_type"] == 15 || e["icmp_type"] == 16) {
    EXPECT_TRUE(e.contains("icmp_id"));
  }
  const std::string payload = e.contains("payload") ? base64_decode(e["payload"]) : "";
  EXPECT_EQ(payload.size(), has(args, "-dump_payload") ? e["payload_len"].get<size_t>() : 0);
  std::vector<std::string> expected;
  if (has(args, "-ascii")) {
    std::string printable;
    for (char b : payload) printable += b >= 32 && b <= 126 ? b : '.';
    EXPECT_EQ(e.value("payload_printable", "<none>"), printable);
    if (!payload.empty()) expected.push_back(printable);
  } else if (has(args, "-strings")) {
    for (const char* list : {"payload_ascii_strings", "payload_utf16_strings"})
      for (const json& s : e.value(list, json::array())) expected.push_back(s);
  } else {
    // The hex view's bytes, region by region.
    std::map<std::string, std::string> regions;
    std::string region;
    for (const std::string& line : frame.dump) {
      if (line == "packet hdr" || line == "payload") region = line;
      std::istringstream hex(line.size() > 12 && line[9] == ':' ? line.substr(12, 49) : "");
      for (unsigned b; hex >> std::hex >> b;) regions[region] += static_cast<char>(b);
    }
    const std::string packet = e.contains("packet") ? base64_decode(e["packet"]) : "";
    EXPECT_EQ(packet, regions["packet hdr"]);
    EXPECT_EQ(payload, regions["payload"]);
    if (packet.size() >= 8 && e["header_truncated"] == false) {  // the region ends with the ICMP header
      const auto at = [&](size_t back) { return static_cast<unsigned>(static_cast<uint8_t>(packet[packet.size() - back])); };
      EXPECT_EQ(e["icmp_type"].get<unsigned>() << 8 | e["icmp_code"].get<unsigned>(), at(8) << 8 | at(7));
      if (e.contains("icmp_id")) {
        EXPECT_EQ(e["icmp_id"].get<unsigned>() << 16 | e["icmp_seq"].get<unsigned>(), at(4) << 24 | at(3) << 16 | at(2) << 8 | at(1));
      }
    }
    return;
  }
  EXPECT_EQ(frame.dump, expected);
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

// Runs ARGS and MORE without and with -json and compares the two reports. Returns the JSON report.
std::string compare_runs(const run_options& options, std::vector<std::string> args, const std::vector<std::string>& more = {}) {
  args.insert(args.end(), more.begin(), more.end());
  const run_result text = run_varn(args, options);
  args.push_back("-json");
  SCOPED_TRACE(testing::PrintToString(args));
  const run_result report = run_varn(args, options);
  EXPECT_EQ(report.status, text.status);
  const std::vector<text_frame> frames = text_frames(text.report());
  size_t at = 0;
  std::map<std::string, uint64_t> per_file;
  for (const json& event : events_of(report.out)) {
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

// Runs the events validator on REPORTS, written to DIR: its exit status (2: no python3-jsonschema)
// and output.
std::pair<int, std::string> validate(const std::vector<std::string>& reports, const temp_dir& dir) {
  std::string command = "/usr/bin/python3 '" + k_source_dir + "/tests/support/validate_events.py' '" + k_source_dir +
                        "/schema/varn-events.schema.json'";
  for (size_t i = 0; i < reports.size(); ++i) {
    write_file(dir.file("report-" + std::to_string(i) + ".json"), reports[i]);
    command += " '" + dir.file("report-" + std::to_string(i) + ".json") + "'";
  }
  const std::string out = shell_output(command + " 2>&1; echo $?");
  return {std::stoi(out.substr(out.rfind('\n', out.size() - 2) + 1)), out};
}

void expect_schema_accepts(const std::vector<std::string>& reports, const temp_dir& dir) {
  const auto [status, out] = validate(reports, dir);
  if (status == 2) GTEST_SKIP() << out;
  EXPECT_EQ(status, 0) << out.substr(0, 4000);
}

// Compares the reports of every capture file in DIRS (README files left out) under each set of
// text options (-dump_meta keeps the metadata lines beside the dumps). Returns the JSON reports.
std::vector<std::string> compare_dump_sets(const std::vector<std::string>& dirs) {
  std::vector<std::pair<std::string, std::string>> files;
  std::error_code absent;
  for (const std::string& dir : dirs)
    for (const auto& entry : fs::directory_iterator(dir, absent))
      if (entry.is_regular_file() && entry.path().extension() != ".md") files.emplace_back(dir, entry.path().filename().string());
  std::sort(files.begin(), files.end());
  std::vector<std::string> reports;
  for (const auto& [dir, name] : files)
    for (const std::vector<std::string>& set : {std::vector<std::string>{}, {"-dump_meta", "-dump_hdr", "-dump_payload"},
                                                {"-dump_meta", "-dump_payload", "-ascii"}, {"-dump_meta", "-dump_payload", "-strings"}})
      reports.push_back(compare_runs({stdin_mode::empty, "", dir}, {"-ifile", name}, set));
  return reports;
}

TEST(json_report_test, shared_captures_give_valid_events_that_agree_with_the_text_report) {
  const std::string captures = shared_captures_dir();
  if (captures.empty()) GTEST_SKIP() << "no shared captures folder next to the checkout";
  const std::vector<std::string> reports = compare_dump_sets({captures, captures + "/../tunnels"});
  size_t events = 0;
  for (const std::string& r : reports) events += static_cast<size_t>(std::count(r.begin(), r.end(), '\n'));
  EXPECT_GT(events, 1000u);
  temp_dir scratch;
  expect_schema_accepts(reports, scratch);
}

// Random frames: both families, every type, zero runs in IPv6 addresses, timestamps the text
// leaves blank, IPv4 options, captures cut inside the headers, random and patterned payloads.
std::string random_capture_text(uint32_t seed, size_t records) {
  std::mt19937 rng(seed);
  auto pick = [&](uint32_t n) { return static_cast<uint32_t>(rng() % n); };
  auto num = [&](uint32_t n) { return std::to_string(pick(n)); };
  auto v6_address = [&] {
    std::ostringstream a;
    for (int g = 0; g < 8; ++g) a << (g ? ":" : "") << std::hex << (pick(2) ? 0 : pick(0x10000));
    return a.str();
  };
  std::string text;
  for (size_t i = 0; i < records; ++i) {
    const uint32_t ts = pick(10) == 0 ? (pick(2) ? 0u : 2147483648u + pick(1000)) : 1600000000u + pick(100000000);
    const bool v6 = pick(2) == 1;
    const uint32_t payload = pick(4) == 0 ? 0 : pick(3) == 0 ? 256 + pick(1200) : pick(100), frame = (v6 ? 62 : 42) + payload;
    text += "record ts=" + std::to_string(ts) + " usec=" + num(1000000);
    if (pick(8) == 0) {
      const std::string keep = std::to_string(30 + pick(frame - 29));
      text += " keep=" + keep + " incl=" + keep + " orig=" + std::to_string(frame);
    }
    const uint32_t type = pick(3) == 0 ? pick(256) : v6 ? (pick(2) ? 128 + pick(10) : 1 + pick(4)) : pick(19);
    text += v6 ? "\nicmp6 src=" + v6_address() + " dst=" + v6_address() + " hlim=" + num(256)
               : "\nicmp4 src=" + num(256) + ".0." + num(256) + ".1 dst=10." + num(256) + ".0.0 ttl=" + num(256) +
                     " ihl=" + std::to_string(5 + (pick(4) == 0 ? pick(3) : 0));
    text += " type=" + std::to_string(type) + " code=" + num(6) + " id=" + num(65536) + " seq=" + num(65536) + "\n";
    if (const uint32_t kind = payload > 0 ? pick(3) : 3; kind < 3)
      text += std::string(kind == 0 ? "random " : kind == 1 ? "values " : "count ") + std::to_string(kind == 1 ? 1 + payload / 256 : payload) +
              (kind == 2 ? " from=" + num(256) : " seed=" + std::to_string(i)) + "\n";
    if (pick(12) == 0) text += "record ts=1600000000\neth type=0x0806\nfill 28 1\n";
  }
  return text;
}

// Every filter, list and input option selects the same frames for -json as for the text report.
TEST(json_report_test, generated_captures_agree_with_the_text_report_under_every_selection_option) {
  temp_dir dir;
  for (const std::string name : {"mixed.txt", "filters.txt", "ipv6-sources.txt", "text.txt", "formats-ihl6.txt"})
    write_file(dir.file(name + ".pcap"), capture(read_file(k_source_dir + "/tests/cases/captures/" + name)));
  write_file(dir.file("random.pcap"), capture(random_capture_text(20261123, 400)));
  fs::create_directory(dir.file("sub"));
  write_file(dir.file("sub/inner.pcap"), capture(random_capture_text(7, 60)));
  fs::copy_file(k_source_dir + "/examples/sample.pcap", dir.file("sample.pcap"));
  for (const auto& entry : fs::directory_iterator(k_source_dir + "/tests/regress"))
    fs::copy_file(entry.path(), dir.file(entry.path().filename().string()));

  std::vector<std::string> reports = compare_dump_sets({dir.path()});
  const run_options in_dir{stdin_mode::empty, "", dir.path()};
  for (const std::string file : {"mixed.txt.pcap", "filters.txt.pcap", "random.pcap", "ipv6-sources.txt.pcap"})
    for (const std::vector<std::string>& selection : std::vector<std::vector<std::string>>{
             {"-frame", "1 3 5 7 9 11 13 200 201 202"}, {"-srcip", "0x0201a8c0"},
             {"-dstip", "0x0101a8c0", "-srcip", "0x0201a8c0", "-track_replies"},
             {"-srcipv6", "fe80:0:0:0:0:0:0:1", "-dstipv6", "fe80:0:0:0:0:0:0:2", "-track_replies"},
             {"-icmp_type", "0,8;128|129 3"}, {"-icmp_code", "3 4"}, {"-icmp_id", "0x1a2b 0x0100 7"}, {"-min_size", "300"},
             {"-start_time", "01/15/21 10:00:02", "-stop_time", "01/15/21 10:00:08"}, {"-start_time", "1/1/2035"},
             {"-find_pattern", "0x45 ? ? 0x54"}, {"-find_pattern_h", "50 49 4e 47"}})
      reports.push_back(compare_runs(in_dir, {"-ifile", file}, selection));
  // List input: names on standard input narrowed by -filter, and a directory walk.
  const run_options list{stdin_mode::text, "random.pcap\nmissing.pcap\nmixed.txt.pcap\nfilters.txt.pcap\nsub/inner.pcap\n", dir.path()};
  reports.push_back(compare_runs(list, {"-pipe", "-dump_meta"}));
  reports.push_back(compare_runs(list, {"-pipe", "-filter", "*i*.pcap", "-icmp_type", "8"}));
  reports.push_back(compare_runs(in_dir, {"-enumdir", "sub", "-dump_meta", "-dump_payload", "-ascii"}));
  EXPECT_NE(reports.back().find("\"pcap_file\":\"sub/inner.pcap\""), std::string::npos) << reports.back();
  expect_schema_accepts(reports, dir);
}

// File names are written as UTF-8 text, with their exact bytes beside when they are not UTF-8.
TEST(json_report_test, file_names_round_trip_whatever_their_bytes) {
  temp_dir dir;
  const std::vector<std::string> names = {
      "plain.pcap", "quote\"back\\slash.pcap", "tab\tbell\x07" "esc\x1b.pcap", "caf\xc3\xa9 \xe2\x80\xa8.pcap",
      "latin1 \xe9t\xe9.pcap", "cut \xe2\x82.pcap", "\xff\xfe.pcap", "surrogate \xed\xa0\x80.pcap"};
  std::string list;
  for (const std::string& name : names) {
    write_file(dir.file(name), capture(read_file(k_source_dir + "/tests/cases/captures/abc.txt")));
    list += name + "\n";
  }
  const run_result single = run_varn({"-ifile", names[3], "-json"}, {stdin_mode::empty, "", dir.path()});
  const run_result listed = run_varn({"-pipe", "-json"}, {stdin_mode::text, list, dir.path()});
  std::vector<std::string> seen, expected(2, names[3]);
  for (const std::string& name : names) expected.insert(expected.end(), 2, name);
  for (const run_result* r : {&single, &listed}) {
    EXPECT_EQ(r->status, 0);
    for (const json& event : events_of(r->out)) {
      const std::string text = event["pcap_file"];
      seen.push_back(event.contains("pcap_file_base64") ? base64_decode(event["pcap_file_base64"]) : text);
      EXPECT_TRUE(!event.contains("pcap_file_base64") || text.find("\xef\xbf\xbd") != std::string::npos) << text;  // U+FFFD
    }
  }
  EXPECT_EQ(seen, expected);
  expect_schema_accepts({single.out, listed.out}, dir);
}

// The schema is no formality: events with a wrong member are refused, each on its line.
TEST(json_report_test, schema_refuses_malformed_events) {
  const std::string line = split_lines(run_varn({"-ifile", k_source_dir + "/examples/sample.pcap", "-json"}).out).at(0);
  const std::vector<std::pair<std::string, std::string>> breaks = {
      {"\"ttl\":64", "\"ttl\":256"},
      {"\"src_ip\":\"192.168.16.23\"", "\"src_ip\":\"192.168.16\""},
      {"\"payload_md5\":\"12d96ed542720e60d371650ee0abb885\"", "\"payload_md5\":null"},
      {"\"timestamp\":\"2024-05-06T07:08:09.126200+0000\"", "\"timestamp\":\"2024-05-06 07:08:09.126200\""},
      {"\"icmp_seq\":1,", ""},
      {"\"entropy_high\":false", "\"entropy_high\":false,\"extra\":1"},
  };
  std::string broken;
  for (const auto& [from, to] : breaks) {
    ASSERT_NE(line.find(from), std::string::npos) << from;
    broken += std::string(line).replace(line.find(from), from.size(), to) + "\n";
  }
  temp_dir dir;
  const auto [status, out] = validate({broken}, dir);
  if (status == 2) GTEST_SKIP() << out;
  EXPECT_EQ(status, 1) << out;
  for (size_t i = 0; i < breaks.size(); ++i) EXPECT_NE(out.find("report-0.json:" + std::to_string(i + 1) + ":"), std::string::npos) << breaks[i].second;
}

}  // namespace
}  // namespace varn_test
