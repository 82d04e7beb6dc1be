// Where objects lie: keys in a folder, addresses and answers of S3-compatible storage.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <map>

#include "../support.h"
#include "holdings/folder_store.h"
#include "holdings/s3_store.h"
#include "holdings/xml_fields.h"

namespace vexal::test {
namespace {

namespace fs = std::filesystem;

class StoreTest : public support::LibraryTest {
 protected:
  // The variables that storage looks at, for the length of a test.
  void set(const std::map<std::string, std::string>& variables) {
    for (const char* name : {"AWS_ACCESS_KEY_ID", "AWS_SECRET_ACCESS_KEY", "AWS_SESSION_TOKEN", "AWS_PROFILE",
                             "AWS_SHARED_CREDENTIALS_FILE", "AWS_REGION", "AWS_DEFAULT_REGION",
                             "AWS_CA_BUNDLE", "AWS_ENDPOINT_URL", "AWS_ENDPOINT_URL_S3"})
      ::unsetenv(name);
    ::setenv("HOME", folder().path("").c_str(), 1);
    for (const auto& [name, value] : variables) ::setenv(name.c_str(), value.c_str(), 1);
  }
  static std::string listed(ObjectStore& store, const std::string& prefix) {
    std::string keys;
    EXPECT_EQ(store.list(prefix,
                         [&](const ListedObject& object) {
                           keys += object.key + ":" + std::to_string(object.size) + " ";
                           return true;
                         }),
              "");
    return keys;
  }
};

// Whole objects under keys of their own, which nothing takes away from them.
TEST_F(StoreTest, AFolderGivesEachKeyOnce) {
  FolderStore store(folder().path("in"), 0640, true);
  fs::create_directory(folder().path("in"));
  std::string first;
  std::string second;
  for (std::string* key : {&first, &second}) {
    FileSink sink;
    ASSERT_EQ(sink.open(folder().path("in/x.dcm"), 0640), "");
    ASSERT_TRUE(sink.write("0123456789", key == &first ? 10 : 4));
    ASSERT_EQ(store.put(sink, "1/1.1/1.1.1", *key), "");
  }
  EXPECT_EQ(first, "1/1.1/1.1.1.dcm");
  EXPECT_NE(first, second);
  EXPECT_TRUE(second.starts_with("1/1.1/1.1.1-") && second.ends_with(".dcm")) << second;
  FileSink sink;
  ASSERT_EQ(sink.open(folder().path("in/x.dcm"), 0640), "");
  EXPECT_NE(store.put_under(sink, first), "");
  fs::create_directory_symlink(folder().path("in/1"), folder().path("in/2"));
  EXPECT_NE(store.put_under(sink, "2/x.dcm"), "");
  sink.drop();
  fs::create_directory(folder().path("in/lost+found"));
  folder().write("in/lost+found/a.lost", "x");
  EXPECT_EQ(listed(store, ""), second + ":4 " + first + ":10 ");
  EXPECT_EQ(listed(store, "1/1.1/1.1.1."), first + ":10 ");
  EXPECT_EQ(listed(store, "1/2"), "");

  std::optional<uint64_t> size;
  EXPECT_EQ(store.look_for(first, size), "");
  EXPECT_EQ(size, 10U);
  EXPECT_EQ(store.look_for("1/none.dcm", size), "");
  EXPECT_EQ(size, std::nullopt);
  for (const auto& [offset, bytes] :
       std::map<uint64_t, std::string>{{0, "0123"}, {8, "89"}, {10, ""}, {99, ""}}) {
    std::string got;
    EXPECT_EQ(store.read(first, offset, 4, got), "");
    EXPECT_EQ(got, bytes) << offset;
  }
  for (const std::string& key : {first, second, second}) EXPECT_EQ(store.remove(key), "");
  EXPECT_FALSE(fs::exists(folder().path("in/1")));  // what is empty goes too
}

// An address is taken apart, or refused with a text that shows no secret.
TEST_F(StoreTest, AddressesOfBuckets) {
  folder().write("keys",
                 "[default]\naws_access_key_id = FILE\n[other]\n "
                 "aws_access_key_id=OTHER\naws_secret_access_key = sesame\n");
  const std::map<std::string, std::string> keys = {{"AWS_ACCESS_KEY_ID", "KEY"},
                                                   {"AWS_SECRET_ACCESS_KEY", "sesame"}};
  const std::string file = folder().path("keys");
  const struct {
    const char* address;
    std::map<std::string, std::string> variables;
    const char* outcome;  // URL, prefix, signing and credentials; or part of an error
  } rows[] = {
      {"s3://b", keys, "https://s3.us-east-1.amazonaws.com/b  aws:amz:us-east-1:s3 KEY:sesame"},
      {"s3://b/p/q/?endpoint=http%3A//[::1]:9000/&region=eu-1", keys,
       "http://[::1]:9000/b p/q/ aws:amz:eu-1:s3 KEY:sesame"},
      {"s3://b?endpoint=https://h",
       {{"AWS_SHARED_CREDENTIALS_FILE", file}, {"AWS_PROFILE", "other"}, {"AWS_REGION", "r"}},
       "https://h/b  aws:amz:r:s3 OTHER:sesame"},
      {"s3://b", {{"AWS_SHARED_CREDENTIALS_FILE", file}}, "no keys of the profile default"},
      {"s3://b", {}, ".aws/credentials: can not be read"},
      {"s3://b", {{"AWS_ACCESS_KEY_ID", "KEY"}}, "one of them is missing"},
      {"s3://b",
       {{"AWS_ACCESS_KEY_ID", "KEY"}, {"AWS_SECRET_ACCESS_KEY", "sesame\n"}},
       "characters that none may have"},
      {"s3://", keys, "no proper name of a bucket"},
      {"s3://KEY:sesame@b", keys, "no proper name of a bucket"},
      {"s3://b/p q", keys, "its prefix"},
      {"s3://b?endpoint=http://KEY:sesame@h", keys, "its endpoint"},
      {"s3://b?endpoint=ftp://h", keys, "its endpoint"},
      {"s3://b?region=a/b", keys, "its region"},
      {"s3://b?secret=sesame", keys, "only endpoint"},
  };
  for (const auto& row : rows) {
    set(row.variables);
    S3Place place;
    const std::string error = place.read(row.address);
    const std::string outcome = error.empty() ? place.peer.url + " " + place.prefix + " " +
                                                    place.peer.signing + " " + place.peer.credentials
                                              : error;
    EXPECT_NE(outcome.find(row.outcome), std::string::npos) << row.address << ": " << outcome;
    EXPECT_EQ(error.find("sesame"), std::string::npos) << error;
  }
  set({});
}

TEST_F(StoreTest, SmallXmlAsTexts) {
  ASSERT_EQ(open_xml(), "");
  const struct {
    std::string document;
    std::string outcome;
  } rows[] = {
      {"<?xml version='1.0'?><a xmlns='urn:x'><b>1 &amp; 2</b><c/><b>\xC3\xA9</b></a>",
       "a/b=1 & 2|a/c=|a/b=\xC3\xA9|a=|"},
      {"<a><![CDATA[<x>]]><b/>y</a>", "a/b=|a=<x>y|"},
      {"<!DOCTYPE a [<!ENTITY e 'x'>]><a>&e;</a>", "it has a document type declaration"},
      {"<a><b></a>", "it is no XML"},
      {"<a>", "it is no XML"},
      {"", "it is no XML"},
      {std::string(16 * 3, ' ').replace(0, 48, "<a><a><a><a><a><a><a><a><a><a><a><a><a><a><a><a>") + "<a>",
       "it has too many levels"},
  };
  for (const auto& row : rows) {
    std::string told;
    const std::string error = read_xml(row.document, [&](std::string_view path, std::string_view text) {
      ((told += path) += '=') += text;
      told += '|';
    });
    EXPECT_EQ(error.empty() ? told : error, row.outcome) << row.document;
  }
}

}  // namespace
}  // namespace vexal::test
