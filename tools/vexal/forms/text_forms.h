// What the subcommands of the text forms share.
#pragma once

#include <cstdio>
#include <functional>
#include <string>
#include <string_view>

#include "base/args.h"
#include "files/files.h"
#include "text_documents.h"

namespace vexal {

// Takes a text less the blank that makes its length even, into a string or a stream.
struct TextSink {
  std::string* text = nullptr;
  std::FILE* stream = nullptr;
  bool blank = false;  // the last byte that came, which is one of the text if another follows

  static VX_STATUS take(int32_t id, void* user, uint32_t size, void* data, int32_t first, int32_t last);

 private:
  bool put(std::string_view bytes) const;
};

// One form, both ways.
struct TextForm {
  std::function<VX_STATUS(int32_t id, TextSink& sink)> write;
  // The status of the library; an error text of the program's own in `problem`.
  std::function<VX_STATUS(int32_t id, TextDocuments& text, std::string& problem)> read;
  const char* end = "";  // behind each text
  TextDocuments::Kind documents = TextDocuments::Kind::One;
  // Works on the whole text of a file before it goes out: an error text, empty on success.
  std::function<std::string(const DicomFile& file, std::string& text)> finish{};
};

// The run of a subcommand: files to standard output, or with --back one text file to a DICOM file, or to a
// folder of them, in explicit VR little endian unless the text says otherwise. What is lost on the way is
// told, and ends in kFindings.
int run_text_form(const Args& args, const char* name, const TextForm& form);

}  // namespace vexal
