#include "programs/batch/batch_program.h"

#include <fmt/format.h>

#include "batch/Progress.h"
#include "batch/renewal.h"
#include "host/terminal.h"
#include "programs/batch/Options.h"

namespace tovrek::batch {
namespace {

constexpr const char* kUsage =
    "usage: Batch run JOBS [--jobs N] [--resume] [--state FOLDER] [--report FOLDER]\n"
    "                      [--engine local|parallel|slurm] [--hosts FILE [--remote PROGRAM]]\n"
    "                      [--timeout SECONDS]\n"
    "       Batch run JOBS --index N [--state FOLDER] [--timeout SECONDS]\n"
    "       Batch renew FOLDER --cert NAME|SHA1 --profiles FOLDER --out FOLDER [--within DAYS]\n"
    "                      [--table FILE] [--keychain PATH] [--yes [options of run]]\n"
    "       Batch check JOBS\n"
    "       Batch --version\n";

}  // namespace

int run(const Arguments& arguments, const Streams& streams) {
  ErrorText reason;
  const auto options = parseOptions(arguments.words, &reason);
  if (!options) {
    streams.error(fmt::format("Batch: {}\n{}", oneLine(reason.text()), kUsage));
    return kCannotRun;
  }
  const Console console{streams, outputIsTerminal()};
  switch (options->verb) {
    case Verb::kRun:
      return runTable(options->run, console);
    case Verb::kCheck:
      return checkTable(options->run.table, console);
    case Verb::kRenew:
      return renew({*options->folder, *options->certificate, *options->profiles, *options->output,
                    options->keychain, options->within},
                   options->run, options->yes, console);
    case Verb::kHelp:
      break;
  }
  streams.out(kUsage);
  return kAllDone;
}

}  // namespace tovrek::batch
