#include "client/panel/commandline.h"
#include "client/tessaryctl/failure.h"

#include <gtest/gtest.h>

namespace {

using namespace tessary::panel;
using Words = std::vector<std::string>;

/// "yes", "no" (not allowed) or "none" (no command line).
std::string verdict(const Words& words, Allowed allowed = {})
{
    try {
        checkedCommand(words, allowed, "/tmp/uploads");
        return "yes";
    } catch (const NotAllowed&) {
        return "no";
    } catch (const tessary::ctl::Failure&) {
        return "none";
    }
}

TEST(PanelCommandLine, KnowsWhatIsAsked)
{
    EXPECT_EQ(checkedCommand({"scan", "udp://239.0.0.1:1234"}, {}, ""), "scan");
    EXPECT_EQ(
        checkedCommand({"--timeout", "3", "record", "start", "--seconds", "5"}, {}, ""), "record start");
    EXPECT_EQ(checkedCommand({"play", "command"}, {}, ""), "play");
    EXPECT_EQ(checkedCommand({"--help"}, {}, ""), "");
}

TEST(PanelCommandLine, WhatIsNoCommandIsNone)
{
    for (const Words& words :
        {Words{"scna"}, {"scan", "--nonsense"}, {"play"}, {"ping", "a", "--count", "0"}})
        EXPECT_EQ(verdict(words), "none") << words.front();
}

TEST(PanelCommandLine, ReachesNoFilesAndNoOtherPort)
{
    for (const Words& words :
        {Words{"log", "--output", "/tmp/x"}, {"report", "/etc/passwd"}, {"view"}, {"shell"},
            {"iat", "--png", "/tmp/x"}, {"iat", "--svg=/tmp/x"}, {"t2mi-frame", "--out", "/tmp/x"},
            {"version", "--port", "/dev/ttyS0"}, {"-p/dev/ttyS0", "version"}, {"-jp/dev/ttyS0", "version"}})
        EXPECT_EQ(verdict(words, {true, true}), "none") << words.front();
}

TEST(PanelCommandLine, AShellOnTheInstrumentIsOffInEveryDisguise)
{
    for (const Words& words : {Words{"command", "reboot"}, {"raw", "command:reboot"},
             {"raw", "ping 10.0.0.1"}, {"raw", "ping 1.1.1.1;reboot"}, {"raw", "ping 1.1.1.1\nreboot"},
             {"raw", "x\\ncommand:reboot"}, {"raw", "x\\0command:reboot"},
             {"raw", "--hex", "636f6d6d616e643a61"}, {"raw", "x", std::string("y\0command:z", 11)},
             {"raw", "server=UDP 239.0.0.1`reboot` 1234"}, {"raw", "interface=dhcp;reboot"},
             {"ping", "1.1.1.1;reboot"}, {"ping", "$(reboot)"}, {"ping", "--", "-f"},
             {"interface", "dhcp", "--ethtool", "ethtool x;reboot"}, {"--json", "ping", "a|b"}}) {
        EXPECT_EQ(verdict(words), "no") << words.front() << ' ' << words.at(1);
        EXPECT_EQ(verdict(words, {true, false}), "yes") << words.front() << ' ' << words.at(1);
    }
}

TEST(PanelCommandLine, TheRareCommandsCanBeTyped)
{
    for (const Words& words :
        {Words{"raw", "version?"}, {"raw", "!07_S_&"}, {"raw", "server=UDP 239.0.0.1 1234"},
            {"ping", "10.0.0.1"}, {"interface", "dhcp", "--ethtool", "ethtool -s eth0 speed 100 duplex full"},
            {"dab", "send", "list?"}, {"play", "Rock & Pop"}})
        EXPECT_EQ(verdict(words), "yes") << words.front() << ' ' << words.at(1);
}

TEST(PanelCommandLine, AnUpdateTakesOnlyWhatWasUploaded)
{
    EXPECT_EQ(verdict({"update", "/tmp/uploads/a.deb"}), "no");
    EXPECT_EQ(verdict({"raw", "update"}), "no");
    EXPECT_EQ(verdict({"update", "/tmp/uploads/a.deb"}, {false, true}), "yes");
    for (const char* file : {"/etc/passwd", "/tmp/uploads/../x.deb", "a.deb", "/tmp/uploads/.partial-a.deb"})
        EXPECT_EQ(verdict({"update", file}, {false, true}), "no") << file;
}

} // namespace
