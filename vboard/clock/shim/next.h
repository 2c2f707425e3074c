// The next definition of a wrapped function in the link order: libc's own, or a sanitizer's.
#pragma once

#include <dlfcn.h>

#include <atomic>

#define VBOARD_WRAPPER extern "C" __attribute__((visibility("default")))

namespace vb::shim {

// Constant-initialised, so it works before any constructor has run. It is looked up when first
// used; each family of wrappers looks all of its own up when the library is loaded, so that a
// signal handler finds them ready.
template <class Function>
class Next;

template <class Result, class... Args, bool kNoexcept>
class Next<Result(Args...) noexcept(kNoexcept)> {
    using Pointer = Result (*)(Args...) noexcept(kNoexcept);

  public:
    explicit constexpr Next(const char* name) : name_(name) {}

    Result operator()(Args... args) noexcept(kNoexcept) {
        Pointer function = found_.load(std::memory_order_relaxed);
        if (function == nullptr) {
            function = look_up();
        }
        return function(args...);
    }

    // Of a name that libc has in several versions this finds the current one (since glibc 2.36;
    // before, it found the oldest).
    Pointer look_up() noexcept {
        const auto function = reinterpret_cast<Pointer>(dlsym(RTLD_NEXT, name_));
        found_.store(function, std::memory_order_relaxed);
        return function;
    }

  private:
    const char* name_;
    std::atomic<Pointer> found_{nullptr};
};

template <class... Functions>
void look_up_all(Functions&... functions) {
    (static_cast<void>(functions.look_up()), ...);
}

} // namespace vb::shim
