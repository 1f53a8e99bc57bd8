// The demo app's watch app.
int main(void) { return 0; }
