#include "support/gate.h"

#include "support/cancel.h"
#include "support/lock.h"

namespace hal {

RecoveryGate::Command::Command(RecoveryGate& gate) : gate_(gate) {
    const CancelOff no_cancel;
    const Locked lock(gate_.mutex_);
    wait_until_true(lock, gate_.changed_, [&] { return !gate_.is_recovering_ || gate_.is_mine(); });
    ++gate_.commands_;
    generation_ = gate_.generation_;
}

RecoveryGate::Command::~Command() {
    const Locked lock(gate_.mutex_);
    if (--gate_.commands_ == 0) {
        pthread_cond_broadcast(&gate_.changed_);
    }
}

RecoveryGate::Recovery::Recovery(RecoveryGate& gate) : gate_(gate) {
    begin(nullptr);
}

RecoveryGate::Recovery::Recovery(RecoveryGate& gate, uint32_t generation) : gate_(gate) {
    begin(&generation);
}

void RecoveryGate::Recovery::begin(const uint32_t* generation) {
    const CancelOff no_cancel;
    const Locked lock(gate_.mutex_);
    if (gate_.is_mine()) {
        return;
    }
    wait_until_true(lock, gate_.changed_, [&] { return !gate_.is_recovering_; });
    if (generation != nullptr && *generation != gate_.generation_) {
        return;
    }
    gate_.is_recovering_ = true;
    gate_.owner_ = pthread_self();
    wait_until_true(lock, gate_.changed_, [&] { return gate_.commands_ == 0; });
    is_mine_ = true;
}

RecoveryGate::Recovery::~Recovery() {
    if (is_mine_) {
        const Locked lock(gate_.mutex_);
        gate_.is_recovering_ = false;
        ++gate_.generation_;
        pthread_cond_broadcast(&gate_.changed_);
    }
}

} // namespace hal
