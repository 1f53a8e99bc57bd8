// A framework of the demo app that carries a framework of its own.
#ifdef __LP64__
extern int paperSheets(void);
int ledgerEntryCount(void) { return paperSheets() * 40; }
#else
int ledgerEntryCount(void) { return 4000; }
#endif
