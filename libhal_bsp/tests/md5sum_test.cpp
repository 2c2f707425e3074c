// Digests and OEM images, as md5sum sees them too, and images that mean harm.
#include "tests/support/log_tap.h"

#include <hal_bsp/md5sum.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <random>
#include <string>

namespace hal_test::md5sum {
namespace {

namespace fs = std::filesystem;
using testing::AllOf;
using testing::Contains;
using testing::HasSubstr;
using testing::IsSupersetOf;
using testing::Not;
using testing::StartsWith;

using Digest = std::array<std::uint8_t, HAL_MD5_BYTES>;

constexpr char kEmptyMd5[] = "d41d8cd98f00b204e9800998ecf8427e";
constexpr char kAbcMd5[] = "900150983cd24fb0d6963f7d28e17f72";
constexpr std::uint64_t kHuge = ~std::uint64_t{0};

std::string hex(const Digest& digest) {
    std::string text;
    for (const unsigned byte : digest) {
        char pair[3];
        std::snprintf(pair, sizeof pair, "%02x", byte);
        text += pair;
    }
    return text;
}

std::string noise(std::size_t size) {
    std::string bytes(size, '\0');
    std::generate(bytes.begin(), bytes.end(), std::mt19937(static_cast<unsigned>(size)));
    return bytes;
}

// What md5sum says of a file from a byte on.
std::string md5sum(const std::string& path, std::size_t offset) {
    const std::string command = "tail -c +" + std::to_string(offset + 1) + " " + path + " | md5sum";
    FILE* answer = popen(command.c_str(), "r");
    char text[33] = "";
    if (std::fscanf(answer, "%32s", text) != 1) {
        ADD_FAILURE() << command;
    }
    pclose(answer);
    return text;
}

std::string header(std::uint32_t json_length, const std::string& json) {
    std::string bytes = "Zeda";
    for (int shift = 0; shift < 32; shift += 8) {
        bytes += static_cast<char>(json_length >> shift);
    }
    return bytes + json;
}

std::string json_of(const std::string& digest) {
    return R"({"name":"x","md5":")" + digest + R"("})";
}

class Md5 : public testing::Test {
  protected:
    void SetUp() override {
        log_set_quiet(true);
        LogTap::instance().take();
        path_ = fs::temp_directory_path() / ("md5sum_test." + std::to_string(getpid()));
    }
    void TearDown() override { fs::remove(path_); }

    void write(const std::string& bytes) { std::ofstream(path_, std::ios::binary) << bytes; }
    const char* path() const { return path_.c_str(); }
    std::int32_t check(const std::string& image, std::uint64_t total, std::uint32_t* length) {
        write(image);
        return kaOemMd5(path(), 0, total, length);
    }

