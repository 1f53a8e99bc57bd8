// The demo app's executable. It is linked, wrapped and signed like a real app's but never run on
// a device. The 32-bit slice must need no relocations (the linker at hand cannot apply them), so
// whatever calls into libraries stands in the 64-bit part.
static int checksum(const char* text) {
  int sum = 0;
  while (*text != '\0') sum = sum * 31 + *text++;
  return sum;
}

#ifdef __LP64__
extern int puts(const char* text);
extern int ledgerEntryCount(void);

// Pointers in writable data: rebased at load, so the image carries rebase opcodes.
static const char* pages[] = {"cover", "contents", "index"};

// Runs before main: an initializer pointer that must still point at the same code after wrapping.
__attribute__((constructor)) static void openBook(void) { puts(pages[0]); }

int main(int argc, char** argv) {
  puts(pages[argc % 3]);
  return checksum(argv[0]) == ledgerEntryCount();
}
#else
int main(int argc, char** argv) { return argc > 0 ? checksum(argv[0]) : 1; }
#endif
