// A sanitizer, in the build that has it, asks these functions for its defaults.
// NOLINTBEGIN(bugprone-reserved-identifier,readability-identifier-naming): the sanitizers' names
extern "C" {
const char* __asan_default_options();
const char* __tsan_default_options();
const char* __tsan_default_suppressions();

// AddressSanitizer does not notice that a cancelled thread unwinds its frames, and still holds
// their surroundings for forbidden when, last of all, it takes down the thread's signal stack.
// Without one it does not look there.
const char* __asan_default_options() {
    return "use_sigaltstack=0";
}

// ThreadSanitizer lets a program with threads wait a second at its end for races of the last
// moment. The board's device server is such a program, and every test on a board has one.
const char* __tsan_default_options() {
    return "atexit_sleep_ms=0";
}

// The device server ends without waiting for libfuse, which has not joined its threads then.
const char* __tsan_default_suppressions() {
    return "thread:libfuse3.so\n";
}
}
// NOLINTEND(bugprone-reserved-identifier,readability-identifier-naming)
