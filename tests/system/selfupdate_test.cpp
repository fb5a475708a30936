#include "client/softwareupdate.h"
#include "hardwaresuite.h"

#include <QRegularExpression>
#include <stdexcept>

namespace {

using namespace tessary::test;
using tessary::client::Bytes;
using tessary::client::SoftwareUpdate;

// The daemon's own package, installed by the instrument's dpkg, is updated over the serial line by the daemon
// that it brought: the next version's package, with the same maintainer scripts and a daemon that says
// another version.
class SelfUpdate : public HardwareSuite
{
protected:
    static QString packageFile(const QString& version)
    {
        return instrument().sharedFile("tessary-" + version + ".deb");
    }

    static void makeUpdate(const QStringList& arguments)
    {
        const CommandResult made = runCommand(TESSARY_SOURCE_DIR "/packaging/make-update", arguments);
        if (!made.ok())
            throw std::runtime_error("make-update: " + made.errors.toStdString());
    }

    /// The package of the version after that of `installed`, with the next daemon.
    static Bytes makeNext(const QString& installed)
    {
        const QString file = packageFile(TESSARY_NEXT_VERSION);
        makeUpdate({"--next", packageFile(installed), "--daemon", TESSARY_NEXT_DAEMON, "--version",
            TESSARY_NEXT_VERSION, file});
        const QByteArray image = contentOf(file);
        return Bytes(image.begin(), image.end());
    }

    /// As on the instrument before: the released version came by dpkg, too, and runs.
    void installAndStart(const QString& version)
    {
        makeUpdate({"--version", version, TESSARY_BUILD_DIR, packageFile(version)});
        // Tells the maintainer scripts that systemd has booted this machine and may start services. Its
        // systemctl notes what it is asked; that the unit is enabled, is its answer to everything.
        instrument().shell("mkdir -p /run/systemd/system && rm -f /usr/sbin/policy-rc.d");
        instrument().misbehave({"systemctl", "--stdout", "enabled"});
        // Its dependencies on programs that the daemon can do without for now may be missing on this machine;
        // the daemon's own call of dpkg passes over that as well.
        instrument().shell("dpkg -i --force-all /run/bench/tessary-" + version + ".deb");
        startDaemon();
    }

    static QByteArray installedVersion()
    {
        return instrument().shell("dpkg-query -W -f '${db:Status-Abbrev}${Version}' tessary");
    }

    SoftwareUpdate::Result update(const Bytes& package)
    {
        SoftwareUpdate::Settings settings;
        settings.bytesPerSecond = 1000000; // a pseudo-terminal carries more than 115200 baud
        return SoftwareUpdate(line(), settings).run(package, [](std::size_t) {});
    }

    /// What was asked of the service manager concerning the daemon.
    static QStringList serviceCalls()
    {
        QStringList calls;
        for (const RecordedCommand& command : instrument().commands()) {
            if (command.kind == "stand-in" && command.text().contains("tessary.service"))
                calls << command.text();
        }
        return calls;
    }

    static std::string says(const char* softwareVersion)
    {
        return std::string("SV: mx8 ") + softwareVersion + " FPGA: ";
    }
};

} // namespace

TEST_F(SelfUpdate, TheNewVersionAnswersAfterTheNextStart)
{
    installAndStart(TESSARY_VERSION);
    EXPECT_EQ(version().rfind(says(TESSARY_VERSION), 0), 0U);
    const Bytes package = makeNext(TESSARY_VERSION);
    const qint64 running = instrument().daemonPid();
    const int callsBefore = serviceCalls().size();
    instrument().shell("ethtool -K eth0 gro on");

    EXPECT_EQ(update(package), SoftwareUpdate::Result::Installed);
    EXPECT_EQ(installedVersion(), "ii " TESSARY_NEXT_VERSION);
    EXPECT_EQ(instrument().shell("dpkg --verify tessary"), "") << "files differ from the package's";
    // The copy for a start after a power cut was kept, and is gone.
    EXPECT_EQ(instrument().shell("ls -A /var/lib/tessary"), "");
    // The daemon that installed it has answered and lives on.
    EXPECT_EQ(instrument().daemonPid(), running);
    EXPECT_EQ(version().rfind(says(TESSARY_VERSION), 0), 0U);
    const QStringList calls = serviceCalls().mid(callsBefore);
    EXPECT_FALSE(calls.filter(" start ").isEmpty()) << "the maintainer scripts did nothing";
    EXPECT_TRUE(calls.filter(QRegularExpression("stop|restart|kill")).isEmpty())
        << qPrintable(calls.join("; "));
    // The package's settings hold without a reboot.
    EXPECT_TRUE(instrument().shell("ethtool -k eth0").contains("generic-receive-offload: off"));

    // What the service manager does when the daemon ends, and a reboot.
    instrument().daemon("kill");
    startDaemon();
    EXPECT_EQ(version().rfind(says(TESSARY_NEXT_VERSION), 0), 0U);
    EXPECT_EQ(instrument().exec({"nmcli", "networking"}).output, "enabled\n");
}

// dpkg calls a package broken before it runs the first of the package's scripts: were the package not kept by then, the next
// start could not complete it. The power fails in that script, and does not when it runs again.
TEST_F(SelfUpdate, AnUpdateThatAPowerCutEndsAtOnceCanBeCompleted)
{
    installAndStart(TESSARY_VERSION);
    makeNext(TESSARY_VERSION);
    instrument().shell(
        "cd /tmp && dpkg-deb -R /run/bench/tessary-" TESSARY_NEXT_VERSION ".deb tree"
        " && printf '#!/bin/sh\nmkdir /run/cut 2>/dev/null && kill -9 $PPID\nexit 0\n' >tree/DEBIAN/preinst"
        " && chmod 755 tree/DEBIAN/preinst && dpkg-deb -b tree Tessary.deb");

    EXPECT_FALSE(instrument().exec({"dpkg", "-i", "--force-all", "/tmp/Tessary.deb"}).ok());
    EXPECT_EQ(installedVersion(), "iHR" TESSARY_VERSION) << "dpkg was not interrupted";

    instrument().shell("rm /tmp/Tessary.deb"); // the start empties the folder
    instrument().shell(
        "dpkg --install --force-all /var/lib/tessary/update.deb"); // tessary-finish-update.service
    EXPECT_EQ(installedVersion(), "ii " TESSARY_NEXT_VERSION);
    EXPECT_EQ(instrument().shell("dpkg --verify tessary"), "") << "files differ from the package's";
    EXPECT_EQ(instrument().shell("ls -A /var/lib/tessary"), "") << "the copy is still there";
}
