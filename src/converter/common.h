// What the files of the converter share.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "host/ErrorText.h"
#include "host/delivery.h"
#include "package/application_identifier.h"
#include "package/value_text.h"

namespace tovrek::converter {

// The value for use in a message; "(null)" for none.
std::string shown(const std::optional<std::string>& value);
// None, or of no letters.
bool isEmpty(const std::optional<std::string>& value);

// `text` for use between double quote characters of a shell command line.
std::string escapeExecutableString(std::string_view text);

// Fails as a file that a step needs and that is not there.
bool failMissingFile(ErrorText* error, std::string_view path);
// Copies; a failure gives "Failed to copy file from ... to ... Error:...".
bool copyOrFail(const std::string& from, const std::string& to, ErrorText* error);
// The same with deliverFile(), which replaces a file that stands there.
bool deliverOrFail(const std::string& from, const std::string& to, Source source, ErrorText* error);
// Removes what stands at `to` first, link or not, and ignores when that fails.
bool replaceByCopy(const std::string& from, const std::string& to, ErrorText* error);
// Fails with that text of a copy.
bool failToCopy(const std::string& from, const std::string& to, const ErrorText& reason,
                ErrorText* error);
// Fails with the text for what cannot be removed, whatever it is.
bool failToRemove(const ErrorText& reason, ErrorText* error);

// Whether `path`, all links resolved, is `folder` or lies below it. False for a missing item.
bool liesInside(const std::string& path, const std::string& folder);

}  // namespace tovrek::converter
