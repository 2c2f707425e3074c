// What a chip library does not offer.
#include <hal_bsp/video.h>

#include <atomic>

namespace {

constexpr int32_t kNoTable = 3;

template <typename... Parameters>
int32_t not_offered(Parameters... /*ignored*/) {
    return HAL_VIDEO_NOT_OFFERED;
}

// Threads that serve chips may look at the slot meanwhile.
template <typename... Parameters>
void put_default(int32_t (*&slot)(Parameters...)) {
    std::atomic_ref(slot).store(not_offered<Parameters...>);
}

template <typename... Slots>
void put_defaults(Slots&... slots) {
    static_assert(sizeof...(Slots) == HAL_VIDEO_DEFAULT_OPS);
    (put_default(slots), ...);
}

} // namespace

int32_t Virtual_IcRegister(video_chip_ops* ops) {
    if (ops == nullptr) {
        return kNoTable;
    }
    video_chip_ops& to = *ops;
    put_defaults(to.InitFunc, to.service, to.op2, to.set_edid, to.op4, to.op5, to.op6, to.op7,
                 to.op8, to.op9, to.op10, to.op11, to.op12, to.op13, to.op14, to.op15, to.op16,
                 to.op17, to.op18, to.op19, to.op20, to.op21, to.op22, to.op23, to.op24, to.op25,
                 to.op26, to.op27, to.op28, to.op29, to.op30, to.op31, to.op32, to.op33, to.op34,
                 to.op35, to.op36);
    return 0;
}
