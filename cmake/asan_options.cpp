// AddressSanitizer, in the build that has it, asks this function for its defaults.
//
// It does not notice that a cancelled thread unwinds its frames and still holds their surroundings
// for forbidden when, last of all, it takes down the thread's signal stack. Without one it does
// not look there.
// NOLINTBEGIN(bugprone-reserved-identifier,readability-identifier-naming): the sanitizer's name
extern "C" const char* __asan_default_options();

extern "C" const char* __asan_default_options() {
    return "use_sigaltstack=0";
}
// NOLINTEND(bugprone-reserved-identifier,readability-identifier-naming)
