#include "programs/mend-xml/MendXml.h"

#include "host/files.h"
#include "programs/mend-xml/recovery.h"

namespace tovrek::mend_xml {
namespace {

int refused(const Streams& streams, const std::string& reason) {
  streams.error("mend-xml: " + reason + "\n");
  return 1;
}

}  // namespace

int run(const Arguments& arguments, const Streams& streams) {
  if (!arguments.words.empty()) {
    streams.error("usage: mend-xml < damaged.xml > mended.xml\n");
    return 2;
  }
  std::string bytes;
  ErrorText error;
  if (!readFile("/dev/stdin", &bytes, &error)) return refused(streams, error.text());
  const auto document = recoveredXml(bytes, &error);
  if (!document) return refused(streams, error.text());
  streams.out(*document);
  return outputFailed() ? refused(streams, "standard output cannot be written") : 0;
}

}  // namespace tovrek::mend_xml
