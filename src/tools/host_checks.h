// What the host must offer before any argument is looked at: its version, and the developer tools.
#pragma once

#include <functional>
#include <string>

namespace tovrek {

// Whether the host's version is 10.9 (10.15) or later; an unknown version is not.
bool verifyIfOSVerisonIsMavericksandAbove();
bool verifyIfOSVerisonIsCatalinaOrAbove();

// Whether nm, otool and codesign are there.
bool verifyIfDependentCommandLineToolsExist();
// Runs the shell command line. True for status 0, and for any other with output.
bool executeInstallCommandLineTools(const std::string& commandLine);

using ToolsCompletion = std::function<void(bool installed, bool mayInstall)>;
// Whether the host has the developer tools; the completion, when given, is told first.
bool verifyCommandLineToolisInstalled(const ToolsCompletion& completion);
// The same, but a receipt of their installation will do.
bool isCmdLineToolInstalled();
// Starts the installation of the developer tools; always true.
bool installCommandLineTools();

}  // namespace tovrek
