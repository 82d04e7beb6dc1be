#include "frame/log.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <thread>

#include "support.h"

namespace vx {
namespace {

using std::filesystem::exists;

// A text with each digit as "#".
std::string shape(std::string text) {
  std::replace_if(
      text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; }, '#');
  return text;
}

class LogTest : public support::LibraryTest {
 protected:
  // The records of the log file in file order, without padding and line end. "^" stands for the end mark.
  std::vector<std::string> records(std::size_t length = 78) const {
    std::string content = folder().read("test.log");
    std::vector<std::string> lines;
    for (std::size_t at = 0; at < content.size(); at += length + 2) {
      std::string record = content.substr(at, length + 2);
      if (record[0] == '\0') continue;
      if (record[0] == '\x04') {
        lines.emplace_back("^");
        continue;
      }
      EXPECT_EQ(record.size(), length + 2);
      EXPECT_EQ(record.substr(length), "\r\n");
      record.resize(length);
      record.resize(record.find_last_not_of(' ') + 1);
      lines.push_back(record);
    }
    return lines;
  }
  // What stands behind the level word of the records.
  static std::string message(const std::string& record) {
    const std::size_t at = record.find(" E: ");
    return at == std::string::npos ? record : record.substr(at + 4);
  }
  std::vector<std::string> messages() const {
    std::vector<std::string> texts = records();
    std::transform(texts.begin(), texts.end(), texts.begin(), message);
    return texts;
  }
  static void log_numbers(int first, int last) {
    for (int i = first; i <= last; ++i) VXlog(VX_LOG_ERROR, "%d", i);
  }
  // A fresh log file with these settings.
  static void restart(int32_t lines, bool fill, bool backup = false, int32_t history = 1) {
    const std::string name = get_text(VX_CFG_LOG_FILE);
    set_int(VX_CFG_LOG_FILE_SIZE, lines);
    set_bool(VX_CFG_BLANK_FILL_LOG_FILE, fill);
    set_bool(VX_CFG_LOG_FILE_BACKUP, backup);
    set_int(VX_CFG_NUM_HISTORICAL_LOG_FILES, history);
    set_text(VX_CFG_LOG_FILE, "other.log");
    set_text(VX_CFG_LOG_FILE, name);
  }
  using Lines = std::vector<std::string>;
};

TEST_F(LogTest, LineHasAllItsParts) {
  EXPECT_STREQ(VX_Set_Log_Prefix(" \t\n\rABCDEFGHIJKLMNOPQRST"), "ABCDEFGHIJ");
  EXPECT_EQ(VXlog_Function("VX_Test", VX_LOG_ERROR, "one %s\t\x01three", "two"), 0);
  EXPECT_STREQ(VX_Set_Log_Prefix(nullptr), "");
  ASSERT_EQ(log_lines().size(), 1U);
  const std::string line = log_lines()[0];
  const std::string head = "ABCDEFGHIJ(" + std::to_string(::gettid()) + ") ";
  EXPECT_EQ(line.substr(0, head.size()), head);
  const std::string tail = line.substr(head.size());
  EXPECT_EQ(shape(tail), "##-## ##:##:##.## VX#(VX_Test) E: one twothree");
  EXPECT_EQ(VXlog(VX_LOG_ERROR, "%s", "plain"), 0);
  EXPECT_TRUE(has_log(" VX3 E: plain"));
}

TEST_F(LogTest, ResultsOfBadCalls) {
  EXPECT_EQ(VXlog(VX_LOG_ERROR, nullptr), 4);
  const char* empty = "";
  EXPECT_EQ(VXlog(VX_LOG_ERROR, empty, 0), 4);
  EXPECT_EQ(VX_MemoryLog_To_Function(0, nullptr), VX_NULL_POINTER_PARM);
  set_text(VX_CFG_LOG_FILE, folder().path("no/such/folder.log"));
  EXPECT_EQ(VXlog(VX_LOG_ERROR, "lost"), 2);
  EXPECT_FALSE(has_log("lost")) << "a line that failed on the file reaches nobody";
  VX_Library_Release();
  EXPECT_EQ(VXlog(VX_LOG_ERROR, "early"), 7);
}

// An application that shows messages its own way hears what is wrong with a configuration, and no file is
// made.
TEST_F(LogTest, AReceiverNamedBeforeTheStartHearsAllOfIt) {
  for (const bool broken : {false, true}) {
    VX_Library_Release();
    write_configuration();
    folder().write("test.pro", folder().read("test.pro") + "LARGE_DATA_SIZE = many\n");
    if (broken) std::filesystem::remove(folder().path("test.srv"));
    std::filesystem::remove(folder().path("test.log"));
    clear_log();
    support::LogCapture::start();
    VX_Set_VexalINI(ini().c_str());
    EXPECT_EQ(VX_Library_Initialization(nullptr, nullptr, nullptr),
              broken ? VX_CONFIG_INFO_ERROR : VX_NORMAL_COMPLETION);
    EXPECT_TRUE(has_log("Invalid: \"LARGE_DATA_SIZE = many\" - Using Default"));
    EXPECT_EQ(has_log("Error opening vexalkit services profile: "), broken);
    EXPECT_FALSE(exists(folder().path("test.log")));
    VXlog(VX_LOG_ERROR, "afterwards");
    EXPECT_TRUE(exists(folder().path("test.log"))) << "from then on the configuration counts";
  }
  VX_Set_VexalINI(folder().path("nowhere.ini").c_str());
  EXPECT_EQ(VX_Library_Initialization(nullptr, nullptr, nullptr), VX_NO_VEXAL_INI);
  EXPECT_TRUE(has_log("Unable to access Vexal Ini file: "));
}

TEST_F(LogTest, LevelsAreRoutedByTheirKeys) {
  const struct {
    uint32_t level;
    VX_LOG_KEY key;
    const char* word;
  } rows[] = {{VX_LOG_WARNING, VX_CFG_WARNING_MESSAGE, " W: "},
              {VX_LOG_INFO, VX_CFG_INFO_MESSAGE, " I: "},
              {VX_LOG_T1, VX_CFG_T1_MESSAGE, " T1: "},
              {VX_LOG_T5, VX_CFG_T5_MESSAGE, " T5: "},
              {VX_LOG_T9, VX_CFG_T9_MESSAGE, " T9: "}};
  for (const auto& row : rows) {
    clear_log();
    VX_Set_Log_Destination(row.key, VX_LOG_OFF | VX_LOG_TO_FILE);
    EXPECT_EQ(VXlog(row.level, "x"), 0);
    EXPECT_FALSE(log_enabled(row.level));
    EXPECT_TRUE(log_lines().empty()) << row.word;
    VX_Set_Log_Destination(row.key, VX_LOG_TO_MEMORY);
    EXPECT_EQ(VXlog(row.level, "x"), 0);
    EXPECT_TRUE(has_log(row.word)) << row.word;
    VX_Set_Log_Destination(row.key, VX_LOG_OFF);
  }
  EXPECT_FALSE(exists(folder().path("test.log")));
  clear_log();
  VX_Set_Log_Destination(VX_CFG_ERROR_MESSAGE, VX_LOG_OFF);
  EXPECT_EQ(VXlog(VX_LOG_ERROR, "always"), 0);
  EXPECT_EQ(VXlog(3, "unknown"), 0);
  EXPECT_TRUE(has_log(" E: always"));
  EXPECT_TRUE(has_log(" UNKN_TYPE: unknown"));
  EXPECT_EQ(records().size(), 3U) << "errors reach the file whatever their key says";
}

TEST_F(LogTest, LongMessagesAreCutWithAWarning) {
  VXlog_Function("F", VX_LOG_ERROR, "%s", std::string(256, 'a').c_str());
  EXPECT_FALSE(has_log("TRUNCATED"));
  VXlog_Function("F", VX_LOG_ERROR, "%s", std::string(257, 'b').c_str());
  VXlog(VX_LOG_ERROR, "%s", std::string(3000, 'c').c_str());
  const auto lines = log_lines();
  ASSERT_EQ(lines.size(), 5U);
  EXPECT_TRUE(lines[1].ends_with("VX3(VXlog_Function) W: NEXT LOG MESSAGE WAS TRUNCATED"));
  EXPECT_EQ(std::count(lines[0].begin(), lines[0].end(), 'a'), 256);
  EXPECT_EQ(std::count(lines[2].begin(), lines[2].end(), 'b'), 255);
  EXPECT_TRUE(lines[3].ends_with("VX3(VXlog) W: NEXT LOG MESSAGE WAS TRUNCATED"));
  EXPECT_EQ(std::count(lines[4].begin(), lines[4].end(), 'c'), 255);
}

TEST_F(LogTest, PiecesBreakAtBlanksAndHardWithoutThem) {
  set_int(VX_CFG_LOG_FILE_LINE_LENGTH, 20);
  log_raw(VX_LOG_ERROR, "");
  const std::string head = "(" + std::to_string(::gettid()) + ")";
  log_raw(VX_LOG_ERROR, std::string(30, 'x').c_str());
  log_raw(VX_LOG_ERROR, "a b c d e f g h i j k l m n o p q r s t");
  std::string joined;
  for (const std::string& record : records(20)) {
    EXPECT_LE(record.size(), 19U) << "the last column of a record stays free";
    if (record == "^") continue;
    const bool first = record.starts_with(head);
    EXPECT_TRUE(first || record.starts_with(std::string(15, ' '))) << record;
    for (const char c : record.substr(first ? head.size() : 15)) {
      if (c != ' ') joined += c;
    }
  }
  EXPECT_EQ(joined, std::string(30, 'x') + "abcdefghijklmnopqrst");
}

TEST_F(LogTest, ShortestRecordsStillMoveOn) {
  set_int(VX_CFG_LOG_FILE_LINE_LENGTH, 1);
  EXPECT_EQ(get_int(VX_CFG_LOG_FILE_LINE_LENGTH), 16);
  EXPECT_EQ(VXlog(VX_LOG_ERROR, "%s", std::string(60, 'y').c_str()), 0);
  const std::string content = folder().read("test.log");
  EXPECT_EQ(std::count(content.begin(), content.end(), 'y'), 60);
}

TEST_F(LogTest, FileIsLaidOutAndWraps) {
  restart(10, true);
  log_numbers(1, 1);
  std::string content = folder().read("test.log");
  ASSERT_EQ(content.size(), 10 * 80U);
  EXPECT_EQ(content[80], '\x04');
  EXPECT_EQ(std::count(content.begin() + 81, content.end(), '\0'), 10 * 80 - 81);
  log_numbers(2, 10);
  EXPECT_EQ(messages(), (Lines{"^", "2", "3", "4", "5", "6", "7", "8", "9", "10"}));
  log_numbers(11, 11);
  EXPECT_EQ(messages(), (Lines{"11", "^", "3", "4", "5", "6", "7", "8", "9", "10"}));
  log_numbers(12, 25);
  EXPECT_EQ(messages(), (Lines{"21", "22", "23", "24", "25", "^", "17", "18", "19", "20"}));
  EXPECT_EQ(folder().read("test.log").size(), 800U);
}

TEST_F(LogTest, FileGrowsWithoutFillAndStartsEmpty) {
  folder().write("test.log", "what an earlier process left");
  restart(10, false);
  log_numbers(1, 3);
  EXPECT_EQ(messages(), (Lines{"1", "2", "3", "^"}));
  EXPECT_EQ(folder().read("test.log").size(), 3 * 80U + 1);
}

TEST_F(LogTest, AnotherWritersRecordsAreSteppedOver) {
  restart(10, true);
  log_numbers(1, 1);
  // Another process has written two records behind ours.
  std::string content = folder().read("test.log");
  const std::string theirs = std::string(78, 'z') + "\r\n";
  content.replace(80, 160, theirs + theirs);
  content[240] = '\x04';
  folder().write("test.log", content);
  log_numbers(2, 2);
  EXPECT_EQ(messages(), (Lines{"1", std::string(78, 'z'), std::string(78, 'z'), "2", "^"}));
}

TEST_F(LogTest, OneRecordIsEnough) {
  restart(1, true);
  log_numbers(1, 3);
  EXPECT_EQ(folder().read("test.log").size(), 80U);
}

TEST_F(LogTest, OldFilesRoll) {
  restart(10, true, true, 3);
  // The first numbers of the log and of the old files, a dash for one that is not there.
  const auto firsts = [this] {
    std::string all;
    for (const char* name : {"test.log", "test.L01", "test.L02", "test.L03", "test.L04"}) {
      const std::string text = message(folder().read(name));
      all += exists(folder().path(name)) ? text.substr(0, text.find(' ')) + " " : "- ";
    }
    return all;
  };
  log_numbers(1, 11);
  EXPECT_EQ(firsts(), "11 1 - - - ");
  log_numbers(12, 21);
  EXPECT_EQ(firsts(), "21 1 11 - - ");
  log_numbers(22, 31);  // the third roll: the oldest goes, the others move down
  EXPECT_EQ(firsts(), "31 11 21 - - ");
  // A gap closes, and the log takes the number behind.
  set_int(VX_CFG_NUM_HISTORICAL_LOG_FILES, 5);
  std::filesystem::rename(folder().path("test.L02"), folder().path("test.L04"));
  log_numbers(32, 41);
  EXPECT_EQ(firsts(), "41 11 21 31 - ");
}

TEST_F(LogTest, OneOldFileForAHistoryOfOne) {
  restart(10, true, true, 1);
  log_numbers(1, 31);
  EXPECT_FALSE(exists(folder().path("test.L02")));
  EXPECT_NE(folder().read("test.L01").find(" E: 21 "), std::string::npos);
}

TEST_F(LogTest, DevicesAreWrittenToAndNeverRolled) {
  set_bool(VX_CFG_LOG_FILE_BACKUP, true);
  set_text(VX_CFG_LOG_FILE, "/dev/null");
  set_int(VX_CFG_LOG_FILE_SIZE, 2);
  for (int i = 0; i < 10; ++i) EXPECT_EQ(VXlog(VX_LOG_ERROR, "gone"), 0);
  EXPECT_EQ(count_log("gone"), 10);
  EXPECT_TRUE(std::filesystem::is_character_file("/dev/null"));
}

TEST_F(LogTest, RecordLengthStaysOnceTheFileIsStarted) {
  set_int(VX_CFG_LOG_FILE_LINE_LENGTH, 300);
  EXPECT_EQ(get_int(VX_CFG_LOG_FILE_LINE_LENGTH), 254);
  set_int(VX_CFG_LOG_FILE_LINE_LENGTH, 100);
  log_numbers(1, 1);
  set_int(VX_CFG_LOG_FILE_LINE_LENGTH, 50);
  EXPECT_EQ(get_int(VX_CFG_LOG_FILE_LINE_LENGTH), 100);
  EXPECT_TRUE(has_log("Log file already created, cannot set LOG_FILE_LINE_LENGTH."));
  restart(10, true);
  log_numbers(1, 10);  // full: the next line wraps
  set_int(VX_CFG_LOG_FILE_LINE_LENGTH, 50);
  EXPECT_EQ(get_int(VX_CFG_LOG_FILE_LINE_LENGTH), 100);
  log_numbers(11, 11);
  EXPECT_EQ(records(100).size(), 10U) << "nothing was lost";
}

struct Handed {
  std::vector<std::string> lines;
  int first = 0, last = 0;
  std::size_t stop_at = 1000;
};
Handed g_handed;

int32_t take_line(const char* line, int32_t is_first, int32_t is_last) {
  g_handed.lines.emplace_back(line);
  g_handed.first += is_first;
  g_handed.last += is_last;
  return g_handed.lines.size() < g_handed.stop_at ? 1 : 0;
}

TEST_F(LogTest, RingKeepsTheNewestLinesInOrder) {
  const auto hand_over = [](int32_t clear) {
    g_handed = Handed{};
    return VX_MemoryLog_To_Function(clear, take_line);
  };
  const auto numbers = [] {
    std::string text;
    for (const std::string& line : g_handed.lines) text += line.substr(line.find("T1: ") + 4) + " ";
    return text;
  };
  const auto log = [](int first, int last) {
    for (int i = first; i <= last; ++i) VXlog(VX_LOG_T1, "%d", i);
  };
  VX_Set_Log_Destination(VX_CFG_T1_MESSAGE, VX_LOG_TO_MEMORY);
  EXPECT_EQ(hand_over(0), VX_LOG_EMPTY);
  log(1, 2);
  EXPECT_EQ(hand_over(0), VX_NORMAL_COMPLETION);
  EXPECT_EQ(numbers(), "2 ") << "one line by default";
  EXPECT_TRUE(g_handed.first == 1 && g_handed.last == 1);
  set_int(VX_CFG_LOG_MEMORY_SIZE, 3);
  log(3, 7);
  EXPECT_EQ(hand_over(0), VX_NORMAL_COMPLETION);
  EXPECT_EQ(numbers(), "5 6 7 ");
  EXPECT_TRUE(g_handed.first == 1 && g_handed.last == 1);
  g_handed = Handed{};
  g_handed.stop_at = 2;
  EXPECT_EQ(VX_MemoryLog_To_Function(1, take_line), VX_CALLBACK_CANNOT_COMPLY);
  EXPECT_EQ(g_handed.lines.size(), 2U);
  set_int(VX_CFG_LOG_MEMORY_SIZE, 2);
  log(8, 8);
  EXPECT_EQ(hand_over(1), VX_NORMAL_COMPLETION);
  EXPECT_EQ(numbers(), "7 8 ");
  EXPECT_EQ(hand_over(0), VX_LOG_EMPTY);
  VXlog(VX_LOG_T1, "%s", std::string(255, 'q').c_str());
  EXPECT_EQ(hand_over(1), VX_NORMAL_COMPLETION);
  EXPECT_EQ(g_handed.lines[0].size(), 255U);
}

VX_LOG_RECORD g_record;
std::string g_record_texts;

TEST_F(LogTest, EnhancedReceiverGetsTheParts) {
  VX_Register_Enhanced_MemoryLog_Function([](const VX_LOG_RECORD* record) {
    g_record = *record;
    g_record_texts = std::string(record->LevelText) + "|" + record->Prefix + "|" + record->FunctionName +
                     "|" + record->Message + "|" + record->ThreadText;
  });
  VX_Set_Log_Prefix("pre");
  VXlog_Function("Fn", VX_LOG_WARNING, "text");
  VX_Set_Log_Prefix("");
  EXPECT_EQ(g_record_texts, "W|pre|Fn|text|" + std::to_string(::gettid()));
  EXPECT_EQ(g_record.Type, 2);
  EXPECT_GE(g_record.Year, 124);
  EXPECT_TRUE(g_record.Month >= 0 && g_record.Month < 12 && g_record.Hundredths < 100);
  VXlog(VX_LOG_ERROR, "bare");
  EXPECT_EQ(g_record_texts, "E|||bare|" + std::to_string(::gettid()));
  VX_Register_Enhanced_MemoryLog_Function(nullptr);
  VXlog(VX_LOG_ERROR, "unseen");
  EXPECT_EQ(g_record.Type, 1);
  EXPECT_EQ(g_record_texts.find("unseen"), std::string::npos);
}

TEST_F(LogTest, ThreadsNeverTearARecord) {
  restart(10000, false);
  constexpr int kThreads = 4;
  constexpr int kEach = 200;
  VX_Set_Log_Destination(VX_CFG_ERROR_MESSAGE, VX_LOG_TO_MEMORY);
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([t] {
      for (int i = 0; i < kEach; ++i) VXlog(VX_LOG_ERROR, "thread %d line %d", t, i);
    });
  }
  for (std::thread& thread : threads) thread.join();
  int whole = 0;
  for (const std::string& text : messages()) {
    whole += shape(text).starts_with("thread # line #") ? 1 : 0;
  }
  EXPECT_EQ(whole, kThreads * kEach);
}

