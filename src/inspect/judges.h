// Judging what was read. Each judge adds to the findings of the subject.
#pragma once

#include <string>

#include "inspect/model.h"

namespace tovrek::inspect {

struct Rules {
  double now = 0;     // seconds since 1970
  int soonDays = 30;  // what ends within as many days is told
};

// An app in a tree. Of an archive every file is read, as one that cannot be unpacked makes it
// worthless.
void judgeApp(const Tree& tree, const std::string& folder, const std::string& pathOnDisk,
              const Rules& rules, Subject* subject);
// The package against the app inside.
void judgePackage(const Tree& tree, const Tree* appTree, const std::string& appFolder,
                  Subject* subject);
// A single Mach-O file.
void judgeCodeFile(const std::string& path, const Rules& rules, Subject* subject);
// Profiles and certificates that are given by themselves.
void judgeCredentials(const Rules& rules, Subject* subject);

// What ends soon, in a profile and in certificates that signed something.
void judgeExpiry(const ProfileDetails& profile, const Rules& rules, Findings* findings);
void judgeExpiry(const Certificate& certificate, const std::string& place, const Rules& rules,
                 Findings* findings);

}  // namespace tovrek::inspect
