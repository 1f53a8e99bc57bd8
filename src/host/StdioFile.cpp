#include "host/StdioFile.h"

#include "host/InputFile.h"
#include "host/file_io.h"

namespace tovrek {

StdioFile openRegularFile(const std::string& path, ErrorText* error) {
  InputFile input;
  if (!input.openRegular(path, error)) return nullptr;
  StdioFile file(::fdopen(input.descriptor(), "rb"));
  if (file == nullptr) {
    failWithErrno(error);
    return nullptr;
  }
  input.release();
  return file;
}

StdioFile openBytes(std::string_view bytes) {
  // Opened for reading, so nothing is written to them.
  return StdioFile(::fmemopen(const_cast<char*>(bytes.data()), bytes.size(), "rb"));
}

bool readInPieces(const std::string& path, const std::function<std::span<char>()>& room,
                  const std::function<void(size_t)>& took, ErrorText* error) {
  InputFile input;
  if (!input.openRegular(path, error)) return false;
  for (;;) {
    const auto got = input.read(room(), error);
    if (!got) return false;
    if (*got == 0) return true;
    took(*got);
  }
}

}  // namespace tovrek
