// The framework of the management SDK, as far as an app needs it to link.
__attribute__((visibility("default"))) int OrvSingleSignOn(const char* account) {
  return account[0] != '\0';
}
