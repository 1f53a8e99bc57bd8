// What is printed after a command line that was not understood.
#include <fmt/format.h>

#include "log/SystemLog.h"
#include "programs/tovrek/CommandLineProcessor.h"
#include "programs/tovrek/help.h"

namespace tovrek {

void CommandLineProcessor::printCommandUsage() const {
  // Of several words, the first in this order.
  constexpr std::pair<CommandWord, std::string (*)()> kHelp[] = {
      {CommandWord::kWrap, wrapHelp},
      {CommandWord::kSetInfo, setInfoHelp},
      {CommandWord::kSign, signHelp},
      {CommandWord::kSdkPrep, sdkPrepHelp}};
  for (const auto& [word, help] : kHelp) {
    if (words_.contains(word)) return systemLog("\n" + help(), LineBreaks::kKept);
  }
  printUsage();
}

void CommandLineProcessor::printUsage() {
  printOut("\n ------------------------------------------------------------------ \n");
  printOut(
      "Usage: Tovrek [ Wrap | Sign | SetInfo | GetInfo ] -Cert CERTIFICATE -Profile PROFILE -in "
      "INPUTFILE -out OUTPUTFILE -appDesc DESCRIPTION -logFile LOGFILE -logWriteLevel LEVEL "
      "-logDisplayLevel LEVEL\n\n");
  printOut(fmt::format("Full help of Wrap script, with example \n{}", wrapHelp()));
  printOut("\nExample script for updating WEX package for ISV: \n");
  printOut(
      "    Tovrek SetInfo -in \"/Users/admin/Apps/input.wex\" -out "
      "\"/Users/admin/Apps/converted.wex\"  -storeURL "
      "\"https://apps.apple.com/us/app/sample/id123456789\"\n");
  printOut("\nExample script for resigning an IPA package: \n");
  printOut(
      "    Tovrek Sign -Cert \"iPhone Developer: Jane Doe (ABCDE12345)\" -Profile "
      "\"team_profile.mobileprovision\" -in \"/Users/admin/Apps/input.ipa\" -out "
      "\"/Users/admin/Apps/resigned.ipa\"\n");
  printOut("------------------------------------------------------------------ \n\n");
}

}  // namespace tovrek
