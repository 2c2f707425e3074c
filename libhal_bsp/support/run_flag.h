// Workers that run while a flag is set: a plain integer of an exported record, which the
// application, another module or the worker itself sets to 0 to end it.
//
// A worker looks at its flag only now and then. By the flag alone it would not notice an end that
// is followed by a new beginning, and would take the new run for its own: so runs are counted.
#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>

namespace hal {

template <typename Flag>
class Run;

// The runs of one module's workers.
class Runs {
  public:
    // Ends what runs and begins anew: sets the flag to 1.
    template <typename Flag>
    Run<Flag> begin(Flag& shared) {
        return set(shared, 1);
    }

    // The run that is under way, for a body that the application starts by itself.
    template <typename Flag>
    Run<Flag> current(Flag& shared) {
        const std::lock_guard guard(mutex_);
        return {*this, shared, number_};
    }

    // Ends what runs, though its thread may need a moment to notice: sets the flag to 0.
    template <typename Flag>
    void end(Flag& shared) {
        set(shared, 0);
    }

  private:
    template <typename Flag>
    friend class Run;

    template <typename Flag>
    Run<Flag> set(Flag& shared, Flag value) {
        const std::lock_guard guard(mutex_);
        std::atomic_ref(shared).store(value);
        return {*this, shared, ++number_};
    }

    std::mutex mutex_;
    std::atomic<uint32_t> number_{0};
};

// One run, as its worker has it. Runs and the flag have to outlive it.
template <typename Flag>
class Run {
  public:
    Run(Runs& runs, Flag& shared, uint32_t number) : runs_(runs), flag_(shared), number_(number) {}

    [[nodiscard]] bool is_wanted() const {
        return is_latest() && std::atomic_ref(flag_).load() != 0;
    }

    // Whether no other run has begun since, and none was ended but by the flag alone.
    [[nodiscard]] bool is_latest() const { return runs_.number_ == number_; }

    // As a worker ends itself: sets the flag to 0, unless another run has begun meanwhile.
    void end() const {
        const std::lock_guard guard(runs_.mutex_);
        if (runs_.number_ == number_) {
            ++runs_.number_;
            std::atomic_ref(flag_).store(0);
        }
    }

  private:
    Runs& runs_;
    Flag& flag_;
    uint32_t number_;
};

} // namespace hal
