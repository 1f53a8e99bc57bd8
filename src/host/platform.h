// What Linux and macOS do each in its own way: platform_linux.cpp and platform_macos.cpp, of which
// the build takes one. Nothing else asks which system this is.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "host/confinement.h"

struct sockaddr;
struct stat;

namespace tovrek {

struct FilePart;

// --- Descriptors. Children inherit none of those that are made here. ---

bool openPipe(int (&ends)[2]);
// Two connected datagram sockets.
bool openSocketPair(int (&ends)[2]);
// Sends a datagram. Never waits, and never ends the program where nobody is left to take it.
bool sendQuietly(int socket, const void* message, size_t size);
// Keeps all descriptors from this one on from children, as far as the system can do that at once.
void keepFromChildren(int firstDescriptor);
// Closes all descriptors from this one on.
void closeFrom(int firstDescriptor);

// --- Files. False leaves the reason in errno. ---

// Flags of open() for a folder that is only a place for further names.
int placeFlags();
// Opens what is below the folder, passing no link, in one call. False where the system has none for
// that; else `fd` has the descriptor, or -1.
bool openInOneCall(int root, const char* below, int flags, int* fd);
// The path with all links resolved, where the system tells it in fewer calls than realpath(), which
// makes one for each folder on the way; none where it does not.
std::optional<std::string> resolvedAtOnce(const std::string& path);
// None where the file system has no call for it.
std::optional<bool> renameExclusively(int fromFolder, const char* from, int toFolder,
                                      const char* to);
// Copies what is left of one file to another by the system's own means; none where they are of no
// use for these two.
std::optional<bool> copyBySystem(int from, int to);
// The same for a part, which moves on by what was copied; none also where the first file ends
// before it.
std::optional<bool> copyPartBySystem(int from, FilePart* part, int to);
// When anything about the file was changed last, in nanoseconds since 1970. Nobody can set it.
int64_t changeTime(const struct stat& info);
// Whether a file moved there is as a new one would be: its group may come from the folder, and
// access lists and security labels, which are extended attributes, too.
bool isSameAsNewIn(const std::string& folder, const std::string& file);
// Makes the empty file so long, with room on the disk for all of it.
bool reserveSpace(int fd, uint64_t size);
// Has the bytes on their way to the disk, if the system takes hints.
void startWriting(int fd, uint64_t offset, uint64_t size);
// Reads the pages ahead, if the system takes hints. `address` is that of a page.
void readPages(void* address, size_t size);

// --- This process and its host ---

// The path that this program was started by, links and all; empty when it cannot be found.
std::string startedPath();
// The six bytes of a link-layer address; none for other addresses.
std::optional<std::vector<unsigned char>> linkAddress(const sockaddr* address);
// A descriptor that poll() finds readable when the child has ended; -1 where the system has none.
int watchChild(pid_t child);
// A fork() that takes no locks, where the system has one: for signal handlers.
pid_t forkInHandler();
// The name that tools show for this process.
void setProcessName(const char* name);
// Confines this process and its children to the places. False where the system cannot do that.
bool restrictTo(const NeededPlaces& places);

}  // namespace tovrek
