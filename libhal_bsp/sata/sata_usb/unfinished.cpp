// Symbols until their files are there.
#include <hal_bsp/mcu.h>

sata_usb_state sata_usb_prv;
sata_safe_state safe_info;
int32_t flag;

int32_t sata_read(void*, uint32_t, uint32_t, uint32_t) {
    return -1;
}
int32_t sata_write(const void*, uint32_t, uint32_t, uint32_t) {
    return -1;
}
int32_t scsi_read(int, uint32_t, uint32_t, struct sg_io_hdr*) {
    return -1;
}
int32_t scsi_write(int, uint32_t, uint32_t, struct sg_io_hdr*) {
    return -1;
}
int32_t check_inquiry(void) {
    return -1;
}
int32_t show_sense_buffer(const struct sg_io_hdr*) {
    return -1;
}
int32_t sata_otg_init(const hal_otg_info*, uint8_t, void*, uint32_t, uint32_t,
                      hal_otg_state_callback) {
    return -1;
}
int32_t sata_otg_deinit(void) {
    return 0;
}
int32_t mcu_hard_rst(void) {
    return -1;
}
int32_t mcu_recover(void) {
    return -1;
}
void* rcv(void*) {
    return nullptr;
}
int32_t sata_hid_init(const hal_hid_info*, hal_hid_callback) {
    return -1;
}
int32_t sata_hid_write(const hal_hid_data*) {
    return -1;
}
void sata_hid_deinit(void) {}
int32_t sata_mass_init(void*, uint8_t, hal_mass_callback) {
    return -1;
}
int32_t sata_mass_write(const hal_mass_reply*) {
    return -1;
}
int32_t sata_mass_deinit(uint16_t, uint8_t) {
    return 0;
}
void* safe_handle(void*) {
    return nullptr;
}
