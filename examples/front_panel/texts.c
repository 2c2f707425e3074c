#include "texts.h"

const struct texts texts_in[LANGUAGES] = {
    [ENGLISH] = {.pages = {"Main menu", "Inputs", "T-bar", "Cooling", "Network", "Brightness",
                           "Language 语言"},
                 .inputs = {"HDMI input 1", "HDMI input 2", "SDI input 1", "SDI input 2"},
                 .position = "Position",
                 .moving = "moving",
                 .at_rest = "at rest",
                 .temperature = "Board",
                 .degrees = "C",
                 .fan = "Fan",
                 .rpm = "rpm",
                 .linked = "link up",
                 .not_linked = "no link",
                 .hint = "up +      down -"},
    [CHINESE] = {.pages = {"主菜单", "输入", "推杆", "散热", "网络", "亮度", "语言 Language"},
                 .inputs = {"HDMI 输入 1", "HDMI 输入 2", "SDI 输入 1", "SDI 输入 2"},
                 .position = "位置",
                 .moving = "移动中",
                 .at_rest = "静止",
                 .temperature = "温度",
                 .degrees = "度",
                 .fan = "风扇",
                 .rpm = "转",
                 .linked = "已连接",
                 .not_linked = "未连接",
                 .hint = "上 +        下 -"},
};

const char* const language_names[LANGUAGES] = {[ENGLISH] = "English", [CHINESE] = "中文"};
