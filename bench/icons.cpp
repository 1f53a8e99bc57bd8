// Measures the icon conversion on RGBA images of 1024x1024: megapixels per second for each row
// filter, next to libpng decoding and encoding the same image with the same filter at the same
// compression level in the same run, and where the time goes. Files lie in memory (/dev/shm).
#include <fmt/format.h>
#include <png.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <functional>
#include <limits>
#include <vector>

#include "host/files.h"
#include "icons/IconConverter.h"
#include "icons/image_data.h"
#include "icons/pixel_rows.h"
#include "tests/support/PngBuilder.h"

namespace tovrek {
namespace {

constexpr uint32_t kSide = 1024;
constexpr int kRounds = 15;
constexpr int kLevel = 1;

[[noreturn]] void stop(const char* text) {
  fmt::print(stderr, "icons: {}\n", text);
  std::exit(1);
}

// Processor time, which other programs disturb least: nothing here waits.
double seconds(const std::function<void()>& work) {
  const auto now = [] {
    timespec time{};
    ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
  };
  const double start = now();
  work();
  return now() - start;
}

double megapixelsPerSecond(double time) {
  return kSide * kSide / time / 1e6;
}

// Gradients with a little noise inside a disc whose rim and lower part are translucent.
test::Picture drawnIcon() {
  test::Picture picture = test::noisePicture(kSide, kSide, 4);
  const int radius = kSide / 2;
  for (int y = 0; y < static_cast<int>(kSide); y++) {
    for (int x = 0; x < static_cast<int>(kSide); x++) {
      uint8_t* pixel = &picture.bytes[(size_t{kSide} * y + x) * 4];
      const int dx = x - radius, dy = y - radius;
      const int toRim = (radius * radius - dx * dx - dy * dy) / 64;
      const int alpha = std::clamp(toRim, 0, y < radius * 3 / 2 ? 255 : 180);
      const int noise = pixel[0] % 4;
      pixel[0] = static_cast<uint8_t>(x / 5 + noise);
      pixel[1] = static_cast<uint8_t>(y / 5 + noise);
      pixel[2] = static_cast<uint8_t>((x + y) / 10 + noise);
      pixel[3] = static_cast<uint8_t>(alpha);
    }
  }
  return picture;
}

// --- libpng ---

// `filters`: libpng's mask of the filters that the encoder may choose from.
void recodeWithLibpng(const std::string& source, const std::string& target, int filters) {
  std::FILE* in = std::fopen(source.c_str(), "rb");
  std::FILE* out = std::fopen(target.c_str(), "wb");
  if (in == nullptr || out == nullptr) stop("cannot open the files of the comparison");
  png_structp reader = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
  png_infop info = png_create_info_struct(reader);
  png_init_io(reader, in);
  png_read_png(reader, info, PNG_TRANSFORM_IDENTITY, nullptr);

  png_structp writer = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
  png_init_io(writer, out);
  png_set_compression_level(writer, kLevel);
  png_set_filter(writer, PNG_FILTER_TYPE_BASE, filters);
  png_write_png(writer, info, PNG_TRANSFORM_IDENTITY, nullptr);
  png_destroy_write_struct(&writer, nullptr);
  png_destroy_read_struct(&reader, &info, nullptr);
  if (std::fclose(in) != 0 || std::fclose(out) != 0) stop("cannot write the comparison");
}

// --- The parts of a conversion ---

class Parts {
 public:
  void time(const char* name, const std::function<void()>& work) {
    const double time = seconds(work);
    const auto known = std::find_if(parts_.begin(), parts_.end(),
                                    [name](const auto& part) { return part.first == name; });
    if (known == parts_.end()) {
      parts_.emplace_back(name, time);
    } else {
      known->second = std::min(known->second, time);
    }
  }
  void print() const {
    for (const auto& [name, time] : parts_) fmt::print("    {:<16} {:6.2f} ms\n", name, time * 1e3);
  }

