/* Temperature, fans, backlight and link: what a program looks after now and then. */
#include <hal_bsp/hal_bsp.h>

#include <stdio.h>

int main(void) {
    const fan_ctl_req full = {.channel = 0, .arg = {100}};
    fan_rpm_req fan = {.channel = 0};
    backlight_req dim = {.level = 30};
    int32_t hundredths = -100000; /* stays, where there is nothing to read */
    uint16_t link = 0;

    log_set_level(HAL_LOG_WARN);
    hal_get_boardtemp(&hundredths);
    if (hal_fans_set_speed(&full) < 0 || hal_fans_get_rpm(&fan) < 0 ||
        operation_set_backlight(&dim) < 0 || hal_get_ethlink_status_byname("eth0", &link) != 0) {
        return 1;
    }
    printf("%d.%d degrees, fan at %u rpm, eth0 %s\n", (int)hundredths / 100,
           (int)hundredths / 10 % 10, (unsigned)fan.rpm, link != 0 ? "has a link" : "has none");
    return 0;
}
