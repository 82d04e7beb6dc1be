// Where a bucket is, and as whom it is used.
#include <algorithm>
#include <cstdlib>
#include <fstream>

#include "s3_store.h"

namespace vexal {
namespace {

constexpr char kScheme[] = "s3://";

std::string environment(const char* name) {
  const char* text = std::getenv(name);
  return text != nullptr ? text : "";
}

std::string first_of(std::initializer_list<std::string> texts) {
  const auto* found =
      std::find_if(texts.begin(), texts.end(), [](const std::string& t) { return !t.empty(); });
  return found != texts.end() ? *found : "";
}

std::string trimmed(const std::string& text) {
  const std::size_t start = text.find_first_not_of(" \t\r");
  return start == std::string::npos ? "" : text.substr(start, text.find_last_not_of(" \t\r") + 1 - start);
}

struct Keys {
  std::string id;
  std::string secret;
  std::string token;
};

// A file of profiles: "[NAME]", and "key = value" below it.
std::string read_credentials_file(const std::string& path, const std::string& profile, Keys& keys) {
  std::ifstream file(path);
  if (!file) return path + ": can not be read";
  constexpr std::size_t kMostLines = 10000;
  bool ours = false;
  std::string line;
  for (std::size_t i = 0; i < kMostLines && std::getline(file, line); ++i) {
    line = trimmed(line);
    if (line.starts_with('[')) {
      ours = line == "[" + profile + "]";
      continue;
    }
    const std::size_t equals = line.find('=');
    if (!ours || equals == std::string::npos) continue;
    const std::string name = trimmed(line.substr(0, equals));
    std::string* const into = name == "aws_access_key_id"       ? &keys.id
                              : name == "aws_secret_access_key" ? &keys.secret
                              : name == "aws_session_token"     ? &keys.token
                                                                : nullptr;
    if (into != nullptr) *into = trimmed(line.substr(equals + 1));
  }
  return keys.id.empty() || keys.secret.empty() ? path + ": has no keys of the profile " + profile : "";
}

std::string read_credentials(WebPeer& peer) {
  Keys keys{environment("AWS_ACCESS_KEY_ID"), environment("AWS_SECRET_ACCESS_KEY"),
            environment("AWS_SESSION_TOKEN")};
  if (keys.id.empty() != keys.secret.empty())
    return "AWS_ACCESS_KEY_ID and AWS_SECRET_ACCESS_KEY belong together; one of them is missing";
  if (keys.id.empty()) {
    keys = {};
    const std::string home = environment("HOME");
    const std::string path = first_of(
        {environment("AWS_SHARED_CREDENTIALS_FILE"), home.empty() ? "" : home + "/.aws/credentials"});
    const std::string error =
        path.empty() ? "no file of them"
                     : read_credentials_file(path, first_of({environment("AWS_PROFILE"), "default"}), keys);
    if (!error.empty()) return "no credentials in AWS_ACCESS_KEY_ID and AWS_SECRET_ACCESS_KEY, and " + error;
  }
  for (const std::string* text : {&keys.id, &keys.secret, &keys.token}) {
    const auto unfit = [](unsigned char c) { return c <= 0x20 || c >= 0x7F; };
    if (std::any_of(text->begin(), text->end(), unfit))
      return "the credentials have characters that none may have";
  }
  if (keys.id.find(':') != std::string::npos) return "the access key has a colon";
  peer.credentials = keys.id + ":" + keys.secret;
  if (!keys.token.empty()) peer.headers.push_back("x-amz-security-token: " + keys.token);
  return "";
}

bool is_name(const std::string& text, std::string_view more) {
  return !text.empty() && std::all_of(text.begin(), text.end(), [&](char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
           more.find(c) != std::string_view::npos;
  });
}

// "https://host[:port]", without a user, a path or anything else.
std::string check_endpoint(const std::string& endpoint, std::string& host) {
  const std::size_t start = endpoint.starts_with("http://")    ? 7
                            : endpoint.starts_with("https://") ? 8
                                                               : std::string::npos;
  host = start == std::string::npos ? "" : endpoint.substr(start);
  return is_name(host, ".-:[]_")
             ? ""
             : "its endpoint is no address such as https://host:9000, without user and path";
}

}  // namespace

bool is_s3_address(const std::string& address) {
  return address.starts_with(kScheme);
}

std::string S3Place::read(const std::string& address) {
  const std::size_t query = std::min(address.find('?'), address.size());
  const std::string where = address.substr(sizeof kScheme - 1, query - (sizeof kScheme - 1));
  const std::size_t slash = std::min(where.find('/'), where.size());
  bucket = where.substr(0, slash);
  prefix = slash < where.size() ? where.substr(slash + 1) : "";
  while (prefix.ends_with('/')) prefix.pop_back();
  if (!is_name(bucket, ".-_")) return "it has no proper name of a bucket";
  if (!prefix.empty() && !is_name(prefix, ".-_/"))
    return "its prefix has other characters than letters, digits, . - _ /";
  if (!prefix.empty()) prefix += '/';
  endpoint = first_of({environment("AWS_ENDPOINT_URL_S3"), environment("AWS_ENDPOINT_URL")});
  region = first_of({environment("AWS_REGION"), environment("AWS_DEFAULT_REGION"), "us-east-1"});
  peer.authorities = environment("AWS_CA_BUNDLE");
  for (std::size_t at = query + 1; at < address.size();) {
    const std::size_t end = std::min(address.find('&', at), address.size());
    const std::string part = address.substr(at, end - at);
    const std::size_t equals = std::min(part.find('='), part.size());
    const std::string name = part.substr(0, equals);
    std::string* const into = name == "endpoint" ? &endpoint
                              : name == "region" ? &region
                              : name == "ca"     ? &peer.authorities
                                                 : nullptr;
    if (into == nullptr) return "only endpoint, region and ca may follow its question mark";
    *into = percent_decoded(std::string_view(part).substr(std::min(equals + 1, part.size())));
    at = end + 1;
  }
  if (!is_name(region, "-")) return "its region is no name";
  if (endpoint.empty()) endpoint = "https://s3." + region + ".amazonaws.com";
  while (endpoint.ends_with('/')) endpoint.pop_back();
  std::string host;
  if (const std::string error = check_endpoint(endpoint, host); !error.empty()) return error;
  peer.url = endpoint + "/" + bucket;
  peer.signing = "aws:amz:" + region + ":s3";
  // What is signed has to be what goes out, port and all; bodies are not looked at twice for it.
  peer.headers = {"Host: " + host, "x-amz-content-sha256: UNSIGNED-PAYLOAD"};
  return read_credentials(peer);
}

}  // namespace vexal
