// Fontconfig keeps a cache it never frees; a sanitizer build would otherwise report it as a leak of
// every program that lays out text with Qt. Harmless outside a sanitizer build.
extern "C" const char* __lsan_default_suppressions() {
    return "leak:libfontconfig.so\n";
}
