// Where code lies inside an app.
#pragma once

#include <string>
#include <vector>

#include "host/ErrorText.h"
#include "signing/FileSource.h"

namespace tovrek::device {

struct NestedCode {
  std::string path;
  std::string enclosing;      // the app or watch app that it lies in
  bool takesProfile = false;  // an extension, watch app or app clip
};

// All code below an app's folder, outer code first: bundles of kinds that hold code and have an
// executable, libraries, and other Mach-O files without an extension. Executables of bundles are
// not listed by themselves.
bool findNestedCode(const std::string& appPath, const signing::FileSource& files,
                    std::vector<NestedCode>* found, ErrorText* error);

}  // namespace tovrek::device
