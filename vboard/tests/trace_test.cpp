// What stands in the trace, and how strange input stands there.

#include "core/bytes.h"
#include "core/requests.h"
#include "core/syslog_socket.h"
#include "core/trace.h"

#include <gtest/gtest.h>

namespace vb::trace_test {
namespace {

TEST(Trace, NumbersStampsAndFindsEvents) {
    std::int64_t now = 0;
    Trace trace([&] { return now; });
    trace.add("open", {{"node", "/dev/led"}});
    now = 1'500'000'000;
    trace.add("close", {{"node", "/dev/led"}});
    EXPECT_EQ(trace.last(), 2U);
    ASSERT_EQ(trace.after(1, {}).size(), 1U);
    const Json close = trace.after(0, {{"kind", "close"}}).at(0);
    EXPECT_EQ(close.dump(), R"({"n":2,"t":1.5,"kind":"close","node":"/dev/led"})");
    EXPECT_TRUE(trace.after(0, {{"kind", "close"}, {"node", "/dev/oled"}}).empty());
    EXPECT_TRUE(trace.after(0, {{"line", 3}}).empty());
}

TEST(Records, AreDecodedByTheirFieldsAndNeverBeyondTheirEnd) {
    constexpr RecordField kFields[] = {
        {"a", RecordField::Type::u16, 0},        {"b", RecordField::Type::i32, 2},
        {"name", RecordField::Type::text, 6, 4}, {"raw", RecordField::Type::bytes, 6, 2},
        {"beyond", RecordField::Type::u64, 6},
    };
    const Bytes record = {0x34, 0x12, 0xFE, 0xFF, 0xFF, 0xFF, 'h', 0xC3, 0, 'x'};
    EXPECT_EQ(decode(kFields, record).dump(), R"({"a":4660,"b":-2,"name":"h?","raw":"68c3"})");
}

TEST(Syslog, MessagesAreTakenApart) {
    const Json plain = parse_syslog("<171>Nov 24 22:03:09 libhal_bsp[12]: ERROR hal_gpio:5: no: x");
    EXPECT_EQ(plain.at("priority"), 3);
    EXPECT_EQ(plain.at("facility"), 21);
    EXPECT_EQ(plain.at("ident"), "libhal_bsp");
    EXPECT_EQ(plain.at("pid"), 12);
    EXPECT_EQ(plain.at("text"), "ERROR hal_gpio:5: no: x");
    EXPECT_EQ(parse_syslog("<13>Nov 24 22:03:09 root: hi").at("ident"), "root");
    for (const char* odd : {"", "<", "<9", "<13>", "<13>Nov", "no brackets at all"}) {
        EXPECT_EQ(parse_syslog(odd).at("pid"), 0) << odd;
    }
}

} // namespace
} // namespace vb::trace_test
