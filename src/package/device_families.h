// On which kinds of devices an app runs.
#pragma once

#include <string>

#include "formats/PlistValue.h"
#include "log/WrapperLogger.h"

namespace tovrek {

// The device families that an app excludes, from those it supports; "" for none.
std::string getExcludedDevicesStringFromDevicesArray(const PlistValue* devices,
                                                     const WrapperLogger& logger);

}  // namespace tovrek
