#include "bytes.h"

#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <sstream>

#include "text.h"

namespace vxdata {

std::string read_file(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) throw Unusable{path + ": can't be opened"};
  std::ostringstream content;
  content << in.rdbuf();
  if (in.bad()) throw Unusable{path + ": can't be read"};
  return content.str();
}

void write_file(const std::string& path, std::string_view bytes) {
  const std::string temporary = path + format(".%ld.tmp", static_cast<long>(getpid()));
  std::ofstream out(temporary, std::ios::binary | std::ios::trunc);
  if (!out) throw Unusable{temporary + ": can't be created"};
  out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  out.close();
  if (!out) {
    std::remove(temporary.c_str());
    throw Unusable{temporary + ": can't be written"};
  }
  if (std::rename(temporary.c_str(), path.c_str()) != 0) {
    std::remove(temporary.c_str());
    throw Unusable{path + ": can't be replaced"};
  }
}

}  // namespace vxdata
