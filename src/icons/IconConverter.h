// Turns platform-optimised PNG icons (CgBI: raw deflate, BGR(A), premultiplied alpha) into
// standard PNG files (ISO/IEC 15948).
#pragma once

#include <cstdint>
#include <cstdio>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/ErrorText.h"
#include "icons/PngChunk.h"
#include "icons/PngHeader.h"

namespace tovrek {

// The converter's whole state. One object serves a run, so that its settings last from icon to
// icon.
//
// Icons come from apps of unknown origin: a file that needs more than 512 MB to convert, or whose
// chunks and header contradict the data, is refused with one message.
class IconConverter {
 public:
  struct Settings {
    bool updateAlpha = true;     // undo the premultiplication
    bool rewrite = false;        // write the result
    bool processAnyway = false;  // take standard files too
    bool listChunks = false;
    bool verbose = false;
    bool debug = false;
    std::string outputDirectory;  // empty: beside the input, replacing it when there is no suffix
    std::string suffix;           // in front of ".png" of the result's name
  };
  // What process() answers.
  static constexpr int kFailed = 0;
  static constexpr int kConverted = 1;
  static constexpr int kNotOptimised = 16;

  Settings& settings() { return settings_; }

  // Converts one file as the settings say and prints what went wrong. Results appear whole or not
  // at all. Images other than 8-bit RGB and RGBA keep their image data and lose the CgBI chunk.
  int process(const std::string& path);

  // Normalises `source` into the folder, under its own name. A file that is not optimised, or
  // whose two names differ, is also copied as it stands to folder/`outputName`; the answer is
  // then true whatever the copy did. Else it tells whether the conversion succeeded.
  bool ConvertCopyIconFile(const std::string& outputDirectory, const std::string& source,
                           const std::string& outputName, const std::string& expectedName);

  // Writes the standard form of `source` to `destination`, a plain copy where it has that form.
  bool makeStandardIcon(const std::string& source, const std::string& destination);

  // The standard form of an optimised file of at most `mostPixels`, without a word and without a
  // file. None for what is not optimised, is larger or is damaged.
  std::optional<std::string> standardForm(std::string_view png, uint64_t mostPixels);

 private:
  // The run of IDAT chunks, as positions in chunks_.
  struct ImageRun {
    size_t first = 0;
    size_t end = 0;
  };

  int convert(const std::string& path, const std::string& target);
  bool readChunks(const std::string& path, ErrorText* error);
  bool readChunks(std::FILE* stream, uint64_t length, ErrorText* error);
  int init_chunk(std::FILE* stream, uint64_t fileLength);
  void reset_chunks();
  void list() const;

  bool isOptimised() const { return !chunks_.empty() && chunks_.front().type() == "CgBI"; }
  bool isWhole() const { return !chunks_.empty() && chunks_.back().type() == "IEND"; }
  std::optional<PngHeader> header(ErrorText* error) const;
  std::optional<ImageRun> imageRun(ErrorText* error) const;
  // The whole file, made standard.
  std::optional<std::string> standardBytes(const PngHeader& header, ErrorText* error) const;
  // The image data made standard and packed again.
  std::optional<std::string> recode(const PngHeader& header, ImageRun run, ErrorText* error) const;
  void makeStandard(const PngHeader& header, std::vector<uint8_t>& bytes) const;
  std::string outputPath(const std::string& path) const;
  // The result's bytes, with `imageData` in place of the run when given.
  std::string assemble(ImageRun run, const std::optional<std::string>& imageData) const;

  Settings settings_;
  std::vector<PngChunk> chunks_;
  uint64_t bytesHeld_ = 0;     // by chunks_
  bool dataAfterEnd_ = false;  // behind IEND
};

// Copies a file byte for byte, over one that stands there; the target appears whole or not at
// all. Prints what went wrong.
bool CopyStandardIconFile(const std::string& source, const std::string& destination);

}  // namespace tovrek
