// Rules over path texts. Paths are byte strings; nothing here touches the file system except
// where a comment says so. std::filesystem is not used for these: it differs from the rules
// below on "a.app/", "a." and ".ipa".
#pragma once

#include <string>
#include <string_view>

namespace tovrek {

// Expands a leading "~" or "~user", squeezes "//" and "/./", drops a trailing "/", and resolves
// ".." in absolute paths only (relative ones keep it, as it may cross a link).
std::string standardizePath(std::string_view path);

// The last component, trailing slashes ignored; "/" for the root, empty for an empty path.
std::string lastPathComponent(std::string_view path);

// The path without its last component: "/a" for "/a/b", "/" for "/a", empty for "a".
std::string deletingLastPathComponent(std::string_view path);

// The folder that holds `path`: as deletingLastPathComponent, with "." where that is empty.
std::string containingFolder(std::string_view path);

// What follows the last "." of the last component; empty for "a", "a." and ".ipa".
std::string pathExtension(std::string_view path);

// The path without the extension and its "."; unchanged when there is no extension.
std::string deletingPathExtension(std::string_view path);

// Joins with exactly one "/"; an empty side adds none.
std::string joinPath(std::string_view base, std::string_view component);

// ASCII-only comparison and folding, the same in every locale.
bool equalsIgnoringCase(std::string_view a, std::string_view b);
std::string toLowerAscii(std::string_view text);
bool containsIgnoringCase(std::string_view text, std::string_view part);

// Drops white space and line ends at both ends.
std::string trimmed(std::string_view text);

}  // namespace tovrek
