// How this process deals with its memory.
#pragma once

namespace tovrek {

// For a program that allocates and frees large buffers again and again: memory that goes back to
// the system each time has to be fetched and cleared anew, page by page.
void keepFreedMemory();

}  // namespace tovrek
