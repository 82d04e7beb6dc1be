// Messages of syslog (RFC 5424) to where they are kept.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

namespace vexal {

// A message as a line of syslog: facility security, severity notice, and the message ID of DICOM audits.
std::string syslog_line(const std::string& message, const std::string& time);

class SyslogTarget {
 public:
  virtual ~SyslogTarget() = default;
  // The longest line that it can send.
  virtual std::size_t most() const { return SIZE_MAX; }
  // An error text, empty once the message is on its way. The next call tries again from the start.
  virtual std::string send(const std::string& line) = 0;
};

struct SyslogOptions {
  std::string url;  // tls://HOST[:PORT], tcp://HOST[:PORT], udp://HOST[:PORT], file:PATH
  std::string authorities;
  std::string certificate;
  std::string key;
};

// Null on failure, with an error text. Nothing is connected yet.
std::unique_ptr<SyslogTarget> open_syslog(const SyslogOptions& options, std::string& error);

}  // namespace vexal
