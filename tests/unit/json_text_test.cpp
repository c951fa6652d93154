// JSON text: every byte escaped right, invalid UTF-8 replaced and flagged, long values written in
// pieces exactly as whole ones, commas placed by the builder; base64 against RFC 4648.
#include <gtest/gtest.h>
#include <limits>
#include <nlohmann/json.hpp>

#include "json/base64.hpp"
#include "json/json_text.hpp"

namespace {

using varn::json::text;
using varn::json::text_buffer;

// The JSON string of TEXT as put_string writes it, and whether it was exact.
std::pair<std::string, bool> escaped(std::string_view input) {
  std::string out(varn::json::string_room(input.size()), '\0');
  bool exact = true;
  out.resize(static_cast<size_t>(varn::json::put_string(out.data(), input, &exact) - out.data()));
  return {out, exact};
}

TEST(json_text_test, strings_escape_every_byte_and_replace_what_is_not_utf8) {
  struct escape_case {
    std::string input, json;
    bool exact;
  };
  const std::vector<escape_case> cases = {
      {"", R"("")", true},
      {"plain text 0-9 ~", R"("plain text 0-9 ~")", true},
      {"q\"b\\s/", R"("q\"b\\s/")", true},
      {std::string("\0\x01\x1f", 3), R"("\u0000\u0001\u001f")", true},
      {"\b\f\n\r\t", R"("\b\f\n\r\t")", true},
      {"\x7f", R"("\u007f")", true},
      {"caf\xc3\xa9 \xe2\x82\xac \xf0\x9f\x98\x80", "\"caf\xc3\xa9 \xe2\x82\xac \xf0\x9f\x98\x80\"", true},
      {"\xe2\x80\xa8\xe2\x80\xa9", R"("\u2028\u2029")", true},
      {"\xef\xbf\xbf\xf4\x8f\xbf\xbf", "\"\xef\xbf\xbf\xf4\x8f\xbf\xbf\"", true},  // U+FFFF, U+10FFFF
      {"a\x80z", "\"a\xef\xbf\xbdz\"", false},                                     // stray continuation
      {"\xc3", "\"\xef\xbf\xbd\"", false},                                         // cut at the end
      {"\xc3(", "\"\xef\xbf\xbd(\"", false},                                       // cut by ASCII
      {"\xc0\xaf", "\"\xef\xbf\xbd\xef\xbf\xbd\"", false},                         // overlong "/"
      {"\xe0\x80\xaf", "\"\xef\xbf\xbd\xef\xbf\xbd\xef\xbf\xbd\"", false},         // overlong, 3 bytes
      {"\xed\xa0\x80", "\"\xef\xbf\xbd\xef\xbf\xbd\xef\xbf\xbd\"", false},         // surrogate D800
      {"\xf4\x90\x80\x80", "\"\xef\xbf\xbd\xef\xbf\xbd\xef\xbf\xbd\xef\xbf\xbd\"", false},  // above U+10FFFF
      {"\xff\xfe", "\"\xef\xbf\xbd\xef\xbf\xbd\"", false},
  };
  for (const escape_case& c : cases) {
    const auto [json, exact] = escaped(c.input);
    EXPECT_EQ(json, c.json) << c.json;
    EXPECT_EQ(exact, c.exact) << c.json;
    EXPECT_EQ(varn::json::is_utf8(c.input), c.exact) << c.json;
    const nlohmann::json parsed = nlohmann::json::parse(json);  // throws on invalid JSON or UTF-8
    if (c.exact) {
      EXPECT_EQ(parsed.get<std::string>(), c.input) << c.json;
    }
  }
  // Every byte value alone, and every pair: valid JSON whose value is the input when exact.
  for (int a = 0; a < 256; ++a) {
    for (int b = -1; b < 256; ++b) {
      std::string input(1, static_cast<char>(a));
      if (b >= 0) input += static_cast<char>(b);
      const auto [json, exact] = escaped(input);
      ASSERT_LE(json.size(), varn::json::string_room(input.size()));
      const nlohmann::json parsed = nlohmann::json::parse(json);
      if (exact) {
        ASSERT_EQ(parsed.get<std::string>(), input) << a << " " << b;
      }
    }
  }
}

TEST(json_text_test, builder_places_commas_and_writes_values) {
  text_buffer buffer;
  text& j = buffer.json();
  j.begin_object()
      .member("s", "x")
      .member("u", uint64_t{18446744073709551615u})
      .member("i", int64_t{-9223372036854775807 - 1})
      .member("d", 0.1)
      .member("inf", std::numeric_limits<double>::infinity())
      .member("t", true)
      .null_member("n");
  j.key("e").begin_array().end_array();
  j.key("a").begin_array().number(uint64_t{1}).begin_object().end_object().string("").boolean(false).end_array();
  j.key("dec").begin_array().decimal(1500, 3).decimal(-5, 6).decimal(7, 0).decimal(-9223372036854775807 - 1, 18).end_array();
  j.key("b").base64(reinterpret_cast<const uint8_t*>("foob"), 4);
  j.key("p").printable(reinterpret_cast<const uint8_t*>("a\"\\\x01\x7f\xff~ "), 8);
  j.key("r").raw(R"({"k":[1]})");
  j.end_object().end_line();
  EXPECT_TRUE(j.complete());
  EXPECT_EQ(buffer.view(),
            R"({"s":"x","u":18446744073709551615,"i":-9223372036854775808,"d":0.1,"inf":null,"t":true,"n":null,)"
            R"("e":[],"a":[1,{},"",false],"dec":[1.500,-0.000005,7,-9.223372036854775808],"b":"Zm9vYg==",)"
            R"("p":"a\"\\...~ ","r":{"k":[1]}})"
            "\n");

  // Members built apart and appended to an object written elsewhere.
  buffer.clear();
  buffer.json().continue_object().member("rtt", 0.25).member("seq", uint64_t{3});
  const std::string members(buffer.view());
  EXPECT_EQ(members, R"(,"rtt":0.25,"seq":3)");
  buffer.clear();
  buffer.json().begin_object().raw_members(members).member("z", true).end_object();
  buffer.json().begin_object().member("a", true).raw_members(members).end_object();
  EXPECT_EQ(buffer.view(), R"({"rtt":0.25,"seq":3,"z":true}{"a":true,"rtt":0.25,"seq":3})");
}

