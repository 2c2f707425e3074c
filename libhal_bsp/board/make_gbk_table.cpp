// Makes unicode_to_gbk of the C library's code page 936: make_gbk_table OUTPUT.cpp
#include <array>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <iconv.h>

namespace {

constexpr unsigned kEntries = 65535;

// The code of one or two bytes, first byte high; 0 where there is none.
unsigned gbk_of(iconv_t conversion, unsigned unicode) {
    std::array<char, 2> in{static_cast<char>(unicode & 0xFF), static_cast<char>(unicode >> 8)};
    std::array<unsigned char, 4> out{};
    char* from = in.data();
    char* to = reinterpret_cast<char*>(out.data());
    std::size_t from_left = in.size();
    std::size_t to_left = out.size();
    iconv(conversion, nullptr, nullptr, nullptr, nullptr);
    if (iconv(conversion, &from, &from_left, &to, &to_left) != 0) {
        return 0; // there is none, or only a similar character
    }
    const std::size_t size = out.size() - to_left;
    return size == 2 ? out[0] * 256U + out[1] : out[0];
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        return 64;
    }
    iconv_t conversion = iconv_open("CP936", "UCS-2LE");
    if (conversion == reinterpret_cast<iconv_t>(-1)) {
        std::fputs("the C library has no conversion to CP936 (its gconv modules)\n", stderr);
        return 1;
    }
    std::ofstream out(argv[1]);
    out << "#include <hal_bsp/oled.h>\n\n"
           "const oled_gbk_entry unicode_to_gbk[HAL_OLED_GBK_ENTRIES] = {\n";
    for (unsigned unicode = 0; unicode < kEntries; ++unicode) {
        out << '{' << unicode << ',' << gbk_of(conversion, unicode) << "},\n";
    }
    out << "};\n";
    iconv_close(conversion);
    return out.flush() ? 0 : 1;
}
