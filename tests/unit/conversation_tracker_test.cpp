// The conversation analysis over frames built in memory: conversations close after the idle
// timeout (not before) and are written then, memory follows the live conversations, the
// direction comes from the message type, and the evidence of a host pair flags every echo
// conversation between its hosts, and the values that count as its data.
#include <gtest/gtest.h>

#include <functional>
#include <random>
#include <string>
#include <vector>

#include "capture/frame_handler.hpp"
#include "conversations/conversation_tracker.hpp"

namespace {

using namespace varn::conversations;

constexpr int64_t k_second = 1000000000;

// An Ethernet/IPv4/ICMP frame from 10.0.0.SRC to 10.0.0.DST.
std::vector<uint8_t> frame4(uint8_t src, uint8_t dst, uint8_t type, uint16_t id, uint16_t seq,
                            const std::vector<uint8_t>& payload) {
  // Filled by index: g++ 12 at -O3 warns falsely (-Warray-bounds) on inserting arrays after the
  // 14-byte Ethernet header.
  std::vector<uint8_t> f(42 + payload.size(), 0);
  f[12] = 0x08;
  const uint16_t total = static_cast<uint16_t>(28 + payload.size());
  const uint8_t ip[20] = {0x45, 0, static_cast<uint8_t>(total >> 8), static_cast<uint8_t>(total), 0, 1, 0, 0, 64, 1, 0, 0,
                          10, 0, 0, src, 10, 0, 0, dst};
  const uint8_t icmp[8] = {type, 0, 0, 0, static_cast<uint8_t>(id >> 8), static_cast<uint8_t>(id),
                           static_cast<uint8_t>(seq >> 8), static_cast<uint8_t>(seq)};
  for (size_t i = 0; i < 20; ++i) f[14 + i] = ip[i];
  for (size_t i = 0; i < 8; ++i) f[34 + i] = icmp[i];
  for (size_t i = 0; i < payload.size(); ++i) f[42 + i] = payload[i];
  return f;
}

std::vector<uint8_t> iputils_payload(uint32_t second) {
  std::vector<uint8_t> p(56);
  for (size_t i = 0; i < p.size(); ++i) p[i] = static_cast<uint8_t>(i);
  for (int i = 0; i < 16; ++i) p[i] = 0;
  p[0] = static_cast<uint8_t>(second), p[1] = static_cast<uint8_t>(second >> 8), p[8] = 7;
  return p;
}

struct collected : conversation_sink {
  struct row {
    std::string who;
    uint16_t id;
    uint32_t requests, replies, unanswered, orphans;
    bool flagged;
    size_t written_after;  // frames fed when it was written
  };
  std::vector<row> rows;
  size_t fed = 0;
  void conversation_closed(const closed_conversation& c) override {
    rows.push_back({std::to_string(c.initiator[3]) + ">" + std::to_string(c.responder[3]), c.c.discriminator,
                    c.c.requests, c.c.replies, c.c.unanswered, c.c.orphans, c.flagged, fed});
  }
};

struct feeder {
  collected sink;
  conversation_tracker tracker;
  explicit feeder(int64_t timeout) : tracker(timeout, sink) {}
  frame_analysis add(int64_t ns, const std::vector<uint8_t>& bytes) {
    varn::icmp_frame f;
    EXPECT_TRUE(varn::locate_icmp(bytes.data(), static_cast<uint32_t>(bytes.size()), f));
    f.number = ++sink.fed;
    f.wire_len = f.cap_len;
    f.ts_sec = static_cast<uint64_t>(ns / k_second);
    f.ts_frac = static_cast<uint64_t>(ns % k_second / 1000);
    return tracker.add_frame(f, 0);
  }
};

TEST(conversation_tracker_test, closes_idle_conversations_and_keeps_direction) {
  feeder t(60 * k_second);
  // A reply seen first (the capture began mid-ping): host 1 still initiates.
  t.add(1 * k_second, frame4(2, 1, 0, 0x10, 1, iputils_payload(1)));
  t.add(2 * k_second, frame4(1, 2, 8, 0x10, 2, iputils_payload(2)));
  t.add(2 * k_second + 300000, frame4(2, 1, 0, 0x10, 2, iputils_payload(2)));
  t.add(3 * k_second, frame4(1, 3, 8, 0x11, 1, iputils_payload(3)));  // never answered
  EXPECT_TRUE(t.sink.rows.empty());
  // 60 s after its last frame a conversation is still open; a frame past that closes it.
  t.add(62 * k_second + 300000, frame4(1, 4, 8, 0x12, 1, {}));
  EXPECT_TRUE(t.sink.rows.empty());
  t.add(63 * k_second, frame4(1, 4, 8, 0x12, 2, {}));
  ASSERT_EQ(t.sink.rows.size(), 1u);
  EXPECT_EQ(t.sink.rows[0].who, "1>2");
  EXPECT_EQ(t.sink.rows[0].orphans, 1u);
  EXPECT_EQ(t.sink.rows[0].replies, 2u);
  t.add(64 * k_second, frame4(1, 4, 8, 0x12, 3, {}));
  ASSERT_EQ(t.sink.rows.size(), 2u);
  EXPECT_EQ(t.sink.rows[1].who, "1>3");
  EXPECT_EQ(t.sink.rows[1].unanswered, 1u);
  t.tracker.finish();
  ASSERT_EQ(t.sink.rows.size(), 3u);
  EXPECT_EQ(t.sink.rows[2].requests, 3u);
}

TEST(conversation_tracker_test, memory_follows_live_conversations) {
  feeder t(10 * k_second);
  size_t most_live = 0;
  // A sweep: one request a second to a new target each time, 2000 targets.
  for (uint32_t i = 0; i < 2000; ++i) {
    t.add(static_cast<int64_t>(i) * k_second, frame4(1, static_cast<uint8_t>(2 + i % 250), 8, static_cast<uint16_t>(i), 1,
                                                     iputils_payload(i)));
    most_live = std::max(most_live, t.tracker.live_conversations());
  }
  EXPECT_LE(most_live, 12u);
  t.tracker.finish();
  EXPECT_EQ(t.sink.rows.size(), 2000u);
  EXPECT_EQ(t.tracker.live_conversations(), 0u);
}

TEST(conversation_tracker_test, host_pair_evidence_flags_every_echo_conversation_between_the_hosts) {
  feeder t(60 * k_second);
  t.add(0, frame4(1, 2, 8, 0x99, 1, iputils_payload(0)));  // an ordinary ping first
  t.add(1000, frame4(2, 1, 0, 0x99, 1, iputils_payload(0)));
  t.add(2000, frame4(1, 5, 8, 0x98, 1, iputils_payload(0)));  // another host: ordinary
  // Then a new identifier for every chunk of text, each echoed by the kernel.
  const std::string text = "Lorem ipsum dolor sit amet, consectetur adipiscing elit, sed do eiusmod tempor incididunt ut"
                           " labore et dolore magna aliqua. Ut enim ad minim veniam, quis nostrud exercitation ullamco.";
  for (uint16_t chunk = 0; chunk < 8; ++chunk) {
    ASSERT_LE(chunk * 20u + 20u, text.size());
    const std::vector<uint8_t> p(text.begin() + chunk * 20, text.begin() + chunk * 20 + 20);
    t.add((10 + chunk) * k_second, frame4(1, 2, 8, chunk, 0, p));
    t.add((10 + chunk) * k_second + 1000, frame4(2, 1, 0, chunk, 0, p));
  }
  t.tracker.finish();
  ASSERT_EQ(t.sink.rows.size(), 10u);
  for (const auto& r : t.sink.rows) EXPECT_EQ(r.flagged, r.who == "1>2") << r.who << " id " << r.id;
}

// What counts as data between two hosts: scenarios of ordinary senders whose payloads vary
// without carrying data, and of data sent in the ways they use. Requests from host 1 to host 2
// (and 3), one a second.
TEST(conversation_tracker_test, distinct_values_count_as_data) {
  const auto text = [](const std::string& s) { return std::vector<uint8_t>(s.begin(), s.end()); };
  const auto random = [](size_t n, unsigned seed) {
    std::mt19937 g(seed);
    std::vector<uint8_t> b(n);
    for (auto& x : b) x = static_cast<uint8_t>(g());
    return b;
  };
  // iputils -p: the timeval, then PATTERN repeated (56 bytes).
  const auto pattern = [](uint32_t second, const std::vector<uint8_t>& pat) {
    std::vector<uint8_t> p = iputils_payload(second);
    for (size_t i = 16; i < p.size(); ++i) p[i] = pat[i % pat.size()];
    return p;
  };
  struct request {
    uint8_t to;
    uint8_t type;
    uint16_t id;
    std::vector<uint8_t> payload;
  };
  struct row {
    const char* what;
    std::function<std::vector<request>()> make;
    bool flagged;
  };
  const std::vector<row> rows = {
      {"a prober's two payloads alternate, a new identifier per probe",
       [&] {
         std::vector<request> r;
         for (uint16_t i = 0; i < 10; ++i) {
           r.push_back({2, 8, static_cast<uint16_t>(2 * i), text("Some Prober Probing Its Targets")});
           r.push_back({2, 8, static_cast<uint16_t>(2 * i + 1), random(64, 1)});
         }
         return r;
       },
       false},
      {"a scanner's random filler, new per run, to two targets (echo, timestamp, mask)",
       [&] {
         std::vector<request> r;
         for (uint16_t run = 0; run < 4; ++run)
           for (uint8_t to : {2, 3}) {
             const std::vector<uint8_t> filler = random(24, run);
             std::vector<uint8_t> stamp(12, 0), mask(4, 0);
             stamp.insert(stamp.end(), filler.begin(), filler.end());
             mask.insert(mask.end(), filler.begin(), filler.end());
             r.push_back({to, 8, static_cast<uint16_t>(run * 8 + to), filler});
             r.push_back({to, 13, static_cast<uint16_t>(run * 8 + to + 2), stamp});
             r.push_back({to, 17, static_cast<uint16_t>(run * 8 + to + 4), mask});
           }
         return r;
       },
       false},
      {"a line test: ten ping -p patterns, five requests each",
       [&] {
         std::vector<request> r;
         for (uint16_t i = 0; i < 10; ++i)
           for (uint32_t k = 0; k < 5; ++k) r.push_back({2, 8, i, pattern(k, {static_cast<uint8_t>(0x11 * i + 1)})});
         return r;
       },
       false},
      {"a fill byte drawn anew each round in one conversation (mtr -B above 255)",
       [&] {
         std::vector<request> r;
         for (uint32_t k = 0; k < 20; ++k) r.push_back({2, 8, 7, std::vector<uint8_t>(36, static_cast<uint8_t>(0x30 + k / 2))});
         return r;
       },
       false},
      {"timestamp requests of a sender: its time, two zeros",
       [&] {
         std::vector<request> r;
         for (uint8_t k = 0; k < 10; ++k) r.push_back({2, 13, 9, {0x04, 0x72, 0xfa, k, 0, 0, 0, 0, 0, 0, 0, 0}});
         return r;
       },
       false},
      {"ping -c 1 -p, one process per 16-byte chunk of text",
       [&] {
         std::vector<request> r;
         for (uint16_t i = 0; i < 3; ++i) r.push_back({2, 8, i, pattern(i, text("AKIAIOSFODNN7EX" + std::string(1, 'A' + i)))});
         return r;
       },
       true},
      {"base64 chunks, a new identifier each, most of them letters and digits only",
       [&] {
         std::vector<request> r;
         for (const char* chunk : {"D0kCasAaemlJoRpBGEMC", "0jfDBzAlojudIELJAPLr", "yDW+o3auTbFsupTgdjY4", "R8/+7Q=="})
           r.push_back({2, 8, static_cast<uint16_t>(r.size()), text(chunk)});
         return r;
       },
       true},
      {"text in the fields of timestamp requests",
       [&] {
         std::vector<request> r;
         const std::string secret = "db_host=10.20.30.40\ndb_user=payroll_admin\ndb_pass=hunter2!";
         for (size_t at = 0; at + 12 <= secret.size(); at += 12) r.push_back({2, 13, 9, text(secret.substr(at, 12))});
         return r;
       },
       true},
  };
  for (const row& r : rows) {
    feeder t(60 * k_second);
    uint16_t seq = 0;
    for (const request& q : r.make()) {
      ++seq;
      t.add(seq * k_second, frame4(1, q.to, q.type, q.id, seq, q.payload));
    }
    t.tracker.finish();
    ASSERT_FALSE(t.sink.rows.empty()) << r.what;
    for (const auto& c : t.sink.rows) EXPECT_EQ(c.flagged, r.flagged) << r.what << ": " << c.who << " id " << c.id;
  }
}

}  // namespace
