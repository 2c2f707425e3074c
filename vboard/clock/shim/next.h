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
    // A name of which libc keeps an incompatible old version needs the version given: the plain
    // look-up would return the oldest.
    explicit constexpr Next(const char* name, const char* version = nullptr)
        : name_(name), version_(version) {}

    Result operator()(Args... args) noexcept(kNoexcept) {
        Pointer function = found_.load(std::memory_order_relaxed);
        if (function == nullptr) {
            function = look_up();
        }
        return function(args...);
    }

    Pointer look_up() noexcept {
        void* symbol = nullptr;
        if (version_ != nullptr) {
            symbol = dlvsym(RTLD_NEXT, name_, version_);
        }
        if (symbol == nullptr) {
            symbol = dlsym(RTLD_NEXT, name_);
        }
        const auto function = reinterpret_cast<Pointer>(symbol);
        found_.store(function, std::memory_order_relaxed);
        return function;
    }

  private:
    const char* name_;
    const char* version_;
    std::atomic<Pointer> found_{nullptr};
};

template <class... Functions>
void look_up_all(Functions&... functions) {
    (static_cast<void>(functions.look_up()), ...);
}

} // namespace vb::shim
