// What clients of the web services send, and how it is understood.
#include <gtest/gtest.h>

#include "base/base64.h"
#include "dicomweb/target.h"
#include "http/accept.h"
#include "http/http_message.h"
#include "http/jwt.h"
#include "http/multipart.h"

namespace vexal::test {
namespace {

TEST(HttpTarget, SegmentsAndQueriesAreDecodedOnce) {
  const struct {
    const char* target;
    const char* path;   // its segments, a bar behind each; null: it is refused
    const char* query;  // "name=value" and a bar behind each
  } rows[] = {
      {"/", "", ""},
      {"/a//b/", "a|b|", ""},
      {"/a%20b/%2541?x=%2B+y&z&=&&q=a=b", "a b|%41|", "x=+ y|z=|=|q=a=b|"},
      {"/a?", "a|", ""},
      {"/%e5%b1%b1", "\xe5\xb1\xb1|", ""},
      {"a", nullptr, ""},
      {"/a/../b", nullptr, ""},
      {"/a/%2e%2e", nullptr, ""},
      {"/a/.", nullptr, ""},
      {"/a%2fb", nullptr, ""},
      {"/a%", nullptr, ""},
      {"/a%4", nullptr, ""},
      {"/a%zz", nullptr, ""},
      {"/a%00", nullptr, ""},
      {"/a?x=%0a", nullptr, ""},
      {"/a?x=\x7f", nullptr, ""},
  };
  for (const auto& row : rows) {
    HttpRequest request;
    ASSERT_EQ(parse_target(row.target, request), row.path != nullptr) << row.target;
    if (row.path == nullptr) continue;
    std::string path;
    std::string query;
    for (const std::string& segment : request.path) path += segment + "|";
    for (const auto& [name, value] : request.query) query += name + "=" + value + "|";
    EXPECT_EQ(path, row.path) << row.target;
    EXPECT_EQ(query, row.query) << row.target;
  }
}

TEST(Accept, RangesByTheirQuality) {
  const struct {
    const char* header;
    const char* ranges;  // "type syntax," and a plus before those of several parts
  } rows[] = {
      {"", "*/* ,"},
      {"image/PNG", "image/png ,"},
      {"a/b;q=0.1, c/d; q=0.5 ,e/f", "e/f ,c/d ,a/b ,"},
      {"a/b;q=0, c/d;q=2, e/f;q=x, none, /x, x/", ""},
      {"multipart/related; type=\"application/dicom\"; transfer-syntax=1.2, */*;q=0.1",
       "+application/dicom 1.2,*/* ,"},
      {"multipart/related;type=\"a/b, c/d\";q=1, multipart/related", "+a/b, c/d ,+*/* ,"},
      {"application/dicom;transfer-syntax=*", "application/dicom *,"},
  };
  for (const auto& row : rows) {
    std::string found;
    for (const MediaRange& range : parse_accept(row.header))
      found += (range.parts ? "+" : "") + range.type + " " + range.syntax + ",";
    EXPECT_EQ(found, row.ranges) << row.header;
  }
  EXPECT_TRUE((MediaRange{false, "image/*", "", 1}.takes("image/png")));
  EXPECT_FALSE((MediaRange{false, "image/*", "", 1}.takes("images/png")));
}

TEST(WebTarget, EachPathIsOneResourceOrNone) {
  using R = WebResource;
  const struct {
    std::vector<std::string> path;
    R resource;
  } rows[] = {
      {{}, R::Service},
      {{"studies"}, R::Studies},
      {{"series"}, R::Series},
      {{"instances"}, R::Instances},
      {{"studies", "1.2"}, R::Objects},
      {{"studies", "1.2", "series"}, R::Series},
      {{"studies", "1.2", "instances"}, R::Instances},
      {{"studies", "1.2", "metadata"}, R::Metadata},
      {{"studies", "1.2", "series", "3", "instances"}, R::Instances},
      {{"studies", "1.2", "series", "3", "instances", "4"}, R::Objects},
      {{"studies", "1.2", "series", "3", "instances", "4", "frames", "1,2"}, R::Frames},
      {{"studies", "1.2", "series", "3", "instances", "4", "frames", "2", "rendered"}, R::Rendered},
      {{"studies", "1.2", "series", "3", "instances", "4", "bulkdata", "00400275.1.00091010"}, R::Bulkdata},
      {{"studies", "1.2", "series", "3", "instances", "4", "bulkdata", "../x"}, R::Nothing},
      {{"studies", "1.2", "series", "3", "instances", "4", "frames", "0"}, R::Nothing},
      {{"studies", "1.2", "series", "3", "instances", "4", "frames", "1", "metadata"}, R::Nothing},
      {{"studies", "1.2", "frames", "1"}, R::Nothing},
      {{"studies", "1.2", "series", "3", "series"}, R::Nothing},
      {{"studies", "a"}, R::Nothing},
      {{"studies", ""}, R::Nothing},
      {{"series", "1.2"}, R::Nothing},
      {{"metadata"}, R::Nothing},
  };
  for (const auto& row : rows) {
    std::string shown;
    for (const std::string& segment : row.path) shown += "/" + segment;
    EXPECT_EQ(parse_web_target(row.path).resource, row.resource) << shown;
  }
  std::vector<uint32_t> frames;
  EXPECT_TRUE(parse_frame_list("3,1,3", frames));
  EXPECT_EQ(frames, (std::vector<uint32_t>{3, 1, 3}));
  std::string many = "1";
  for (int i = 0; i < 65536; ++i) many += ",1";
  for (const std::string& bad : {std::string(), std::string("1,"), std::string(",1"), std::string("-1"),
                                 std::string("1-3"), std::string("4294967296"), many}) {
    frames.clear();
    EXPECT_FALSE(parse_frame_list(bad, frames)) << bad.substr(0, 20);
  }
}

struct Parts final : MultipartReader::Taker {
  std::string begin(std::string_view headers) override {
    text += header_in(headers, "content-type") + ":";
    return "";
  }
  std::string take(std::string_view bytes) override {
    text += bytes;
    return "";
  }
  std::string end() override {
    text += "|";
    return "";
  }
  std::string text;
};

TEST(Multipart, WhatIsWrittenIsRead) {
  for (const std::size_t room : {1U, 2U, 7U, 4096U}) {
    HttpBody body = multipart_body("b", [n = 0](BodyPart& part) mutable {
      if (++n == 4) return 0;
      part.headers = {{"Content-Type", "a/" + std::to_string(n)}};
      if (n != 2) part.body = HttpBody::of_text("\r\n--" + std::string(static_cast<std::size_t>(n), 'x'));
      return 1;
    });
    Parts parts;
    MultipartReader reader("b", parts);
    std::vector<char> buffer(room);
    for (int64_t got = 1; (got = body.read(buffer.data(), room)) > 0;)
      ASSERT_EQ(reader.feed({buffer.data(), static_cast<std::size_t>(got)}), "");
    EXPECT_TRUE(reader.complete());
    EXPECT_EQ(parts.text, "a/1:\r\n--x|a/2:|a/3:\r\n--xxx|") << room;
  }
  // A failure in the middle reaches who reads.
  HttpBody broken = multipart_body("b", [](BodyPart&) { return -1; });
  char byte = 0;
  EXPECT_EQ(broken.read(&byte, 1), -1);
}

TEST(Base64, BothAlphabets) {
  for (const std::string& bytes : {std::string(), std::string("f"), std::string("fo"), std::string("foo"),
                                   std::string("\0\xff\xfe", 3)}) {
    std::string back;
    EXPECT_TRUE(from_base64(base64_of(bytes), false, back));
    EXPECT_EQ(back, bytes);
  }
  EXPECT_EQ(base64_of("fo"), "Zm8=");
  std::string bytes;
  EXPECT_TRUE(from_base64("_-8", true, bytes));
  EXPECT_EQ(bytes, "\xff\xef");
  for (const char* bad : {"Zm8", "Zm9=", "Z===", "Zm8=Zm8=", "Z!8=", "_-8="})
    EXPECT_FALSE(from_base64(bad, false, bytes)) << bad;
}

// The example of RFC 7515 appendix A.1: each of its letters counts.
TEST(Tokens, AChangedOneIsRefused) {
  JwtKeys keys;
  ASSERT_EQ(keys.load("{\"keys\":[{\"kty\":\"oct\",\"k\":\"AyM1SysPpbyDfgZld3umj1qzKObwVMkoqQ-EstJQLr_T-"
                      "1qS0gZH75aKtMN3Yj0iPS4hcgUuTwjAzZr1Z9CAow\"}]}"),
            "");
  const std::string token =
      "eyJ0eXAiOiJKV1QiLA0KICJhbGciOiJIUzI1NiJ9."
      "eyJpc3MiOiJqb2UiLA0KICJleHAiOjEzMDA4MTkzODAsDQogImh0dHA6Ly9leGFtcGxlLmNvbS9pc19yb290Ijp0cnVlfQ."
      "dBjftJeZ4CVP-mB92K27uhbUJU1p1r_wW1gFWFOEjXk";
  constexpr int64_t kInTime = 1300819380;
  JwtClaims claims;
  EXPECT_EQ(keys.check(token, "", kInTime, claims), "");
  EXPECT_NE(keys.check(token, "", kInTime + 61, claims), "");
  EXPECT_NE(keys.check(token, "archive", kInTime, claims), "");
  for (std::size_t i = 0; i < token.size(); ++i) {
    std::string other = token;
    other[i] = other[i] == 'A' ? 'B' : 'A';
    EXPECT_NE(keys.check(other, "", kInTime, claims), "") << i;
    EXPECT_NE(keys.check(token.substr(0, i), "", kInTime, claims), "") << i;
  }
  for (const char* bad : {"", "{}", "{\"keys\":[]}", "{\"keys\":[{\"kty\":\"oct\",\"k\":\"c2hvcnQ\"}]}",
                          "{\"keys\":[{\"kty\":\"RSA\",\"n\":\"AQ\",\"e\":\"AQAB\"}]}",
                          "{\"keys\":[{\"kty\":\"EC\",\"crv\":\"P-256\",\"x\":\"AQ\",\"y\":\"AQ\"}]}",
                          "-----BEGIN PUBLIC KEY-----\nAA\n-----END PUBLIC KEY-----\n"}) {
    JwtKeys none;
    EXPECT_NE(none.load(bad), "") << bad;
    EXPECT_TRUE(none.empty());
  }
}

}  // namespace
}  // namespace vexal::test
