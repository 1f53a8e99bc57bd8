// The demo's SDK app: built against the management SDK, whose framework it links and embeds.
// Like the other demo app it is linked and signed but never run; see there for the two halves.
#ifdef __LP64__
extern int OrvSingleSignOn(const char* account);

static const char* accounts[] = {"surveyor", "guest"};

int main(int argc, char** argv) { return OrvSingleSignOn(accounts[argc % 2]) + argv[0][0]; }
#else
int main(int argc, char** argv) { return argc > 0 ? argv[0][0] : 1; }
#endif

#ifdef WITH_FINGERPRINT
// What a crypto module with a fingerprint has for the fingerprint tool to find.
__attribute__((visibility("default"), used)) int FINGERPRINT_premain(void) { return 1; }
#endif