  private:
    std::string path_;
};

TEST_F(Md5, IsWhatMd5sumSaysAtEverySizeAndOffset) {
    for (const std::size_t size : {0, 1, 511, 512, 513, 16384, 10'000'001}) {
        write(noise(size));
        for (const std::size_t offset : {std::size_t{0}, size / 3}) {
            Digest digest{};
            ASSERT_EQ(checkdata(path(), digest.data(), offset, size - offset), 1);
            EXPECT_EQ(hex(digest), md5sum(path(), offset)) << size << " from " << offset;
        }
    }
}

TEST_F(Md5, LogsTheDigestAByteAMessage) {
    write("abc");
    EXPECT_EQ(checkdata(path(), nullptr, 0, 3), 1);
    std::vector<std::string> expected = {"INFO checkSize = 3. offset=0 \n", "INFO \n",
                                         "INFO new md5:"};
    for (std::size_t i = 0; i < 32; i += 2) {
        expected.push_back("INFO " + std::string(kAbcMd5 + i, 2) + "\n");
    }
    expected.push_back("INFO MD5Check is ok of " + std::string(path()) + "\n");
    EXPECT_EQ(LogTap::instance().take_lines(), expected);
}

TEST_F(Md5, OfWhatCannotBeReadIsNoneAndMatchesNothing) {
    write("abc");
    Digest digest{};
    EXPECT_EQ(checkdata("/no/such", digest.data(), 0, 0), 0);
    EXPECT_EQ(checkdata(nullptr, digest.data(), 0, 0), 0);
    EXPECT_THAT(LogTap::instance().take_lines(),
                IsSupersetOf({"ERROR open file failed /no/such", "ERROR open file failed (null)"}));
    for (const auto& [offset, size] : std::vector<std::pair<std::uint64_t, std::uint64_t>>{
             {0, 4}, {3, 1}, {4, 1}, {kHuge, 1}, {kHuge / 2, 1}, {0, kHuge}, {1, kHuge}}) {
        EXPECT_EQ(checkdata(path(), digest.data(), offset, size), 0) << offset << ' ' << size;
        EXPECT_THAT(LogTap::instance().take_lines(), Contains("ERROR fread error.\n"));
        EXPECT_EQ(comparefile(path(), path(), offset, offset, size), 0);
        EXPECT_EQ(compareMd5sum(path(), std::string(32, '0').c_str(), offset, size), 0);
    }
    EXPECT_EQ(digest, Digest{});
    EXPECT_EQ(checkdata(path(), digest.data(), kHuge, 0), 1) << "nothing to read";
    EXPECT_EQ(hex(digest), kEmptyMd5);
}

TEST_F(Md5, ComparesFilesAndTexts) {
    write("abcxabcy");
    LogTap::instance().take();
    EXPECT_EQ(comparefile(path(), path(), 0, 4, 3), 1);
    EXPECT_EQ(compareMd5sum(path(), kAbcMd5, 0, 3), 1);
    EXPECT_EQ(compareMd5sum(path(), (std::string(kAbcMd5) + "zz").c_str(), 4, 3), 1);
    EXPECT_THAT(LogTap::instance().take_lines(), Not(Contains(StartsWith("ERROR"))));

    const std::string complaint = "ERROR MD5Check is error of " + std::string(path()) + "\n";
    EXPECT_EQ(comparefile(path(), path(), 0, 4, 4), 0);
    EXPECT_THAT(LogTap::instance().take_lines(), Contains(complaint));
    const std::string upper = "900150983CD24FB0D6963F7D28E17F72";
    for (const std::string& text : {upper, std::string(kAbcMd5, 31), std::string()}) {
        EXPECT_EQ(compareMd5sum(path(), text.c_str(), 0, 3), 0) << text;
        EXPECT_THAT(LogTap::instance().take_lines(), Contains(complaint));
    }
    EXPECT_EQ(compareMd5sum(path(), nullptr, 0, 3), 0);
}

TEST_F(Md5, IsTakenFromTheFirstKeyInAText) {
    Digest digest{};
    EXPECT_EQ(get_md5_from_json(json_of(kAbcMd5).c_str(), digest.data()), 1);
    EXPECT_EQ(hex(digest), kAbcMd5);
    EXPECT_EQ(get_md5_from_json((R"("md5": "x)" + json_of("900150983CD24FB0D6963F7D28E17F72") +
                                 json_of(kEmptyMd5))
                                    .c_str(),
                                digest.data()),
              1);
    EXPECT_EQ(hex(digest), kAbcMd5);
    for (const char* text : {"", "{}", R"({"md5": "00"})", R"("md5":")", R"("md5":"12"})",
                             R"("md5":"900150983cd24fb0d6963f7d28e17f7)"}) {
        EXPECT_EQ(get_md5_from_json(text, digest.data()), 0) << text;
        EXPECT_EQ(hex(digest), kAbcMd5);
    }
    EXPECT_EQ(get_md5_from_json(nullptr, digest.data()), 0);
    EXPECT_EQ(get_md5_from_json(json_of(kAbcMd5).c_str(), nullptr), 0);
}

