// What only the operating system can tell.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "host/ErrorText.h"

namespace tovrek {

// The running program's file with links resolved, and its folder; empty when unknown.
const std::string& programPath();
const std::string& programFolder();
// For a copy of this process that goes on as another program: the file, with links resolved.
void setProgramPath(const std::string& path);

// $TMPDIR when it names a folder by an absolute path; else a folder of this user alone below /tmp,
// /var/tmp or the home folder, made with mode 0700 on first use; none when others have them all.
std::optional<std::string> systemTemporaryFolder(ErrorText* error = nullptr);

// A random version 4 UUID in upper case.
std::string uniqueString();

// The number of the user whose rights this process has, and of the process itself.
uint32_t userId();
int processId();

// Login name of the user, and the computer's name for people.
std::string userName();
std::string machineName();

// The link-layer address of "en0" as "%02X:..." (six bytes). Hosts without "en0" give that of
// their first interface that is up and no loopback, else any other, else zeros. Without any
// interface: none, and one of "if_nametoindex failure", "sysctl mgmtInfoBase failure",
// "buffer allocation failure", "sysctl msgBuffer failure".
std::optional<std::string> macAddress(ErrorText* error);

}  // namespace tovrek
