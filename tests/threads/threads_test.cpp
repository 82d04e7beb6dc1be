// Many threads with objects of their own: opening, filling, encoding, decoding and freeing. Meant for the
// thread sanitizer, and for a look at how throughput grows. VEXAL_THREAD_SECONDS sets the length of a run.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "config/config.h"
#include "pixel/pixels.h"
#include "support.h"

namespace {

double run_seconds() {
  const char* text = std::getenv("VEXAL_THREAD_SECONDS");
  return text != nullptr ? std::atof(text) : 0.5;
}

VX_STATUS take(int32_t, void* user, uint32_t size, void* data, int32_t, int32_t) {
  static_cast<std::string*>(user)->append(static_cast<const char*>(data), size);
  return VX_NORMAL_COMPLETION;
}

VX_STATUS give(int32_t, void* user, int32_t, uint32_t* size, void** data, int32_t* last) {
  auto& bytes = *static_cast<std::string*>(user);
  *size = static_cast<uint32_t>(bytes.size());
  *data = bytes.data();
  *last = 1;
  return VX_NORMAL_COMPLETION;
}

VX_STATUS take_value(int32_t id, uint32_t, void* user, uint32_t size, void* data, int32_t first,
                     int32_t last) {
  return take(id, user, size, data, first, last);
}

bool fine(std::initializer_list<VX_STATUS> all) {
  return std::all_of(all.begin(), all.end(), [](VX_STATUS status) { return status == VX_NORMAL_COMPLETION; });
}

// One round of work; false if anything went wrong.
bool one_round(uint32_t seed, std::string& bytes) {
  const auto syntax = static_cast<VX_TRANSFER_SYNTAX>(IMPLICIT_LITTLE_ENDIAN + seed % 5);
  const std::string patient = "PATIENT " + std::to_string(seed);
  const std::string pixels(4096, static_cast<char>(seed));
  int32_t id = -1, count = 0;
  uint32_t error_tag = 0;
  char text[64] = "";
  if (!fine({seed % 2 == 0 ? VX_Open_Message(&id, "STANDARD_CT", C_STORE_RQ) : VX_Open_Empty_Message(&id)}))
    return false;
  bool good = fine({VX_Set_Value_From_String(id, 0x00100020, patient.c_str()),
                    VX_Set_Value_From_UShortInt(id, 0x00280010, 512),
                    VX_Set_Value_From_String(id, 0x00080008, "ORIGINAL"),
                    VX_Set_Next_Value_From_String(id, 0x00080008, "PRIMARY"),
                    VX_Set_Value_From_Double(id, 0x00180050, 1.25),
                    VX_Set_Value_From_Buffer(id, 0x7FE00010, pixels.data(), 4096)});
  for (int i = 0; i < 4; ++i) {
    int32_t item = -1;
    good = good && fine({VX_Open_Empty_Item(&item), VX_Set_Value_From_String(item, 0x00081155, "1.2.3.4"),
                         VX_Set_Next_Value_From_Int(id, 0x00081140, item)});
  }
  bytes.clear();
  if (syntax != IMPLICIT_BIG_ENDIAN) {
    good = good && fine({VX_Message_To_Stream(id, 0x00080000, 0xFFFFFFFF, syntax, &bytes, take)});
    VX_Free_Message(&id);
    good = good && fine({VX_Open_Empty_Message(&id),
                         VX_Stream_To_Message(id, 0x00080000, 0xFFFFFFFF, syntax, &error_tag, &bytes, give),
                         VX_Get_Value_To_String(id, 0x00100020, sizeof text, text),
                         VX_Get_Value_Count(id, 0x00081140, &count)});
    good = good && patient == text && count == 4;
  }
  VX_Free_Message(&id);
  return good;
}

// Rounds a second of `threads` threads together.
double throughput(unsigned threads, double seconds, std::atomic<uint64_t>& failures) {
  std::atomic<uint64_t> rounds{0};
  std::atomic<bool> stop{false};
  std::vector<std::thread> workers;
  const auto start = std::chrono::steady_clock::now();
  for (unsigned t = 0; t < threads; ++t) {
    workers.emplace_back([&, t] {
      std::string bytes;
      uint64_t mine = 0;
      for (uint32_t seed = t * 1000003U; !stop.load(std::memory_order_relaxed); ++seed, ++mine) {
        if (!one_round(seed, bytes)) failures.fetch_add(1);
      }
      rounds.fetch_add(mine);
    });
  }
  std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
  stop = true;
  for (std::thread& worker : workers) worker.join();
  return static_cast<double>(rounds.load()) /
         std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

class Threads : public support::LibraryTest {
 protected:
  void SetUp() override {
    ASSERT_EQ(begin_with_full_data(), VX_NORMAL_COMPLETION);
    for (VX_LOG_KEY key = 0; key < VX_LOG_KEY_COUNT; ++key) VX_Set_Log_Destination(key, VX_LOG_OFF);
  }
};

TEST_F(Threads, SixteenWithObjectsOfTheirOwn) {
  std::atomic<uint64_t> failures{0};
  const double one = throughput(1, run_seconds(), failures);
  const double many = throughput(16, run_seconds(), failures);
  EXPECT_EQ(failures.load(), 0U);
  RecordProperty("ratio", std::to_string(many / one));
  std::printf("one thread: %.0f rounds a second; sixteen: %.0f, %.2f times as many on %u processors\n", one,
              many, many / one, std::thread::hardware_concurrency());
}

// Everything freed: the pools hold what they held after the first round, and no thread keeps slots for
// itself.
TEST_F(Threads, MemoryComesBack) {
  std::atomic<uint64_t> failures{0};
  throughput(4, 0.1, failures);
  std::string bytes;
  for (uint32_t seed = 0; seed < 20; ++seed) one_round(seed, bytes);
  const uint64_t before = support::memory().total;
  for (uint32_t seed = 0; seed < 2000; ++seed) ASSERT_TRUE(one_round(seed, bytes));
  EXPECT_EQ(support::memory().total, before);
  EXPECT_EQ(failures.load(), 0U);
  ASSERT_EQ(VX_Cleanup_Memory(0), VX_NORMAL_COMPLETION);
  EXPECT_LT(support::memory().total, before);
}

// A thread that has done its work may still be giving its slots back when the library goes.
TEST_F(Threads, OneEndsWhileTheLibraryGoes) {
  for (uint32_t i = 0; i < 50; ++i) {
    std::atomic<bool> done{false};
    std::thread worker([&] {
      std::string bytes;
      EXPECT_TRUE(one_round(i, bytes));
      done = true;
    });
    while (!done) std::this_thread::yield();
    EXPECT_EQ(VX_Library_Reset(), VX_NORMAL_COMPLETION);
    worker.join();
  }
}

// Readers of settings and log lines while others change them.
TEST_F(Threads, SettingsMayChangeMeanwhile) {
  std::atomic<bool> stop{false};
  std::vector<std::thread> workers;
  std::atomic<uint64_t> failures{0};
  for (int t = 0; t < 3; ++t) {
    workers.emplace_back([&, t] {
      char text[256];
      std::string bytes;
      for (uint32_t i = 0; !stop; ++i) {
        // A text of one letter, of any length: two letters would be two texts.
        const std::string name(1 + i % 200, static_cast<char>('a' + t));
        VX_Set_String_Config_Value(VX_CFG_INITIATOR_NAME, name.c_str());
        VX_Get_String_Config_Value(VX_CFG_INITIATOR_NAME, sizeof text, text);
        if (std::string(text).find_first_not_of(text[0]) != std::string::npos) failures.fetch_add(1);
        VX_Set_String_Config_Value(VX_CFG_DECODER_TAG_FILTER, i % 2 == 0 ? "" : "G0009,00080050");
        VX_Set_String_Config_Value(VX_CFG_NULL_TYPE3_VALIDATION, i % 2 == 0 ? "ERR" : "WARN");
        VX_Set_Int_Config_Value(VX_CFG_LARGE_DATA_SIZE, 200 + t);
        VX_Set_Bool_Config_Value(VX_CFG_REMOVE_PADDING_CHARS, static_cast<int32_t>(i % 2));
        VXlog(VX_LOG_WARNING, "line %u", i);
        if (!one_round(i, bytes)) failures.fetch_add(1);
      }
    });
  }
  workers.emplace_back([&] {
    for (uint32_t i = 0; !stop; ++i)
      VX_Set_String_Config_Value(VX_CFG_LARGE_DATA_STORE, i % 2 == 0 ? "MEM" : "FILE");
  });
  // What is read without a lock is one of the words all the time.
  const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(300);
  while (std::chrono::steady_clock::now() < end) {
    for (int i = 0; i < 1000; ++i) {
      const char first = vx::config_first_char(VX_CFG_LARGE_DATA_STORE);
      if (first != 'M' && first != 'F') failures.fetch_add(1);
    }
  }
  stop = true;
  for (std::thread& worker : workers) worker.join();
  EXPECT_EQ(failures.load(), 0U);
}

// Frames that are large enough for several threads each, side by side, through codecs and back.
TEST_F(Threads, FramesShareTheCores) {
  VX_Set_Int_Config_Value(VX_CFG_COMPRESSION_THREADS, 4);
  const pixels::Image image{.rows = 501, .columns = 700, .allocated = 16, .stored = 12};
  std::atomic<int> failures{0};
  const auto convert = [&](VX_TRANSFER_SYNTAX syntax, uint32_t seed) {
    std::string frame(image.frame_size(), '\0');
    for (std::size_t i = 0; i < frame.size(); i += 2) {
      frame[i] = static_cast<char>(i / (3 + seed) + i / 1400);
      frame[i + 1] = static_cast<char>(i / 60000 % 16);
    }
    int32_t plain = -1, packed = -1, back = -1;
    std::string result;
    bool good =
        fine({VX_Open_Empty_Message(&plain), VX_Set_Message_Transfer_Syntax(plain, EXPLICIT_LITTLE_ENDIAN)});
    pixels::describe(plain, image);
    good = good &&
           fine({VX_Set_Value_From_Buffer(plain, pixels::kPixelData, frame.data(),
                                          static_cast<uint32_t>(frame.size())),
                 VX_Duplicate_Message(plain, &packed, syntax, VX_General_Compressor, VX_General_Decompressor),
                 VX_Duplicate_Message(packed, &back, EXPLICIT_LITTLE_ENDIAN, nullptr, nullptr),
                 VX_Get_Value_To_Function(back, pixels::kPixelData, &result, take_value)});
    if (!good || result != frame) ++failures;
    for (int32_t* id : {&plain, &packed, &back}) VX_Free_Message(id);
  };
  std::vector<std::thread> workers;
  for (uint32_t t = 0; t < 3; ++t) {
    workers.emplace_back([&, t] {
      for (const VX_TRANSFER_SYNTAX syntax :
           {RLE, JPEG_LOSSLESS_HIER_14, JPEG_LS_LOSSLESS, JPEG_2000_LOSSLESS_ONLY, RLE})
        convert(syntax, t);
    });
  }
  for (std::thread& worker : workers) worker.join();
  EXPECT_EQ(failures, 0);
}

// Conversions while another thread turns Unicode on and off: each is right, or says that there is none.
TEST_F(Threads, UnicodeComesAndGoesMeanwhile) {
  std::atomic<bool> stop{false};
  std::atomic<uint64_t> failures{0};
  std::atomic<uint64_t> converted{0};
  if (VX_Enable_Unicode_Conversion(1) != VX_NORMAL_COMPLETION) GTEST_SKIP() << "no ICU";
  const auto convert = [&](const char* charset, const std::string& bytes, const std::u16string& text) {
    char16_t wide[64];
    char back[64];
    int32_t length = 0;
    VX_STATUS status = VX_Byte_To_Unicode(charset, bytes.c_str(), -1, 64, &length, wide);
    if (status == VX_CANNOT_COMPLY) return;
    if (status != VX_NORMAL_COMPLETION || text != std::u16string(wide, static_cast<std::size_t>(length)))
      failures.fetch_add(1);
    converted.fetch_add(1);
    const char* const names[] = {charset};
    status = VX_Unicode_To_Byte(names, 1, text.c_str(), -1, sizeof back, &length, back);
    if (status != VX_CANNOT_COMPLY &&
        (status != VX_NORMAL_COMPLETION || bytes != std::string(back, static_cast<std::size_t>(length))))
      failures.fetch_add(1);
  };
  std::vector<std::thread> workers;
  for (int t = 0; t < 3; ++t) {
    workers.emplace_back([&] {
      while (!stop) {
        convert("ISO_IR 144", "\xBB\xEE\xDA", u"Люк");
        convert("GB18030", "\xCD\xF5", u"王");
        convert("ISO 2022 IR 87", "\x1B$B;3ED\x1B(B", u"山田");
      }
    });
  }
  const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(300);
  for (int i = 0; std::chrono::steady_clock::now() < end; ++i) VX_Enable_Unicode_Conversion(i % 2);
  stop = true;
  for (std::thread& worker : workers) worker.join();
  EXPECT_EQ(failures.load(), 0U);
  EXPECT_GT(converted.load(), 0U);
  VX_Enable_Unicode_Conversion(1);
  VX_Enable_Unicode_Conversion(0);
}

}  // namespace
