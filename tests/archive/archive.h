// Objects written in one line, and as files.
#pragma once

#include <algorithm>
#include <sstream>
#include <string>
#include <vector>

#include "base/names.h"
#include "base/values.h"
#include "files/files.h"
#include "support.h"

namespace vexal::test {

inline constexpr char kCt[] = "1.2.840.10008.5.1.4.1.1.2";

// "PatientID=P1 Modality" and the like: keywords with values, in which `~` is a blank.
inline void fill(int32_t object, const std::string& text) {
  std::istringstream words(text);
  for (std::string word; words >> word;) {
    std::replace(word.begin(), word.end(), '~', ' ');
    const std::size_t equals = std::min(word.find('='), word.size());
    uint32_t tag = 0;
    EXPECT_TRUE(parse_tag(word.substr(0, equals), tag)) << word;
    set_all_text(object, tag, word.substr(std::min(equals + 1, word.size())));
  }
}
inline void add_item(int32_t object, uint32_t tag, const std::string& text) {
  int32_t id = -1;
  EXPECT_EQ(VX_Open_Empty_Item(&id), VX_NORMAL_COMPLETION);
  fill(id, text);
  EXPECT_EQ(VX_Set_Next_Value_From_Int(object, tag, id), VX_NORMAL_COMPLETION);
}

// A file of this instance; each of the items goes into a sequence.
inline void write_object(const std::string& path, const std::string& instance, const std::string& text,
                         uint32_t sequence = 0, const std::vector<std::string>& items = {}) {
  int32_t id = -1;
  FileSink sink;
  ASSERT_EQ(VX_Create_Empty_File(&id, path.c_str()), VX_NORMAL_COMPLETION);
  fill(id, std::string("00020002=") + kCt + " 00020003=" + instance + " 00080016=" + kCt +
               " 00080018=" + instance);
  fill(id, text);
  for (const std::string& item : items) add_item(id, sequence, item);
  ASSERT_EQ(VX_Set_Message_Transfer_Syntax(id, EXPLICIT_LITTLE_ENDIAN), VX_NORMAL_COMPLETION);
  ASSERT_EQ(sink.open(path), "");
  ASSERT_EQ(VX_Write_File(id, 0, &sink, FileSink::file_output), VX_NORMAL_COMPLETION);
  ASSERT_EQ(sink.commit(), "");
  VX_Free_File(&id);
}

}  // namespace vexal::test
