// MD5: the RFC 1321 test suite and digests around the block edges (from md5sum), fed at once
// and in pieces; the refusals.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "zq/zq_md5.hpp"
#include "zq/zq_md5_lanes.hpp"

namespace {

const uint8_t* as_bytes(const std::string& s) { return reinterpret_cast<const uint8_t*>(s.data()); }

// The digest of MESSAGE fed in pieces of PIECE bytes (0: at once by md5_of_buffer).
std::string md5_hex(const std::string& message, size_t piece = 0) {
  zq::md5_context ctx;
  uint8_t digest[16] = {};
  zq::md5_init(&ctx);
  for (size_t at = 0; piece > 0 && at < message.size(); at += piece)
    zq::md5_update(&ctx, as_bytes(message) + at, static_cast<uint32_t>(std::min(piece, message.size() - at)));
  if (piece > 0 ? zq::md5_final(digest, &ctx) : zq::md5_of_buffer(as_bytes(message), static_cast<uint32_t>(message.size()), digest))
    return zq::md5_to_text(digest);
  return "refused";
}

TEST(md5_test, digests) {
  std::string bytes_7i_plus_3(1000, '\0');  // no run of equal bytes
  for (size_t i = 0; i < bytes_7i_plus_3.size(); ++i) bytes_7i_plus_3[i] = static_cast<char>((i * 7 + 3) % 256);
  const std::pair<std::string, const char*> cases[] = {
      {"a", "0cc175b9c0f1b6a831c399e269772661"}, {"abc", "900150983cd24fb0d6963f7d28e17f72"}, {"message digest", "f96b697d7cb7938d525a2f31aaf161d0"},
      {"abcdefghijklmnopqrstuvwxyz", "c3fcd3d76192e4007dfb496cca67e13b"},
      {"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789", "d174ab98d277d9f5a5611c2c9f419d9f"},
      {"12345678901234567890123456789012345678901234567890123456789012345678901234567890", "57edf4a22be3c955ac49da2e2107b67a"},
      {bytes_7i_plus_3.substr(0, 55), "52c0e574e1198de5fe3f8f11440dcb1b"},  // padding and length fit one block
      {bytes_7i_plus_3.substr(0, 56), "46c9907fc908ee68b1e7b8e71286a518"},  // two blocks
      {bytes_7i_plus_3.substr(0, 57), "1c805dd236c35cab25fcb1bc73802c51"}, {bytes_7i_plus_3.substr(0, 63), "a62f6d59e837867693f042f5b8f5a236"},
      {bytes_7i_plus_3.substr(0, 64), "7160b8fb5e9e4023d549c3971fbaeead"}, {bytes_7i_plus_3.substr(0, 65), "70bd662e7aefbda85a0f7244167b7897"},
      {bytes_7i_plus_3.substr(0, 119), "e84905d4214f4d1ca56c2cdcc152b143"}, {bytes_7i_plus_3.substr(0, 120), "e3eb5a6c8669ea01a8c185b8abc8a5dc"},
      {bytes_7i_plus_3, "10046f077f2082ac19676b8079f1cb1a"}, {std::string(1000000, 'a'), "7707d6ae4e027c70eea2a935c2296f21"}};
  for (const auto& [message, digest] : cases)
    for (size_t piece : {0, 1, 7, 63, 64, 65, 997}) EXPECT_EQ(md5_hex(message, piece), digest) << message.size() << " bytes by " << piece;
  EXPECT_EQ(md5_hex("", 1), "d41d8cd98f00b204e9800998ecf8427e");  // md5_final without an update
}

TEST(md5_test, refusals_change_nothing) {
  EXPECT_EQ(md5_hex(""), "refused");  // a length of 0
  zq::md5_context ctx;
  uint8_t digest[16];
  EXPECT_FALSE(zq::md5_init(nullptr) || zq::md5_of_buffer(nullptr, 4, digest) || zq::md5_update(nullptr, as_bytes("x"), 1));
  ASSERT_TRUE(zq::md5_init(&ctx) && zq::md5_update(&ctx, as_bytes("ab"), 2));
  EXPECT_FALSE(zq::md5_update(&ctx, nullptr, 1) || zq::md5_update(&ctx, as_bytes("x"), 0));
  ASSERT_TRUE(zq::md5_update(&ctx, as_bytes("c"), 1) && zq::md5_final(digest, &ctx));
  EXPECT_EQ(zq::md5_to_text(digest), "900150983cd24fb0d6963f7d28e17f72");
  ASSERT_TRUE(zq::md5_update(&ctx, as_bytes("abc"), 3) && zq::md5_final(digest, &ctx));  // final starts afresh
  EXPECT_EQ(zq::md5_to_text(digest), "900150983cd24fb0d6963f7d28e17f72");
  const uint8_t bytes[16] = {0x00, 0x0f, 0xa0, 0xff, 0x01, 0x10, 0xab, 0xcd, 0xef, 0x90, 0x09, 0x7e, 0x80, 0x08, 0x5c, 0xc5};
  EXPECT_EQ(zq::md5_to_text(bytes), "000fa0ff0110abcdef90097e80085cc5");
}

TEST(md5_test, many_at_once_and_counting_agree_with_one_at_a_time) {
  // Lanes refill as their messages end: every length around the block edges, then long ones.
  std::vector<std::string> messages;
  for (size_t n = 0; n < 200; ++n) messages.push_back(std::string(n, static_cast<char>(n * 37)) + std::to_string(n));
  messages.push_back("");
  for (size_t n : {1000, 4096, 70000}) messages.push_back(std::string(n, static_cast<char>(n)));
  std::vector<zq::md5_job> jobs(messages.size());
  for (size_t i = 0; i < messages.size(); ++i) {
    jobs[i].data = messages[i].empty() ? nullptr : as_bytes(messages[i]);
    jobs[i].length = static_cast<uint32_t>(messages[i].size());
  }
  zq::md5_many(jobs.data(), jobs.size());
  for (size_t i = 0; i < messages.size(); ++i)
    EXPECT_EQ(jobs[i].ok ? zq::md5_to_text(jobs[i].digest) : "refused", md5_hex(messages[i])) << i;

  for (size_t n : {1, 63, 64, 65, 300, 1472}) {
    const std::string m = messages[n % 200] + std::string(n, 'x');
    uint32_t counts[256] = {}, expected[256] = {};
    for (char c : m) ++expected[static_cast<uint8_t>(c)];
    uint8_t digest[16];
    ASSERT_TRUE(zq::md5_of_buffer_counting(as_bytes(m), static_cast<uint32_t>(m.size()), digest, counts));
    EXPECT_EQ(zq::md5_to_text(digest), md5_hex(m));
    EXPECT_EQ(std::memcmp(counts, expected, sizeof counts), 0) << n;
  }
}

}  // namespace
