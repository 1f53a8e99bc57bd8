// Stands in for the management library: it has the library's names and places, and does nothing
// but say that it was loaded.
#ifdef __LP64__
extern void orvaneLoggerWrite(const char* text);
__attribute__((constructor)) static void load(void) { orvaneLoggerWrite("OrvaneDylib loaded"); }
#endif
int orvaneDylibVersion(void) { return ORVANE_DYLIB_VERSION; }
