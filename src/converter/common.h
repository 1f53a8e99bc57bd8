// What the files of the converter share.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "host/ErrorText.h"
#include "log/WrapperLogger.h"

namespace tovrek::converter {

// The logger of the pipeline, module "ToolkitLib".
WrapperLogger& logger();

// The value for use in a message; "(null)" for none.
std::string shown(const std::optional<std::string>& value);
// None, or of no letters.
bool isEmpty(const std::optional<std::string>& value);

// The team's part of an application identifier: what stands before the first "."; all of it
// without one.
std::string prefixOf(std::string_view applicationIdentifier);
// `from` must have letters.
std::string replaceAll(std::string_view text, std::string_view from, std::string_view to);

// Copies; a failure gives "Failed to copy file from ... to ... Error:...".
bool copyOrFail(const std::string& from, const std::string& to, ErrorText* error);
// The same for a file of the scratch folder that has no further use there.
bool handOverOrFail(const std::string& from, const std::string& to, ErrorText* error);
// Removes what stands at `to` first, link or not, and ignores when that fails.
bool replaceByCopy(const std::string& from, const std::string& to, ErrorText* error);

// Whether `path`, all links resolved, is `folder` or lies below it. False for a missing item.
bool liesInside(const std::string& path, const std::string& folder);
// An archive is made by strangers, and most of what the pipeline does to an app follows links.
// Apps with a link that leads out of them are not installable anyway. Answers the first such
// link, relative to the folder.
std::optional<std::string> linkLeadingOutside(const std::string& folder);

}  // namespace tovrek::converter
