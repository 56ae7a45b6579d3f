// Debian 12's fontconfig keeps a few hundred bytes from font matching that
// it never frees and no caller can reach. Under LeakSanitizer that would
// fail every sanitized run of a program that draws text; this tells it to
// ignore fontconfig's own allocations. Without LeakSanitizer nothing calls it.

extern "C" const char* __lsan_default_suppressions() { return "leak:libfontconfig.so\n"; }
