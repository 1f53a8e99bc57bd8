// Questions about an executable, put to otool by way of the shell.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "log/WrapperLogger.h"
#include "package/AppBundle.h"
#include "tools/tool_run.h"

namespace tovrek::converter {

// What an app linked with our SDK carries among its Objective-C selectors.
inline constexpr char kLaunchHook[] = "orvApplication:willFinishLaunchingWithOptions:";
inline constexpr char kLinkedAgainstSdk[] =
    "ERROR: This app is already linked against the TelvoSDK, and cannot be wrapped.";

// "otool <option> <executable> <rest>", with the path made safe for the shell.
std::string otoolCommand(std::string_view option, const AppBundle& bundle,
                         std::string_view rest = {});
// Runs such a command line, with the executable's path on the console first.
std::optional<Outcome> runOnExecutable(const WrapperLogger& log, const AppBundle& bundle,
                                       const std::string& commandLine);
// Whether the tool answered, be it with a failing status. One that could not be started or was
// ended by a signal, the shell included, did not: the slot then has "Failed to execute <tag>...".
bool gaveAnswer(const std::optional<Outcome>& outcome, std::string_view tag, ErrorText* error);
// The output of a tool that succeeded and said something; none otherwise.
std::optional<std::string> successfulOutput(const std::optional<Outcome>& outcome);

}  // namespace tovrek::converter
