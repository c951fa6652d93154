// MD5 digest: the RFC 1321 test suite, padding at the block edges, split updates, refusals and
// the text form.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "zq/zq_md5.hpp"

namespace {

const uint8_t* as_bytes(const std::string& s) { return reinterpret_cast<const uint8_t*>(s.data()); }

std::string digest_text(const uint8_t digest[16]) { return zq::md5_to_text(digest); }

// One-shot digest as text; empty when the digest was refused.
std::string md5_hex(const std::string& message) {
  uint8_t digest[16];
  if (!zq::md5_of_buffer(as_bytes(message), static_cast<uint32_t>(message.size()), digest)) return "";
  return digest_text(digest);
}

// Bytes (7i + 3) mod 256: no run of equal bytes, so a misplaced byte changes the digest.
std::string pattern_bytes(size_t n) {
  std::string s(n, '\0');
  for (size_t i = 0; i < n; ++i) s[i] = static_cast<char>((i * 7 + 3) % 256);
  return s;
}

bool same_context(const zq::md5_context& a, const zq::md5_context& b) {
  return std::memcmp(a.state, b.state, sizeof a.state) == 0 &&
         std::memcmp(a.count, b.count, sizeof a.count) == 0 &&
         std::memcmp(a.buffer, b.buffer, sizeof a.buffer) == 0;
}

struct digest_case {
  std::string message;
  const char* expected;
};

TEST(md5_test, rfc_1321_test_suite) {
  const digest_case cases[] = {
      {"a", "0cc175b9c0f1b6a831c399e269772661"},
      {"abc", "900150983cd24fb0d6963f7d28e17f72"},
      {"message digest", "f96b697d7cb7938d525a2f31aaf161d0"},
      {"abcdefghijklmnopqrstuvwxyz", "c3fcd3d76192e4007dfb496cca67e13b"},
      {"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789",
       "d174ab98d277d9f5a5611c2c9f419d9f"},
      {"12345678901234567890123456789012345678901234567890123456789012345678901234567890",
       "57edf4a22be3c955ac49da2e2107b67a"},
  };
  for (const auto& c : cases) EXPECT_EQ(md5_hex(c.message), c.expected) << c.message;
}

TEST(md5_test, empty_message_through_init_and_final) {
  // md5_update refuses length 0, but a context finalised without any update is the empty message.
  zq::md5_context ctx;
  ASSERT_TRUE(zq::md5_init(&ctx));
  uint8_t digest[16];
  ASSERT_TRUE(zq::md5_final(digest, &ctx));
  EXPECT_EQ(digest_text(digest), "d41d8cd98f00b204e9800998ecf8427e");
}

TEST(md5_test, padding_edges_around_one_and_two_blocks) {
  // 55 bytes leave room for the 0x80 byte and the 8-byte length in one block; 56 and 64 do not.
  const digest_case cases[] = {
      {pattern_bytes(1), "8666683506aacd900bbd5a74ac4edf68"},
      {pattern_bytes(55), "52c0e574e1198de5fe3f8f11440dcb1b"},
      {pattern_bytes(56), "46c9907fc908ee68b1e7b8e71286a518"},
      {pattern_bytes(57), "1c805dd236c35cab25fcb1bc73802c51"},
      {pattern_bytes(63), "a62f6d59e837867693f042f5b8f5a236"},
      {pattern_bytes(64), "7160b8fb5e9e4023d549c3971fbaeead"},
      {pattern_bytes(65), "70bd662e7aefbda85a0f7244167b7897"},
      {pattern_bytes(119), "e84905d4214f4d1ca56c2cdcc152b143"},
      {pattern_bytes(120), "e3eb5a6c8669ea01a8c185b8abc8a5dc"},
      {pattern_bytes(128), "10b2da1a82f16d99a81a7203fe9f02cb"},
      {pattern_bytes(1000), "10046f077f2082ac19676b8079f1cb1a"},
  };
  for (const auto& c : cases) EXPECT_EQ(md5_hex(c.message), c.expected) << c.message.size() << " bytes";
}

TEST(md5_test, two_updates_equal_one_at_every_split_point) {
  const std::string message = pattern_bytes(200);
  const std::string expected = "4c79b81ac94bad7a875519ce6b964c66";
  ASSERT_EQ(md5_hex(message), expected);
  for (size_t split = 1; split < message.size(); ++split) {
    zq::md5_context ctx;
    ASSERT_TRUE(zq::md5_init(&ctx));
    ASSERT_TRUE(zq::md5_update(&ctx, as_bytes(message), static_cast<uint32_t>(split)));
    ASSERT_TRUE(zq::md5_update(&ctx, as_bytes(message) + split, static_cast<uint32_t>(message.size() - split)));
    uint8_t digest[16];
    ASSERT_TRUE(zq::md5_final(digest, &ctx));
    EXPECT_EQ(digest_text(digest), expected) << "split at " << split;
  }
}

TEST(md5_test, many_small_updates_of_a_million_bytes) {
  // The RFC 1321 appendix value for one million "a"; fed in uneven pieces that straddle blocks.
  const std::string chunk(1100, 'a');
  zq::md5_context ctx;
  ASSERT_TRUE(zq::md5_init(&ctx));
  uint32_t left = 1000000;
  for (uint32_t piece = 1; left > 0; piece = piece % 997 + 13) {
    const uint32_t n = piece < left ? piece : left;
    ASSERT_TRUE(zq::md5_update(&ctx, as_bytes(chunk), n));
    left -= n;
  }
  uint8_t digest[16];
  ASSERT_TRUE(zq::md5_final(digest, &ctx));
  EXPECT_EQ(digest_text(digest), "7707d6ae4e027c70eea2a935c2296f21");
}

TEST(md5_test, refuses_null_context_null_data_and_length_zero) {
  EXPECT_FALSE(zq::md5_init(nullptr));

  const uint8_t byte = 'a';
  EXPECT_FALSE(zq::md5_update(nullptr, &byte, 1));

  zq::md5_context ctx;
  ASSERT_TRUE(zq::md5_init(&ctx));
  ASSERT_TRUE(zq::md5_update(&ctx, as_bytes("ab"), 2));
  const zq::md5_context before = ctx;
  EXPECT_FALSE(zq::md5_update(&ctx, nullptr, 1));
  EXPECT_TRUE(same_context(ctx, before));
  EXPECT_FALSE(zq::md5_update(&ctx, &byte, 0));
  EXPECT_TRUE(same_context(ctx, before));

  // The refused calls added nothing: the digest is that of "ab" plus "c".
  ASSERT_TRUE(zq::md5_update(&ctx, as_bytes("c"), 1));
  uint8_t digest[16];
  ASSERT_TRUE(zq::md5_final(digest, &ctx));
  EXPECT_EQ(digest_text(digest), "900150983cd24fb0d6963f7d28e17f72");
}

TEST(md5_test, one_shot_digest_of_nothing_leaves_result_untouched) {
  uint8_t result[16];
  std::memset(result, 0xee, sizeof result);
  const uint8_t data[4] = {1, 2, 3, 4};
  EXPECT_FALSE(zq::md5_of_buffer(data, 0, result));
  EXPECT_FALSE(zq::md5_of_buffer(nullptr, 4, result));
  for (uint8_t b : result) EXPECT_EQ(b, 0xee);
}

TEST(md5_test, final_reinitialises_the_context) {
  zq::md5_context fresh;
  ASSERT_TRUE(zq::md5_init(&fresh));

  zq::md5_context ctx;
  ASSERT_TRUE(zq::md5_init(&ctx));
  const std::string first = pattern_bytes(100);
  ASSERT_TRUE(zq::md5_update(&ctx, as_bytes(first), static_cast<uint32_t>(first.size())));
  uint8_t digest[16];
  ASSERT_TRUE(zq::md5_final(digest, &ctx));
  EXPECT_TRUE(same_context(ctx, fresh));

  // The same context then digests a new message from scratch.
  ASSERT_TRUE(zq::md5_update(&ctx, as_bytes("abc"), 3));
  ASSERT_TRUE(zq::md5_final(digest, &ctx));
  EXPECT_EQ(digest_text(digest), "900150983cd24fb0d6963f7d28e17f72");
}

TEST(md5_test, init_sets_rfc_chaining_words_and_clears_the_rest) {
  zq::md5_context ctx;
  std::memset(&ctx, 0x5a, sizeof ctx);
  ASSERT_TRUE(zq::md5_init(&ctx));
  EXPECT_EQ(ctx.state[0], 0x67452301u);
  EXPECT_EQ(ctx.state[1], 0xefcdab89u);
  EXPECT_EQ(ctx.state[2], 0x98badcfeu);
  EXPECT_EQ(ctx.state[3], 0x10325476u);
  EXPECT_EQ(ctx.count[0], 0u);
  EXPECT_EQ(ctx.count[1], 0u);
  for (uint8_t b : ctx.buffer) EXPECT_EQ(b, 0);
}

TEST(md5_test, length_is_counted_in_bits_low_word_first) {
  zq::md5_context ctx;
  ASSERT_TRUE(zq::md5_init(&ctx));
  const std::string data(100, 'x');
  ASSERT_TRUE(zq::md5_update(&ctx, as_bytes(data), 100));
  EXPECT_EQ(ctx.count[0], 800u);
  EXPECT_EQ(ctx.count[1], 0u);
}

TEST(md5_test, text_form_is_lower_case_zero_padded_first_byte_first) {
  const struct {
    uint8_t digest[16];
    const char* text;
  } cases[] = {
      {{0x00, 0x0f, 0xa0, 0xff, 0x01, 0x10, 0xab, 0xcd, 0xef, 0x90, 0x09, 0x7e, 0x80, 0x08, 0x5c, 0xc5},
       "000fa0ff0110abcdef90097e80085cc5"},
      {{0}, "00000000000000000000000000000000"},
  };
  for (const auto& c : cases) {
    const std::string text = zq::md5_to_text(c.digest);
    EXPECT_EQ(text, c.text);
    EXPECT_EQ(text.size(), 32u);
    char raw[33];
    raw[32] = '#';
    zq::md5_to_text(c.digest, raw);
    EXPECT_EQ(std::string(raw, 32), c.text);
    EXPECT_EQ(raw[32], '#');  // exactly 32 characters written
  }
}

}  // namespace
