// The demo app's extension.
extern int puts(const char* text);
int main(void) { return puts("share") < 0; }