TEST_F(Md5, OemImageIsGoodWithEveryLengthOfHeaderAnywhere) {
    const std::string payload = noise(492);
    write(payload);
    const std::string json = json_of(md5sum(path(), 0));
    for (const std::size_t length : {json.size(), std::size_t{100}, std::size_t{511}}) {
        const std::string text = json + std::string(length - json.size(), ' ');
        write(noise(64) + header(static_cast<std::uint32_t>(length), text) + payload + "behind it");
        std::uint32_t header_len = 0;
        LogTap::instance().take();
        EXPECT_EQ(kaOemMd5(path(), 64, 8 + length + 492, &header_len), 1);
        EXPECT_EQ(header_len, 8 + length);
        EXPECT_THAT(
            LogTap::instance().take_lines(),
            AllOf(Contains("INFO offset: 64 file_len:" + std::to_string(500 + length) + "\n"),
                  Contains("INFO md5 const str find ok : Zeda\n"),
                  Contains("INFO checkSize = 492. offset=" + std::to_string(72 + length) + " \n"),
                  Contains("ERROR md5 check successed!\n")));
        EXPECT_EQ(kaOemMd5(path(), 64, 8 + length + 492, nullptr), 1);
    }
}

TEST_F(Md5, HostileImagesAreRefusedAndSaySo) {
    const std::string good = json_of(kAbcMd5);
    const auto size = static_cast<std::uint32_t>(good.size());
    const std::uint64_t whole = 8 + size + 3;
    const std::string image = header(size, good) + "abc";
    std::uint32_t length = 0;
    ASSERT_EQ(check(image, whole, &length), 1);
    const struct {
        const char* what;
        std::string image;
        std::uint64_t total;
        std::int32_t result;
        std::uint32_t length; // 77: untouched
        const char* logged;
    } cases[] = {
        {"other marker", "zeda" + image.substr(4), whole, -1, 0,
         "WARN md5 const str not find : zeda\n"},
        {"no marker", "Zed", 3, -1, 77, "ERROR fread fail.\n"},
        {"no length", "Zeda\x05", 5, -1, 77, "ERROR fread fail.\n"},
        {"no text", header(size, "{"), whole, -1, 77, "ERROR fread fail.\n"},
        {"empty text", header(0, ""), 8, -2, 77, "ERROR md5 check failed\n"},
        {"empty text of an empty file", header(0, "abc"), 11, -2, 77, "ERROR md5 check failed\n"},
        {"length 512", header(512, std::string(600, ' ')), 700, -1, 77, nullptr},
        {"greatest length", header(0xFFFFFFFF, good), whole, -1, 77, nullptr},
        {"wrong byte", header(size, good) + "abd", whole, -2, 77, "ERROR md5 check failed\n"},
        {"no digest", header(2, "{}") + "abc", 13, -2, 77, "ERROR md5 check failed\n"},
        {"short digest", header(12, R"("md5":"9001")") + "abc", 23, -2, 77,
         "ERROR md5 check failed\n"},
        {"digest behind a NUL", header(size + 1, '\0' + good) + "abc", whole + 1, -2, 77,
         "ERROR md5 check failed\n"},
        {"total below the header", image, 8 + size - 1, -2, 77, "ERROR md5 check failed\n"},
        {"total 0", image, 0, -2, 77, "ERROR md5 check failed\n"},
        {"total past the end", image, whole + 1, -2, 77, "ERROR fread error.\n"},
        {"greatest total", image, kHuge, -2, 77, "ERROR fread error.\n"},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.what);
        length = 77;
        LogTap::instance().take();
        EXPECT_EQ(check(each.image, each.total, &length), each.result);
        EXPECT_EQ(length, each.length);
        const auto lines = LogTap::instance().take_lines();
        EXPECT_THAT(lines, Not(Contains(HasSubstr("successed"))));
        if (each.logged != nullptr) {
            EXPECT_THAT(lines, Contains(each.logged));
        }
    }
    EXPECT_EQ(kaOemMd5(path(), kHuge, 8, nullptr), -1);
    EXPECT_EQ(kaOemMd5("/no/such", 0, 8, nullptr), -1);
    EXPECT_EQ(kaOemMd5(nullptr, 0, 8, nullptr), -1);
}

} // namespace
} // namespace hal_test::md5sum
