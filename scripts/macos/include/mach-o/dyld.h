// Of the loader of macOS what this project calls.
#pragma once

#include <stdint.h>

// Writes the path of the program with its final zero; -1, and the size that it takes, where the
// buffer is too small.
extern "C" int _NSGetExecutablePath(char* buffer, uint32_t* size);
