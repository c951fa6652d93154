// Unrecognised payloads: tunnel headers (captured from ptunnel, ptunnel-ng and icmptx, or built
// from the published formats) and the content judgement (text, random, other bytes).
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "conversations/payload_content.hpp"
#include "conversations/tunnel_signatures.hpp"
#include "support/capture_text.hpp"

namespace {

using namespace varn::conversations;

std::vector<uint8_t> hex(const std::string& text) {
  std::vector<uint8_t> b;
  for (size_t i = 0; i + 1 < text.size(); i += 2) b.push_back(static_cast<uint8_t>(std::stoi(text.substr(i, 2), nullptr, 16)));
  return b;
}
std::vector<uint8_t> text(const std::string& s) { return std::vector<uint8_t>(s.begin(), s.end()); }
// An 84-byte IPv4 packet (header captured from icmptx) with the header checksum CHECKSUM.
std::vector<uint8_t> ipv4_packet(const std::string& checksum) {
  std::vector<uint8_t> b = hex("450000544f8c40004001" + checksum + "0a6100010a610002");
  b.resize(84, 0);
  return b;
}
std::vector<uint8_t> random_bytes(size_t n, unsigned seed) { return text(varn_test::seeded_bytes(n, seed)); }

TEST(payload_content_test, finds_tunnel_headers) {
  struct row {
    const char* what;
    std::vector<uint8_t> payload;
    tunnel_signature expected;
  };
  std::vector<uint8_t> with_data = hex("d520088000000000000000004000000200000000000000560002f05b");
  with_data.resize(28 + 0x56, 'a');
  const std::vector<row> rows = {
      {"ptunnel (captured)", hex("d52008800a62000200001f40400000000000ffff000000000000f05b"), tunnel_signature::ptunnel},
      {"ptunnel-ng (captured)", hex("deadc0de0a63000200001f40400000000000ffff000000000000dca8"), tunnel_signature::ptunnel_ng},
      {"ptunnel with data", with_data, tunnel_signature::ptunnel},
      {"ptunnel-ng --magic", hex("0badf00d0a63000200001f40800000010000ffff000000000002dca8"), tunnel_signature::ptunnel_ng},
      {"hans client", text(std::string("hanc\x02") + "secret"), tunnel_signature::hans},
      {"icmptunnel", text(std::string("TUNL\x01") + "abcdefgh"), tunnel_signature::icmptunnel},
      {"icmptx: IPv6 packet (captured)",
       hex("6000000000083afffe80000000000000b06e093f9c3fba1fff02000000000000000000000000000285006d2a00000000"),
       tunnel_signature::ip_packet},
      {"IPv4 packet", ipv4_packet("d658"), tunnel_signature::ip_packet},
      {"IPv4 header with a wrong checksum", ipv4_packet("d659"), tunnel_signature::none},
      {"text", text("hanging around the harbour, hans said"), tunnel_signature::none},
  };
  for (const row& r : rows)
    EXPECT_STREQ(tunnel_signature_name(find_tunnel_signature(r.payload.data(), static_cast<uint32_t>(r.payload.size()),
                                                             static_cast<uint32_t>(r.payload.size()))),
                 tunnel_signature_name(r.expected))
        << r.what;
}

TEST(payload_content_test, judges_text_random_and_other_bytes) {
  std::vector<uint8_t> counter(600);
  for (size_t i = 0; i < counter.size(); ++i) counter[i] = static_cast<uint8_t>(i);
  std::vector<uint8_t> utf16;
  for (char c : std::string("\\\\fileserver\\share\\q3.docx")) utf16.push_back(static_cast<uint8_t>(c)), utf16.push_back(0);
  std::vector<uint8_t> sparse(200, 0);
  for (size_t i = 0; i < sparse.size(); i += 7) sparse[i] = static_cast<uint8_t>(i);
  struct row {
    const char* what;
    std::vector<uint8_t> payload;
    content_kind expected;
  };
  const std::vector<row> rows = {
      {"licence text", text("This program is free software: you can redistribute it and/or modify it"), content_kind::text},
      {"base64", text("SUNBZ0lDQWdJQ0FnSUNBZ0lDQWdJQ0FnSUNBZ0lDQWdJQ0FnSUNBZ0lDQWdJQ0FnSUNBZ0lDQWdJQ0Fn"), content_kind::text},
      {"UTF-16 text", utf16, content_kind::text},
      {"random, 1400 bytes", random_bytes(1400, 3), content_kind::random},
      {"counter: every value, no randomness", counter, content_kind::binary},
      {"mostly zeros", sparse, content_kind::binary},
      {"eight bytes of text", text("pass=Win"), content_kind::text},
      {"too short to judge", random_bytes(12, 4), content_kind::binary},
  };
  for (const row& r : rows)
    EXPECT_EQ(static_cast<int>(judge_content(r.payload.data(), static_cast<uint32_t>(r.payload.size()))),
              static_cast<int>(r.expected))
        << r.what;
  // Base64 shows itself by a symbol letters and digits lack.
  for (const auto& [chunk, shows] : std::vector<std::pair<std::string, bool>>{
           {"yDW+o3auTbFsupTgdjY4", true}, {"R8/+7Q==", true}, {"aGVsbG8=", true}, {"D0kCasAaemlJoRpBGEMC", false},
           {"a+b=c/d-", false}, {"+/=", false}, {"path/to file", false}})
    EXPECT_EQ(shows_base64(reinterpret_cast<const uint8_t*>(chunk.data()), static_cast<uint32_t>(chunk.size())), shows)
        << chunk;
  // Random bytes pass at every judged length, across seeds.
  int missed = 0;
  for (uint32_t n = k_min_judged_content; n <= 600; n += 7)
    for (unsigned seed = 0; seed < 5; ++seed) missed += judge_content(random_bytes(n, seed * 1000 + n).data(), n) != content_kind::random;
  EXPECT_LE(missed, 4) << "of " << 5 * ((600 - k_min_judged_content) / 7 + 1);
}

}  // namespace
