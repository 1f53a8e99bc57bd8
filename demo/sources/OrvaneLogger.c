// Stands in for the logger framework of the management library.
#ifdef __LP64__
extern int puts(const char* text);
void orvaneLoggerWrite(const char* text) { puts(text); }
#else
int orvaneLoggerLevel(void) { return 2; }
#endif
