// Echo pairing: a reply takes the earliest waiting request with its sequence number (preferring
// one whose payload it returns), later replies to the same number are duplicates, replies to
// numbers never requested are orphans, and the book stays bounded.
#include <gtest/gtest.h>

#include <vector>

#include "conversations/echo_pairing.hpp"

namespace {

using namespace varn::conversations;

struct step {
  bool request;
  uint16_t sequence;
  uint64_t print;        // payload fingerprint (same value, same payload)
  reply_match match;     // replies: the expected match
  uint64_t answers;      // replies: the frame of the request it answers (0: none)
  echo_check echo;
};

TEST(echo_pairing_test, pairs_replies_as_a_table_says) {
  const std::vector<step> steps = {
      {true, 1, 11, {}, 0, {}},                                      // frame 1
      {false, 1, 11, reply_match::answered, 1, echo_check::echoed},  // 2
      {false, 1, 11, reply_match::duplicate, 1, echo_check::echoed}, // 3: a duplicated reply
      {false, 1, 99, reply_match::duplicate, 1, echo_check::differs},// 4: a tunnel's own reply
      {false, 7, 77, reply_match::orphan, 0, echo_check::unknown},   // 5: its request was missed
      {true, 0, 20, {}, 0, {}},                                      // 6: one sequence number reused
      {true, 0, 21, {}, 0, {}},                                      // 7
      {false, 0, 21, reply_match::answered, 7, echo_check::echoed},  // 8: the request it echoes
      {false, 0, 55, reply_match::answered, 6, echo_check::differs}, // 9: the earliest waiting one
      {true, 2, 30, {}, 0, {}},                                      // 10: never answered
  };
  echo_book book;
  uint64_t frame = 0;
  for (const step& s : steps) {
    ++frame;
    if (s.request) {
      echo_request r{.time_ns = static_cast<int64_t>(frame) * 1000, .frame = frame, .print = s.print, .captured = 56, .length = 56,
                     .sequence = s.sequence};
      EXPECT_EQ(book.add_request(r), 0u);
      continue;
    }
    const reply_pairing p = book.match_reply(s.sequence, s.print, 56, 56, static_cast<int64_t>(frame) * 1000);
    EXPECT_EQ(static_cast<int>(p.match), static_cast<int>(s.match)) << "frame " << frame;
    EXPECT_EQ(static_cast<int>(p.echo), static_cast<int>(s.echo)) << "frame " << frame;
    if (s.answers != 0) { EXPECT_EQ(p.request.frame, s.answers) << "frame " << frame; }
    if (s.match == reply_match::answered) { EXPECT_EQ(p.rtt_ns, static_cast<int64_t>(frame - s.answers) * 1000); }
  }
  EXPECT_EQ(book.close(), 1u);  // sequence 2
}

TEST(echo_pairing_test, stays_bounded_and_counts_what_it_drops) {
  echo_book book;
  uint32_t dropped = 0;
  for (uint16_t seq = 0; seq < 1000; ++seq) {
    echo_request r;
    r.sequence = seq;
    dropped += book.add_request(r);
    if (seq % 2 == 0) book.match_reply(seq, 0, 0, 0, 0);  // every other one answered
  }
  EXPECT_LE(book.heap_bytes(), 2 * echo_book::k_capacity * sizeof(echo_request));
  EXPECT_EQ(dropped + book.close(), 500u);  // every unanswered request is counted once
}

TEST(echo_pairing_test, payloads_cut_differently_cannot_be_compared) {
  const echo_request r{.print = 5, .captured = 40, .length = 1000};
  EXPECT_EQ(compare_echo(r, 5, 40, 1000), echo_check::echoed);
  EXPECT_EQ(compare_echo(r, 6, 60, 1000), echo_check::unknown);
  EXPECT_EQ(compare_echo(r, 6, 40, 999), echo_check::differs);
}

}  // namespace
