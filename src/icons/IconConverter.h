// Turns platform-optimised PNG icons (CgBI: raw deflate, BGR(A), premultiplied alpha) into
// standard PNG files (ISO/IEC 15948).
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "icons/PngChunk.h"

namespace tovrek {

// The converter's whole state. One object serves the process, see shared(); tests make their own.
class IconConverter {
 public:
  struct Settings {
    bool updateAlpha = true;     // undo the premultiplication
    bool rewrite = false;        // write the result
    bool processAnyway = false;  // take standard files too
    bool listChunks = false;
    bool verbose = false;
    bool debug = false;
    std::string outputDirectory;  // empty: the result replaces the input (less the suffix)
    std::string suffix;           // in front of ".png" of the result's name
  };
  // What process() answers.
  static constexpr int kFailed = 0;
  static constexpr int kConverted = 1;
  static constexpr int kNotOptimised = 16;

  static IconConverter& shared();

  Settings& settings() { return settings_; }

  // Converts one file as the settings say and prints what went wrong. Results appear whole or not
  // at all. Images other than 8-bit RGB and RGBA keep their pixel data and lose the CgBI chunk.
  int process(const std::string& path);

  // Normalises `source` into the folder, under its own name. A file that is not optimised, or
  // whose two names differ, is also copied as it stands to folder/`outputName`; the answer is
  // then true whatever the copy did. Else it tells whether the conversion succeeded.
  bool ConvertCopyIconFile(const std::string& outputDirectory, const std::string& source,
                           const std::string& outputName, const std::string& expectedName);

 private:
  int32_t init_chunk(std::span<const std::byte> file, size_t* position);
  void reset_chunks();

  Settings settings_;
  std::vector<PngChunk> chunks_;
};

// The shared converter's operation.
bool ConvertCopyIconFile(const std::string& outputDirectory, const std::string& source,
                         const std::string& outputName, const std::string& expectedName);

// Copies a file byte for byte; the target appears whole or not at all. Prints what went wrong.
bool CopyStandardIconFile(const std::string& source, const std::string& destination);

}  // namespace tovrek
