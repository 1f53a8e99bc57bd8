// The framework inside the other framework of the demo app.
int paperSheets(void) { return 100; }