TEST(json_text_test, exact_strings_get_a_base64_companion_only_when_needed) {
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"dir/a \"b\".pcap", R"({"f":"dir/a \"b\".pcap"})"},
      {"x\xff\n.pcap", "{\"f\":\"x\xef\xbf\xbd\\n.pcap\",\"f_base64\":\"eP8KLnBjYXA=\"}"},
  };
  for (const auto& [name, json] : cases) {
    text_buffer buffer;
    buffer.json().begin_object().exact_string("f", name).end_object();
    EXPECT_EQ(buffer.view(), json);
  }
}

// Values longer than the stream's buffer are written in pieces; the text is the same as whole.
TEST(json_text_test, long_values_are_written_in_pieces_without_cutting_a_character) {
  std::string long_text;
  for (int i = 0; long_text.size() < 20000; ++i) long_text += i % 7 == 0 ? "\xf0\x9f\x98\x80" : i % 5 == 0 ? "\"\x01" : "ab\xc3\xa9";
  long_text += "\xe2\x82";  // cut at the very end
  std::vector<uint8_t> bytes(20001);
  for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<uint8_t>(i * 7 + i / 300);

  text_buffer buffer;  // a 4096-byte stream buffer
  buffer.json().begin_array().string(long_text).base64(bytes.data(), bytes.size()).printable(bytes.data(), bytes.size()).end_array();
  const nlohmann::json parsed = nlohmann::json::parse(buffer.view());

  EXPECT_EQ(parsed[0].get<std::string>(), long_text.substr(0, long_text.size() - 2) + "\xef\xbf\xbd\xef\xbf\xbd");
  std::string base64(varn::json::base64_size(bytes.size()), '\0');
  varn::json::put_base64(base64.data(), bytes.data(), bytes.size());
  EXPECT_EQ(parsed[1].get<std::string>(), base64);
  std::string printable;
  for (uint8_t b : bytes) printable += b >= 32 && b <= 126 ? static_cast<char>(b) : '.';
  EXPECT_EQ(parsed[2].get<std::string>(), printable);
}

TEST(json_text_test, base64_matches_rfc4648_vectors) {
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"", ""},         {"f", "Zg=="},         {"fo", "Zm8="},         {"foo", "Zm9v"},
      {"foob", "Zm9vYg=="}, {"fooba", "Zm9vYmE="}, {"foobar", "Zm9vYmFy"}, {"\xff\xfe\xfd", "//79"},
      {std::string("\0", 1), "AA=="}};
  for (const auto& [in, out] : cases) {
    std::string got(varn::json::base64_size(in.size()), '\0');
    char* end = varn::json::put_base64(got.data(), reinterpret_cast<const uint8_t*>(in.data()), in.size());
    EXPECT_EQ(static_cast<size_t>(end - got.data()), got.size());
    EXPECT_EQ(got, out);
  }
}

}  // namespace
