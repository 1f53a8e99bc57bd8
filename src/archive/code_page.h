// The code page in which DOS and its successors store names.
#pragma once

#include <string>
#include <string_view>

namespace tovrek::archive {

// The text in UTF-8. Every byte of code page 437 stands for a character.
std::string fromCodePage437(std::string_view bytes);

}  // namespace tovrek::archive
