#pragma once
// What a device answers to a read, a write or a request.

#include "core/bytes.h"

namespace vb {

struct Outcome {
    enum class Kind { done, failed, wait };

    Kind kind = Kind::done;
    int error = 0;  // failed: the errno the caller gets
    int result = 0; // done: the request's result, or the bytes a write took
    Bytes data;     // done: the bytes that a read hands over

    static Outcome done(int result = 0) { return {Kind::done, 0, result, {}}; }
    static Outcome bytes(Bytes data) {
        const int size = static_cast<int>(data.size());
        return {Kind::done, 0, size, std::move(data)};
    }
    static Outcome failed(int error) { return {Kind::failed, error, -1, {}}; }

    // Nothing to answer yet. The caller sleeps (or gets EAGAIN where it opened non-blocking);
    // the same call is made again once the model says File::changed().
    static Outcome wait() { return {Kind::wait, 0, 0, {}}; }
};

} // namespace vb