 private:
  std::vector<std::pair<std::string, double>> parts_;  // in order, each with its best time
};

void printParts(const test::Picture& picture, int filter) {
  test::PngForm form;
  form.filter = filter;
  const std::string file = test::pngFile(picture, form);
  // The only image chunk stands between a head of known size and the end chunk.
  const size_t head = test::pngSignature().size() + test::cgbiChunk().size() +
                      test::pngHeaderChunk(1, 1).size() + 8;
  const std::string_view packed = std::string_view(file).substr(head, file.size() - head - 16);
  constexpr size_t kLine = size_t{kSide} * 4;
  ErrorText error;
  Parts parts;
  for (int round = 0; round < kRounds; round++) {
    std::optional<std::vector<uint8_t>> rows;
    parts.time("inflate", [&] {
      rows = inflateImageData(packed, DeflateWrapping::kRaw, kSide * (kLine + 1), &error);
    });
    if (!rows) stop("cannot inflate");
    const PixelRows pixels{*rows, kLine, 4};
    parts.time("swap", [&] { swapRedAndBlue(pixels); });
    parts.time("remove filters", [&] { removeRowFilters(pixels); });
    parts.time("divide by alpha", [&] { demultiplyAlpha(pixels); });
    parts.time("apply filters", [&] { applyRowFilters(pixels); });
    parts.time("deflate", [&] {
      if (!deflateImageData(*rows, &error)) stop("cannot deflate");
    });
  }
  parts.print();
}

struct FilterCase {
  const char* name;
  int type;      // of all rows, as the format numbers it; -1: every type in turn
  int inLibpng;  // the same for libpng's encoder
};

void measure(const FilterCase& filter, const test::Picture& picture, const std::string& folder) {
  test::PngForm form;
  form.filter = filter.type;
  const std::string source = folder + "/icon.png", own = folder + "/icon-own.png";
  if (!writeFileAtomically(source, test::pngFile(picture, form))) stop("cannot write the icon");
  IconConverter converter;
  converter.settings().rewrite = true;
  converter.settings().suffix = "-own";
  // The converter tells standard output what it writes.
  std::fflush(stdout);
  const int terminal = ::dup(STDOUT_FILENO);
  if (std::freopen("/dev/null", "w", stdout) == nullptr) stop("cannot open /dev/null");
  const std::string theirs = folder + "/icon-libpng.png";
  double ownTime = std::numeric_limits<double>::max(), theirTime = ownTime;
  for (int round = 0; round < kRounds; round++) {
    ownTime = std::min(ownTime, seconds([&] {
                         if (converter.process(source) != IconConverter::kConverted) {
                           stop("the conversion failed");
                         }
                       }));
    theirTime =
        std::min(theirTime, seconds([&] { recodeWithLibpng(own, theirs, filter.inLibpng); }));
  }
  std::fflush(stdout);
  ::dup2(terminal, STDOUT_FILENO);
  ::close(terminal);
  fmt::print("{:<8} {:8.1f} {:8.1f} {:6.2f} {:9} {:9}\n", filter.name, megapixelsPerSecond(ownTime),
             megapixelsPerSecond(theirTime), theirTime / ownTime, fileSize(own).value_or(0),
             fileSize(theirs).value_or(0));
}

int run() {
  char folder[] = "/dev/shm/tovrek-bench-XXXXXX";
  if (mkdtemp(folder) == nullptr) stop("cannot make a folder in /dev/shm");
  const test::Picture picture = drawnIcon();
  fmt::print("{:<8} {:>8} {:>8} {:>6} {:>9} {:>9}\n", "filter", "MP/s", "libpng", "ratio", "bytes",
             "libpng");
  for (const FilterCase& filter : {FilterCase{"none", 0, PNG_FILTER_NONE},
                                   {"sub", 1, PNG_FILTER_SUB},
                                   {"up", 2, PNG_FILTER_UP},
                                   {"average", 3, PNG_FILTER_AVG},
                                   {"paeth", 4, PNG_FILTER_PAETH},
                                   {"mixed", -1, PNG_ALL_FILTERS}}) {
    measure(filter, picture, folder);
  }
  for (const int filter : {1, 2, 3, 4}) {
    fmt::print("parts with filter {}:\n", filter);
    printParts(picture, filter);
  }
  removeItem(folder);
  return 0;
}

}  // namespace
}  // namespace tovrek

int main() {
  return tovrek::run();
}
