// Apart from the processor, as no program asks this.
#include "host/paths.h"
#include "programs/tovrek/CommandLineProcessor.h"

namespace tovrek {

bool CommandLineProcessor::checkForCommandParam(std::string_view text) {
  for (const char* word : {"Wrap", "Sign", "GetInfo", "SetInfo"}) {
    if (equalsIgnoringCase(text, word)) return true;
  }
  return false;
}

}  // namespace tovrek
