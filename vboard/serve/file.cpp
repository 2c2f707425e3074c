#include "serve/file.h"

#include <cerrno>

namespace vb {

Outcome File::read(std::size_t, std::uint64_t) {
    return Outcome::failed(EINVAL);
}

Outcome File::write(WriteCall&) {
    return Outcome::failed(EINVAL);
}

Outcome File::sync() {
    return Outcome::done();
}

short File::answer_poll(short) {
    return readiness();
}

} // namespace vb
