#pragma once
// The kinds of models there are. Each is described in its own file, and listed here.

#include "core/board.h"
#include "core/settings.h"

namespace vb {

struct ModelKind {
    const char* name; // in board files
    const char* about;
    std::span<const SettingRow> settings;
    std::unique_ptr<Model> (*make)(Board& board, Settings& settings);
};

template <class Made>
std::unique_ptr<Model> make_model(Board& board, Settings& settings) {
    return std::make_unique<Made>(board, settings);
}

extern const ModelKind kGpio;
extern const ModelKind kSysfsGpio;
extern const ModelKind kI2cAdapter;
extern const ModelKind kCdcm6208;
extern const ModelKind kIdt6965;
extern const ModelKind kGsv2001;
extern const ModelKind kGsv2002;
extern const ModelKind kGsv20xx;
extern const ModelKind kIt6264;
extern const ModelKind kAttributes;
extern const ModelKind kNetwork;
extern const ModelKind kCooling;
extern const ModelKind kFpga;
extern const ModelKind kKeypad;
extern const ModelKind kLed;
extern const ModelKind kTbar;
extern const ModelKind kOled;
extern const ModelKind kVideoTiming;
extern const ModelKind kUsbGadget;
extern const ModelKind kUsbHost;
extern const ModelKind kPartition;
extern const ModelKind kBootloader;
extern const ModelKind kBootEnv;
extern const ModelKind kSettingsStore;
extern const ModelKind kVendorStorage;
extern const ModelKind kMcuBridge;
extern const ModelKind kSocRegisters;
extern const ModelKind kUsbSticks;
extern const ModelKind kSensorUsb;

inline constexpr const ModelKind* kModelKinds[] = {
    &kGpio,      &kSysfsGpio,     &kI2cAdapter,    &kCdcm6208,  &kIdt6965,      &kAttributes,
    &kNetwork,   &kCooling,       &kFpga,          &kKeypad,    &kLed,          &kTbar,
    &kOled,      &kVideoTiming,   &kUsbGadget,     &kUsbHost,   &kPartition,    &kBootloader,
    &kBootEnv,   &kSettingsStore, &kVendorStorage, &kMcuBridge, &kSocRegisters, &kUsbSticks,
    &kSensorUsb, &kGsv2001,       &kGsv2002,       &kGsv20xx,   &kIt6264,
};

} // namespace vb
