// The examples on a board, and the demo as a whole.

#include "tools.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

namespace halctl_tests::examples {
namespace {

using testing::ContainsRegex;
using testing::HasSubstr;
using testing::Not;

TEST(GpioButton, LetsTheLampFollowTheButtonAndTidiesUp) {
    const CommandResult result =
        on_board("gpio_button 7 8 2 >/dev/shm/out &\n"
                 "until vboard ctl gpio show 7 | grep -q '\"configured\":true'; do :; done\n"
                 "said() { until [ \"$(grep -c \"$1\" /dev/shm/out)\" = $2 ]; do :; done; }\n"
                 "level() { vboard ctl gpio show 8 | grep -o '\"level\":.'; }\n"
                 "drive 7 1; said pressed 1; level; drive 7 0; said released 1; level\n"
                 "drive 7 1; said pressed 2; drive 7 0\n"
                 "wait $!; echo $?; cat /dev/shm/out; vboard ctl gpio list");
    EXPECT_EQ(result.out, "\"level\":1\n\"level\":0\n0\n"
                          "button pressed, lamp on\nbutton released, lamp off\n"
                          "button pressed, lamp on\nbutton released, lamp off\n"
                          "{\"lines\":[],\"overflows\":0}\n");
    EXPECT_EQ(result.err, "");
}

TEST(GpioButton, EndsByASignalAndFailsWithoutABoard) {
    const CommandResult stopped =
        on_board("gpio_button & listening; kill -INT $!; wait $!; echo $?");
    EXPECT_EQ(stopped.out, "0\n") << stopped.err;
    const CommandResult alone =
        on_board("vboard ctl node vanish /dev/drvgpio; gpio_button; echo $?");
    EXPECT_EQ(alone.out, "1\n");
    EXPECT_THAT(alone.err, HasSubstr("open drvgpio error"));
}

TEST(Clocks, SetAllFiveChipsToWithinAMillionth) {
    const CommandResult result = on_board("clocks; echo $?");
    for (const char* chip :
         {"cdcm6208    0       7", "cdcm6208    1       7", "idt6965     0       4",
          "idt6965     1       4", "idt6965     2       4"}) {
        EXPECT_THAT(result.out, HasSubstr(chip));
    }
    EXPECT_THAT(result.out, HasSubstr("0 outputs off by a millionth or more\n0\n")) << result.err;
    EXPECT_THAT(result.out, Not(HasSubstr("no signal")));
    EXPECT_THAT(result.out, Not(HasSubstr("out of reach")));
}

TEST(Clocks, SayWhichChipIsMissing) {
    const CommandResult result = on_board("vboard ctl i2c mute 6 0x6a 1; clocks; echo $?");
    EXPECT_THAT(result.out, HasSubstr("\n1\n"));
    EXPECT_THAT(result.err, HasSubstr("idt6965 0 does not verify"));
}

TEST(GenlockExample, LocksOnBoardsOfItsOwnAndDrawsTheSameEachTime) {
    const std::string script =
        "cd $(mktemp -d) && genlock --rates 100 --steps 700 --out a && "
        "genlock --rates 100 --steps 700 --out b >b.txt && cmp a/100_2640x1125.png "
        "b/100_2640x1125.png && cmp a/100_1980x750.csv b/100_1980x750.csv && "
        "head -c 4 a/100_5280x2250.png | tail -c 3 && tail -n 1 a/100_5280x2250.svg\n"
        "genlock --rate 30 --steps 20 --out c; echo $?; rm -r \"$PWD\"";
    const CommandResult result = run({"sh", "-c", script});
    EXPECT_EQ(result.err, "");
    for (const char* row :
         {"\n100.00  2640x1125  +0.0      +25     +3998     132    260 ",
          "\n100.00  1980x750   +0.0 ", "\n100.00  5280x2250  +0.0 ", "PNG</svg>\n"}) {
        EXPECT_THAT(result.out, HasSubstr(row));
    }
    EXPECT_THAT(result.out, testing::EndsWith("NOT LOCKED\n1\n")) << "twenty steps are too few";
}

TEST(AbUpdate, TellsTheWholeStoryAndSurvivesPowerCuts) {
    const CommandResult story = run({"vboard", "run", "--", "ab_update", "--seed", "3"});
    EXPECT_EQ(story.status, 0) << story.err;
    EXPECT_THAT(story.out, HasSubstr("slot b runs system 2, confirmed\n"));
    EXPECT_THAT(story.out, HasSubstr("refused, slot a is untouched\n"));
    EXPECT_THAT(story.out, HasSubstr("slot b runs system 2 again, whole; slot a is torn\n"));
    EXPECT_THAT(story.out, HasSubstr("its 3 tries are used up: slot b runs system 2 again"));
    const CommandResult rounds = run({"vboard", "run", "--", "ab_update", "--rounds", "6"});
    EXPECT_EQ(rounds.status, 0) << rounds.err;
    EXPECT_THAT(rounds.out, HasSubstr("6 of 6 power cuts left a whole, verified system"));
    EXPECT_THAT(run({"ab_update"}).err, HasSubstr("ab_update: "));
}

// Each step of the tour waits for what has to come; here is what it has to be, in its order.
TEST(FrontPanel, ShowsOnItsTourWhatKeysFaderHeatAndCableDo) {
    const std::string tour = SOURCE "/examples/front_panel/tour";
    const CommandResult result = run({"vboard", "run", "--speed", "10", "--", tour, "--text"});
    ASSERT_EQ(result.status, 0) << result.err;
    std::size_t at = 0;
    for (const std::string step : {
             "Main menu    1/6\n> Inputs\n  T-bar\n  Cooling\n",
             "[enter] [down] [enter] \n"
             "Inputs       2/4\n  HDMI input 1\n> HDMI input 2 *\n  SDI input 1\n",
             R"({"led":1,"mode":"on",)",
             "主菜单       6/6\n  网络\n  亮度\n> 语言 Language\n",
             "输入         2/4\n  HDMI 输入 1\n> HDMI 输入 2  *\n  SDI 输入 1\n",
             "tbar move 0 350 500\n"
             "推杆         34%\n[#####         ]\n位置         350\n            静止\n",
             "推杆        100%\n[##############]\n位置        1023\n            静止\n",
             "散热         53%\n温度     45.0 度\n风扇 1   2544 转\n风扇 2   2544 转\n",
             "thermal pin 62\n"
             "散热         93%\n温度     62.0 度\n风扇 1   4464 转\n风扇 2   4464 转\n",
             "net link eth1 0\n"
             "网络           !\neth0      已连接\n\neth1      未连接\n",
             R"({"led":1,"mode":"blink",)",
             R"({"led":1,"mode":"on",)",
             "亮度         70%\n[##########    ]\n\n上 +        下 -\n",
             "brightness\n76\n",
             "Main menu    6/6\n  Network\n  Brightness\n> Language 语言\n[power] \n",
             R"(led show 1
{"led":1,"mode":"off")",
         }) {
        const std::size_t found = result.out.find(step, at);
        ASSERT_NE(found, std::string::npos) << step << "is missing in\n" << result.out.substr(at);
        at = found + step.size();
    }
}

// A panel in the background, its menu on the OLED, all LEDs but the chosen input's dark.
CommandResult with_front_panel(const std::string& script) {
    return on_board("shows() { until halctl oled shot --text | grep -q \"$1\"; do :; done; }\n"
                    "key() { vboard ctl keypad $1 $2 >/dev/null; }\n"
                    "front_panel >/dev/shm/out & shows 'Main menu'\n" +
                    script);
}

TEST(FrontPanel, MovesAlongWhileAKeyIsHeldAndChoosesOnce) {
    const CommandResult result = with_front_panel(
        "downs() { grep -c 'key down' /dev/shm/out; }\n"
        "key down 1; shows 'menu    6/6'; key up 1; key down 2; shows 'Language'; before=$(downs)\n"
        "key down 1; until [ $(downs) -ge $((before + 3)) ]; do :; done\n" // later than a repeat of
                                                                           // 2
        "kill -TERM $!; wait $!; echo $?; grep -c 'key enter' /dev/shm/out");
    EXPECT_EQ(result.out, "0\n1\n") << result.err;
}

TEST(FrontPanel, TellsWhatIsWrongAndEndsInOrder) {
    const CommandResult result = with_front_panel(
        "vboard ctl fan stall 0 1; shows '^Main menu  ! 1/6'; shows 'Cooling *!$'\n"
        "until vboard ctl led show 0 | grep -q blink; do :; done; vboard ctl fan stall 0 0\n"
        "until vboard ctl led show 0 | grep -q '\"on\"'; do :; done\n"
        "kill -INT $!; wait $!; echo $?; vboard ctl led list\n"
        "front_panel --quit-after 1 >/dev/null; echo $?\n"
        "vboard ctl node vanish /dev/keypad; front_panel >/dev/null; echo $?\n"
        "front_panel --nonsense; echo $?");
    EXPECT_THAT(result.out, testing::EndsWith("0\n0\n1\n64\n")) << result.err;
    EXPECT_THAT(result.err, HasSubstr("open keypad error"));
}

// Whichever way it goes, the host sees the same.
class UsbGadget : public testing::TestWithParam<const char*> {
  protected:
    CommandResult with_disk(const std::string& options, const std::string& script) const;
};

INSTANTIATE_TEST_SUITE_P(Via, UsbGadget, testing::Values("soc", "mcu"),
                         [](const auto& way) { return std::string(way.param); });

// The tour itself compares the host's copies with the image, and what the host has written with
// what is in it then.
TEST_P(UsbGadget, IsKeyboardMiceTouchScreenAndDiskOfAHostThatComesBack) {
    if (HAL_SANITIZED != 0 && GetParam() == std::string("mcu")) {
        GTEST_SKIP() << "its copies take the sanitizers too long, a packet of 512 bytes at a time";
    }
    const std::string tour = SOURCE "/examples/usb_gadget/tour";
    const CommandResult result =
        run({"vboard", "run", "--speed", "20", "--", tour, "--via", GetParam()});
    ASSERT_EQ(result.status, 0) << result.err;
    for (const std::string said : {
             R"({"text":"Hello from the board!\n","consumer":[],"down":[],)",
             R"("absolute":true,"x":24576,"y":8192,"wheel":0,"buttons":0,"reports":8})",
             R"("absolute":false,"x":120,"y":-40,"wheel":0,"buttons":0,"reports":8})",
             R"({"touching":[],"count":2,"scan_time":800,"reports":10})",
             R"("product":"Virtual disk","blocks":8192,"block_size":512,)",
             "mdir -b -i disk.img ::\n::/read.me\n::/news.txt\n",
             "::news.txt\nWritten by the host.\n",
             " bytes read, 4194304 bytes written\ndown\n",
         }) {
        EXPECT_THAT(result.out, HasSubstr(said));
    }
}

// A gadget whose disk of 16 blocks, all of 'x', is ready, and `disk`, which gives it a command and
// prints what became of that.
CommandResult UsbGadget::with_disk(const std::string& options, const std::string& script) const {
    return run({"vboard", "run", "--speed", "20", "--", "bash", "-c",
                "cd /dev/shm; printf 'x%.0s' {1..8192} >disk; cp disk before\n"
                "usb_gadget --no-demo --image disk --via " +
                    std::string(GetParam()) + " " + options +
                    " >out 2>err & gadget=$!\n"
                    "until vboard ctl host disk_info 2>&1 | grep -q '\"known\":true'; do :; done\n"
                    "disk() { local job; job=$(vboard ctl host \"$@\") || return\n"
                    "until vboard ctl trace read 0 usb_disk \"{\\\"job\\\":$job}\" "
                    "| grep '\"state\":\"done\"' >end; do :; done\n"
                    "grep -oE '\"(status|length|residue|sense)\":[^,}]*' end | "
                    "sed 's/.*://' | tr -d '\"' | paste -sd ' '; }\n"
                    "block() { printf '00%.0s' {1..512}; }\n" +
                    script + "\nkill -TERM $gadget; wait $gadget; echo $?; cmp disk before"});
}

TEST_P(UsbGadget, KeepsToTheLengthsAndDirectionsThatTheHostAnnounces) {
    const CommandResult result =
        with_disk("", "disk disk_command 120000000500 in 36\n"           // less than asked for
                      "disk disk_command 120000002400 in 5\n"            // more
                      "disk disk_command 28000000000000000200 in 2048\n" // with whole packets
                      "disk disk_command 28000000000000000200 in 512\n"  //
                      "disk disk_command 28000000000f00000200 in 1024\n" // beyond the end
                      "disk disk_command 2800ffffffff00ffff00 in 512\n"  //
                      "disk disk_command 28000000000000000100 out 512 $(block)\n" // wrong ways
                      "disk disk_command 2a000000000000000100 in 512\n"           //
                      "disk disk_command 2a000000000000000200 out 512 $(block)\n" // too few
                      "disk disk_command 2a000000001000000100 out 512 $(block)\n" // beyond the end
                      "disk disk_command 850000000000 in 0\n"                     // unknown
                      "disk disk_ask mode_select 00000000\n");
    EXPECT_EQ(result.out, "passed 5 31\n"
                          "phase error 5 0\n"
                          "passed 1028 1024\n" // the fill makes the last packet a short one
                          "phase error 512 0\n"
                          "failed 4 1024 5/21/00\n"
                          "failed 4 512 5/21/00\n"
                          "phase error 0 512\n"
                          "phase error 4 512\n"
                          "phase error 0 512\n"
                          "failed 0 512 5/21/00\n"
                          "failed 0 0 5/20/00\n"
                          "passed 0 0\n"
                          "0\n")
        << result.err;
}

TEST_P(UsbGadget, GoesOnAfterRubbishAndWithAProtectedDisk) {
    const CommandResult result = with_disk(
        "--read-only",
        "disk disk_command 2a000000000000000100 out 512 $(block)\n"
        "disk disk_wrapper 55534243\n"
        "disk disk_wrapper $(printf '00%.0s' {1..31})\n"
        // Announces data that do not come; what comes then are commands.
        "disk disk_wrapper 58534243010203040002000000000a2a000000000000000100000000000000\n"
        "disk disk_ask test_unit_ready; disk disk_command 28000000000000000100 in 512");
    EXPECT_EQ(result.out, "failed 0 512 7/27/00\nbroken 0 0\nphase error 0 0\nbroken 0 0\n"
                          "passed 0 0\npassed 512 0\n0\n")
        << result.err;
}

// A packet that could not be fetched, a command that failed, a bridge that was away: none of it is
// for good.
TEST(UsbGadgetViaMcu, GetsOverWhatGoesWrongWithTheBridge) {
    const CommandResult result = run(
        {"vboard", "run", "--speed", "20", "--", "bash", "-c",
         "cd /dev/shm; head -c 65536 /dev/urandom >disk; mkdir -p \"$0\"\n"
         "usb_gadget --no-demo --via mcu --image disk >out 2>&1 & gadget=$!\n"
         "says() { until [ $(grep -c \"$2\" out) -ge $1 ]; do :; done; }\n"
         "copies() { rm -f \"$0/copy\"; until cmp -s disk \"$0/copy\"; do\n"
         "vboard ctl host disk_read \"$0/copy\" >/dev/null 2>&1; sleep 1; done; }\n"
         "says 1 'disk ready'; vboard ctl mcu fail 1; vboard ctl host led caps 1; says 1 'caps 1'\n"
         "vboard ctl fault add '/dev/sda:ioctl=SG_IO:EIO:once'; vboard ctl host led num 1\n"
         "says 2 'disk ready'; copies\n"
         "vboard ctl mcu bridge gone; vboard ctl host led scroll 1; says 2 'disk withdrawn'\n"
         "vboard ctl mcu bridge there; says 3 'disk ready'; copies\n"
         "kill -INT $gadget; wait $gadget; echo $?; rm -r \"$0\"",
         testing::TempDir() + "gets_over_" + std::to_string(getpid())});
    EXPECT_THAT(result.out, testing::EndsWith("0\n")) << result.err;
}

TEST(UsbGadgetAlone, EndsByASignalBeforeTheHostConfiguresAndFailsWithoutAPort) {
    const std::string script =
        "vboard ctl host configure never; usb_gadget >/dev/shm/out & gadget=$!\n"
        "until grep -q '^up' /dev/shm/out; do :; done\n"
        "kill -INT $gadget; wait $gadget; echo $?; usb_gadget --image /none; echo $?\n"
        "vboard ctl node vanish /sys/kernel/config/usb_gadget; usb_gadget; echo $?\n"
        "vboard ctl mcu bridge gone; vboard ctl clock speed 500 >/dev/null\n"
        "usb_gadget --via mcu; echo $?";
    const CommandResult result = run({"vboard", "run", "--speed", "20", "--", "sh", "-c", script});
    EXPECT_EQ(result.out, "0\n1\n69\n69\n");
    EXPECT_THAT(result.err, HasSubstr("usb_gadget: /none: No such file or directory\n"
                                      "usb_gadget: there is no USB device port"));
    EXPECT_THAT(result.err, testing::EndsWith("usb_gadget --via mcu\n"));
}

// A script on a board, in a folder with two of a stick's: one has images, the other another file.
CommandResult with_media(const std::string& script, const std::string& as = "") {
    const std::string listening =
        "listening() { until grep -q ' 15 .* 00000001 ' /proc/net/netlink; do :; done; }\n"
        "says() { until grep -q \"$1\" out; do :; done; }\n"
        "plug() { vboard ctl stick plug $PWD/stick.img >/dev/null; }\n";
    return run({"bash", "-c",
                "folder=$(mktemp -d) && trap 'rm -r \"$folder\"' EXIT && cd \"$folder\" || exit\n"
                "mkdir -p a b/deep; head -c 90000 /dev/urandom >'b/deep/a song'\n"
                "head -c 50000 /dev/urandom >payload; halctl image pack payload a/new.img\n"
                "{ head -c 40000 a/new.img; cat payload; } >a/bad.img\n"
                "[ $(id -u) != 0 ] || chown -R 65534:65534 .\n" +
                    as + " vboard run -- bash -c \"$0\"",
                listening + script});
}

TEST(MediaBrowser, ListsBothPartitionsOfAStickAndItsEndAlsoForAnOrdinaryUser) {
#ifdef __SANITIZE_THREAD__
    const std::string as; // the sanitizer's own thread keeps a process out of a new user namespace
#else
    const std::string as =
        getuid() == 0 ? "setpriv --reuid 65534 --regid 65534 --clear-groups" : "";
#endif
    const CommandResult result = with_media(
        "make_stick gpt stick.img a b; media_browser --digest --batches 2 >out & listening\n"
        "plug; says song; vboard ctl stick unplug sdb; wait $!; echo $?; cat out\n"
        "sums=$(md5sum a/* b/deep/* | cut -c 1-32 | sort)\n"
        "[ \"$sums\" = \"$(grep -oE '[0-9a-f]{32}' out | sort)\" ]; echo $?\n"
        "findmnt -rn -o TARGET | grep /mnt/dev; halctl usb list",
        as);
    EXPECT_THAT(result.out, testing::MatchesRegex(
                                "0\nadded: 2\n/mnt/dev/sdb1: 2 files\n"
                                "  [0-9a-f]+ +90000  bad.img\n"
                                "  update image: the digest .* is not the payload's, not taken\n"
                                "  [0-9a-f]+ +50050  new.img\n"
                                "  update image: good, would be taken by --update PARTITION\n"
                                "/mnt/dev/sdb2: 1 file\n  [0-9a-f]+ +90000  deep/a song\n"
                                "removed: 2\n/mnt/dev/sdb1: gone\n/mnt/dev/sdb2: gone\n"
                                "nothing is left mounted\n0\nthere is no partition of a stick\n"))
        << result.err;
    EXPECT_EQ(result.err, "");
}

TEST(MediaBrowser, WritesTheGoodImageAndTellsWhatIsNotMounted) {
    const CommandResult result = with_media(
        "make_stick mbr stick.img payload a; plug; halctl slot init; halctl usb list --mount\n"
        "umount /mnt/dev/sdb2; media_browser --update system 2>/dev/null >out & listening\n"
        "kill -TERM $!; wait $!; echo $?; cat out; halctl slot show | grep 'slot b'\n"
        "head -c 50000 /dev/block/by-name/system_b | cmp - payload; media_browser --update x\n"
        "echo $?");
    EXPECT_EQ(result.out,
              "/dev/sdb1  1.0 MiB  not mounted\n/dev/sdb2  9.0 MiB  /mnt/dev/sdb2\n"
              "0\nadded: 2\n/mnt/dev/sdb1: not mounted\n/mnt/dev/sdb2: 2 files\n"
              "         90000  bad.img\n"
              "  update image: the digest in the header is not the payload's, not taken\n"
              "         50050  new.img\n"
              "  update image: good, written to /dev/block/by-name/system_b: it is "
              "booted after a switch of slots\n"
              "left mounted: /dev/sdb2 at /mnt/dev/sdb2\n"
              "slot b: priority 14, 0 tries left\n69\n");
    EXPECT_EQ(result.err, "halctl: usb list: not mounted: /dev/sdb1\n"
                          "media_browser: the slot that does not run has no partition x\n");
}

TEST(Demo, TellsOfAllFromAButtonToAnUpdateAndAddsItUp) {
    if (HAL_SANITIZED != 0) {
        GTEST_SKIP() << "each example has a test of its own, which a sanitizer watches";
    }
    const CommandResult result = run({SOURCE "/examples/demo", BUILD, BUILD "/demo"});
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_THAT(result.out, HasSubstr("button pressed, lamp on\n"));
    EXPECT_THAT(result.out, HasSubstr("line=7 value=1 label=button"));
    EXPECT_THAT(result.out, HasSubstr("\"label\":\"lamp\",\"direction\":\"out\",\"trigger\":0,"
                                      "\"interrupt\":false,\"param\":0,\"level\":1}"));
    EXPECT_THAT(result.out, HasSubstr("CMD_GPIO_SETVAL line=8 value=1 -> 0\n"));
    EXPECT_THAT(result.out, HasSubstr("0 outputs off by a millionth or more\n"));
    EXPECT_THAT(result.out, HasSubstr("idt6965 frequency 0 1\n25000000.0\n"));
    EXPECT_THAT(result.out,
                HasSubstr("up --steps 3\n$ vboard ctl idt6965 frequency 0 1\n25000000.0894"));
    EXPECT_THAT(result.out, HasSubstr("thermal pin 62\n"));
    EXPECT_THAT(result.out, HasSubstr("\n50.00   2640x1125  +0.0 "));
    EXPECT_THAT(result.out, HasSubstr("$ mtype -i disk.img ::news.txt\nWritten by the host.\n"));
    EXPECT_THAT(result.out, HasSubstr("  greeting\nremoved: 2\n"));
    EXPECT_THAT(result.out, HasSubstr("slot b runs system 2, confirmed\n"));
    EXPECT_THAT(result.out, ContainsRegex("\n  in all  +13 "));
    EXPECT_THAT(result.out, HasSubstr("10 of 10 power cuts left a whole, verified system"));
    for (const char* picture : {"01-menu.png", "11-english.png", "50_2640x1125.svg", "usb.pcap"}) {
        EXPECT_TRUE(std::filesystem::exists(std::string(BUILD "/demo/") + picture)) << picture;
    }
}

} // namespace
} // namespace halctl_tests::examples
