// A small quarantine: with the usual one every input gets fresh pages, and most of the time goes there.
extern "C" const char *__asan_default_options();
extern "C" const char *__asan_default_options() {
    return "quarantine_size_mb=4";
}