// ---- PDUs ----

class PduTraceTest : public LogTest {
 protected:
  void SetUp() override {
    LogTest::SetUp();
    VX_Set_Log_Destination(VX_CFG_T9_MESSAGE, VX_LOG_TO_MEMORY);
  }
  static int trace(const std::vector<uint8_t>& pdu, bool received = true) {
    clear_log();
    return log_pdu(pdu.data(), static_cast<uint32_t>(pdu.size()), nullptr, 0, received);
  }
};

TEST_F(PduTraceTest, NamesTheFieldsOfEachPdu) {
  std::vector<uint8_t> request(74 + 18, 0);
  request[0] = 1;
  request[5] = 86;
  request[7] = 1;
  std::memcpy(&request[10], "CALLED          CALLING         ", 32);
  std::memcpy(&request[74], "\020\0ABCDEFGHIJKLMNOP", 18);
  const struct {
    std::vector<uint8_t> pdu;
    bool received;
    int result;
    std::vector<const char*> lines;
  } rows[] = {
      {request,
       false,
       0,
       {"PDU Type: 0x01 (Assoc_RQ) Sent", "  PDU length: 0000  0056   (86 bytes)", "CALLING         ",
        " Offset 0x0000: 1000   A B   C D ", " Offset 0x0010:  O P"}},
      {{3, 0, 0, 0, 0, 4, 0, 1, 2, 3}, true, 0, {"  Reason: 0x03"}},
      {{7, 0, 0, 0, 0, 4, 0, 0, 2, 6}, true, 0, {"(Assoc_ABORT) Received", "  Source: 0x02"}},
      {{4, 0, 0, 0, 0, 6, 0, 0, 0, 2, 5, 3}, false, 0, {"  Presentation Context ID: 5 (0x05)"}},
      {{4, 0, 0, 0, 0, 6}, true, 0, {"  PDV <not received>"}},
      {{9}, true, 4, {"PDU type not correctly identified [ 9 ]."}},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(trace(row.pdu, row.received), row.result);
    for (const char* line : row.lines) EXPECT_TRUE(has_log(line)) << line;
  }
  EXPECT_EQ(log_pdu(nullptr, 0, nullptr, 0, true), 4);
}

TEST_F(PduTraceTest, CutPdusAreReadNoFurther) {
  for (uint8_t type = 0; type <= 8; ++type) {
    std::vector<uint8_t> pdu(100, 0xFF);
    pdu[0] = type;
    for (std::size_t size = pdu.size(); size > 0; --size) {
      // Exact allocations, so that a sanitizer sees one byte too many.
      const std::vector<uint8_t> cut(pdu.begin(), pdu.begin() + static_cast<std::ptrdiff_t>(size));
      trace(cut);
      trace(cut, false);
    }
  }
  VX_Set_Log_Destination(VX_CFG_T9_MESSAGE, VX_LOG_OFF);
  EXPECT_EQ(trace({1, 0}), 0);
  EXPECT_TRUE(log_lines().empty());
}

}  // namespace
}  // namespace vx
