// Which of Apple's systems it is, for headers of libraries.
#pragma once

#define TARGET_OS_MAC 1
#define TARGET_OS_OSX 1
#define TARGET_OS_IPHONE 0
