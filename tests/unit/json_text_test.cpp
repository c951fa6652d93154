// JSON text: every byte escaped right, invalid UTF-8 replaced and flagged, long values written in
// pieces exactly as whole ones, commas placed by the builder; base64 against RFC 4648.
#include <gtest/gtest.h>
#include <limits>
#include <nlohmann/json.hpp>

#include "json/base64.hpp"
#include "json/json_text.hpp"

namespace {

using namespace std::literals;
using varn::json::text_buffer;

// The JSON string of TEXT as put_string writes it, and whether it was exact.
std::pair<std::string, bool> escaped(std::string_view input) {
  std::string out(varn::json::string_room(input.size()), '\0');
  bool exact = true;
  out.resize(static_cast<size_t>(varn::json::put_string(out.data(), input, &exact) - out.data()));
  return {out, exact};
}

const uint8_t* bytes_of(std::string_view s) { return reinterpret_cast<const uint8_t*>(s.data()); }

TEST(json_text_test, strings_escape_every_byte_and_replace_what_is_not_utf8) {
  // Input and its JSON string; exact unless the string holds U+FFFD.
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"q\"b\\s/", R"("q\"b\\s/")"},
      {"\0\x01\x1f"s, R"("\u0000\u0001\u001f")"},
      {"\b\f\n\r\t", R"("\b\f\n\r\t")"},
      {"\x7f", R"("\u007f")"},
      {"caf\xc3\xa9 \xe2\x82\xac \xf0\x9f\x98\x80", "\"caf\xc3\xa9 \xe2\x82\xac \xf0\x9f\x98\x80\""},
      {"\xe2\x80\xa8\xe2\x80\xa9", R"("\u2028\u2029")"},
      {"\xef\xbf\xbf\xf4\x8f\xbf\xbf", "\"\xef\xbf\xbf\xf4\x8f\xbf\xbf\""},  // U+FFFF, U+10FFFF
      {"a\x80z", "\"a\xef\xbf\xbdz\""},                                      // stray continuation
      {"\xc3", "\"\xef\xbf\xbd\""},                                          // cut at the end
      {"\xc3(", "\"\xef\xbf\xbd(\""},                                        // cut by ASCII
      {"\xc0\xaf", "\"\xef\xbf\xbd\xef\xbf\xbd\""},                          // overlong "/"
      {"\xe0\x80\xaf", "\"\xef\xbf\xbd\xef\xbf\xbd\xef\xbf\xbd\""},          // overlong, 3 bytes
      {"\xed\xa0\x80", "\"\xef\xbf\xbd\xef\xbf\xbd\xef\xbf\xbd\""},          // surrogate D800
      {"\xf4\x90\x80\x80", "\"\xef\xbf\xbd\xef\xbf\xbd\xef\xbf\xbd\xef\xbf\xbd\""},  // above U+10FFFF
  };
  for (const auto& [input, json] : cases) EXPECT_EQ(escaped(input), std::pair(json, json.find("\xef\xbf\xbd") == std::string::npos));
  // Every byte value alone, and every pair: valid JSON whose value is the input when exact.
  for (int a = 0; a < 256; ++a)
    for (int b = -1; b < 256; ++b) {
      std::string input(1, static_cast<char>(a));
      if (b >= 0) input.push_back(static_cast<char>(b));
      const auto [json, exact] = escaped(input);
      ASSERT_LE(json.size(), varn::json::string_room(input.size()));
      ASSERT_EQ(varn::json::is_utf8(input), exact) << a << " " << b;
      ASSERT_TRUE(!exact || nlohmann::json::parse(json).get<std::string>() == input) << a << " " << b;  // parse throws on bad JSON
    }
}

TEST(json_text_test, builder_places_commas_and_writes_values) {
  text_buffer buffer;
  auto& j = buffer.json();
  j.begin_object().member("s", "x").member("u", uint64_t{18446744073709551615u}).member("i", int64_t{-9223372036854775807 - 1});
  j.member("d", 0.1).member("inf", std::numeric_limits<double>::infinity()).member("t", true).null_member("n");
  j.key("e").begin_array().end_array();
  j.key("a").begin_array().number(uint64_t{1}).begin_object().end_object().string("").boolean(false).end_array();
  j.key("dec").begin_array().decimal(1500, 3).decimal(-5, 6).decimal(7, 0).decimal(-9223372036854775807 - 1, 18).end_array();
  j.key("b").begin_array();
  for (std::string_view in : {""sv, "f"sv, "fo"sv, "foo"sv, "foob"sv, "fooba"sv, "foobar"sv, "\xff\xfe\xfd"sv, "\0"sv}) j.base64(bytes_of(in), in.size());
  j.end_array().key("p").printable(bytes_of("a\"\\\x01\x7f\xff~ "), 8);
  j.exact_string("f", "dir/a \"b\".pcap").exact_string("g", "x\xff\n.pcap");  // a base64 companion only when needed
  j.key("r").raw(R"({"k":[1]})").end_object().end_line();
  EXPECT_TRUE(j.complete());
  EXPECT_EQ(buffer.view(),
            R"({"s":"x","u":18446744073709551615,"i":-9223372036854775808,"d":0.1,"inf":null,"t":true,"n":null,)"
            R"("e":[],"a":[1,{},"",false],"dec":[1.500,-0.000005,7,-9.223372036854775808],)"
            R"("b":["","Zg==","Zm8=","Zm9v","Zm9vYg==","Zm9vYmE=","Zm9vYmFy","//79","AA=="],"p":"a\"\\...~ ",)"
            "\"f\":\"dir/a \\\"b\\\".pcap\",\"g\":\"x\xef\xbf\xbd\\n.pcap\",\"g_base64\":\"eP8KLnBjYXA=\","
            R"("r":{"k":[1]}})"
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

// Values longer than the stream's buffer are written in pieces; the text is the same as whole.
TEST(json_text_test, long_values_are_written_in_pieces_without_cutting_a_character) {
  std::string long_text;
  for (int i = 0; long_text.size() < 20000; ++i) long_text += i % 7 == 0 ? "\xf0\x9f\x98\x80" : i % 5 == 0 ? "\"\x01" : "ab\xc3\xa9";
  long_text += "\xe2\x82";  // cut at the very end
  std::string bytes(20001, '\0'), base64(varn::json::base64_size(bytes.size()), '\0'), printable;
  for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<char>(i * 7 + i / 300);
  for (char b : bytes) printable += b >= 32 && b <= 126 ? b : '.';
  EXPECT_EQ(varn::json::put_base64(base64.data(), bytes_of(bytes), bytes.size()), base64.data() + base64.size());

  text_buffer buffer;  // a 4096-byte stream buffer
  buffer.json().begin_array().string(long_text).base64(bytes_of(bytes), bytes.size()).printable(bytes_of(bytes), bytes.size()).end_array();
  EXPECT_EQ(nlohmann::json::parse(buffer.view()),
            nlohmann::json::array({long_text.substr(0, long_text.size() - 2) + "\xef\xbf\xbd\xef\xbf\xbd", base64, printable}));
}

}  // namespace
